"""The kit as a Python program sees it."""

from __future__ import annotations

import asyncio
import ctypes
import itertools
import json
import os
import threading
from types import TracebackType
from typing import Any, Dict, Mapping, Optional, Type, Union

from . import _library as c
from . import keys, names
from ._calls import Error, check, encoded, library, taken
from ._listeners import Callback, Listener, LogSink, Notification, listeners, set_log_sink

Value = Union[str, bool, int, float]

_TOKEN = "qvcore.request"


class RequestError(Error):
    """A request failed or was refused; `notification` is the one that told it."""

    def __init__(self, notification: "Notification") -> None:
        why = notification.info.get(keys.ERROR) or notification.status or "no answer"
        super().__init__(f"{notification.info.get(keys.URL)}: {why}")
        self.notification = notification


class _Flag:
    """A setting of the library that is on or off."""

    def __init__(self, number: int, documentation: str) -> None:
        self._number = number
        self.__doc__ = documentation

    def __get__(self, kit: Optional["Kit"], owner: Optional[Type["Kit"]] = None) -> Any:
        return self if kit is None else bool(_setting(self._number))

    def __set__(self, kit: "Kit", is_on: bool) -> None:
        check(library.qv_set(self._number, bool(is_on)))


def _setting(number: int) -> int:
    value = ctypes.c_int()
    check(library.qv_get(number, ctypes.byref(value)))
    return value.value


class Kit:
    """The core. There is one in a process, which lives as long as that; make this object once.

    `container` is the directory of the program's files, which belong to one process at a time;
    `resources` that of the configurations shipped with it. `assume_network` is for a machine without
    a default route whose hits go to itself or to its neighbours. With `consent` hits wait until
    names.STARTING_THE_SDK is posted. `user_agent` says whether a web engine is asked for its user
    agent, which takes a loop or drain(). Lines of the kit's log below `log_level` are not written: 0
    stands for all, 6 for none.

    As a context manager it starts at the beginning of its block and is closed at its end; in an
    `async with` block the running loop, which must be that of the main thread, drains it.

    All methods may be called from any thread, and raise Error when the library refuses. Callbacks run
    on threads of the library, and what they raise goes to sys.unraisablehook.
    """

    log_notifications = _Flag(c.LOG_NOTIFICATIONS, "Whether the log tells of each notification.")
    block_hits = _Flag(c.BLOCK_HITS, "Whether requests are dropped instead of sent.")
    send_in_background = _Flag(c.SEND_IN_BACKGROUND,
                               "Whether the background holds and saves nothing; off at the start.")

    def __init__(self, identifier: Optional[str] = None, *,
                 container: Union[str, "os.PathLike[str]", None] = None,
                 resources: Union[str, "os.PathLike[str]", None] = None,
                 assume_network: bool = False, consent: bool = False, user_agent: bool = False,
                 log_level: int = 6) -> None:
        for setting, value in (
                (library.qv_set_identifier, identifier),
                (library.qv_set_container_directory, container and os.fspath(container)),
                (library.qv_set_resource_directory, resources and os.fspath(resources))):
            if value is not None:
                check(setting(encoded(value)))
        if assume_network:
            check(library.qv_assume_network())
        if consent:
            check(library.qv_expect_consent())
        check(library.qv_set(c.OWN_WEB_ENGINE, not user_agent))
        self.log_level = log_level
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._tokens = itertools.count(1)

    @property
    def version(self) -> str:
        return library.qv_version().decode()

    @property
    def log_level(self) -> int:
        """Lines below it are not logged: 0 all, 6 none."""
        return _setting(c.LOG_LEVEL)

    @log_level.setter
    def log_level(self, level: int) -> None:
        check(library.qv_set(c.LOG_LEVEL, level))

    # Life.

    def start(self) -> None:
        """Starts the core; once more, it does nothing."""
        check(library.qv_start())

    def close(self, seconds: float = 10) -> int:
        """The clean end: holds all hits, waits for the one under way, but no longer than so many
        seconds, and writes those that wait to the container, from where the next start sends them.
        Returns how many they are. What is posted later is saved within its post."""
        self.detach()
        saved = ctypes.c_int()
        result = library.qv_shutdown(round(seconds * 1000), ctypes.byref(saved))
        if result != c.UNDER_WAY:
            check(result)
        return saved.value

    def __enter__(self) -> "Kit":
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    async def __aenter__(self) -> "Kit":
        self.start()
        self.attach()
        return self

    async def __aexit__(self, *_: object) -> None:
        self.detach()
        await asyncio.get_running_loop().run_in_executor(None, self.close)

    # The main queue.

    @property
    def descriptor(self) -> int:
        """Readable while something waits for drain(); it belongs to the library."""
        return library.qv_main_queue_descriptor()

    def drain(self) -> None:
        """Runs what waits for the main thread, on which it must be called: changes of the network
        and the web engine's answer."""
        library.qv_main_queue_drain()

    def attach(self, loop: Optional[asyncio.AbstractEventLoop] = None) -> None:
        """Has the loop, the running one if it is None, drain the main queue until detach()."""
        if threading.current_thread() is not threading.main_thread():
            raise Error("the main queue is drained on the main thread")
        self.detach()
        self._loop = loop or asyncio.get_running_loop()
        self._loop.add_reader(self.descriptor, self.drain)

    def detach(self) -> None:
        loop, self._loop = self._loop, None
        if loop is not None and not loop.is_closed():
            loop.remove_reader(self.descriptor)

    # Notifications.

    def post(self, name: str, info: Optional[Mapping[str, Value]] = None) -> None:
        """Delivers to all who listen for exactly this name, on the calling thread. Values are texts,
        numbers and booleans."""
        if info is None:
            check(library.qv_post(encoded(name), None))
            return
        copy = library.qv_info_new()
        try:
            for key, value in info.items():
                check(self._store(copy, encoded(key), value))
            check(library.qv_post(encoded(name), copy))
        finally:
            library.qv_info_free(copy)

    @staticmethod
    def _store(info: int, key: Optional[bytes], value: Value) -> int:
        if isinstance(value, bool):
            return library.qv_info_set_flag(info, key, value)
        if isinstance(value, (int, float)):
            return library.qv_info_set_number(info, key, value)
        return library.qv_info_set_text(info, key, encoded(value))

    def send(self, url: str, body: Optional[str] = None, **own: Value) -> None:
        """Has a GET sent, or a POST if there is a body. The answer, names.HTTP_RESPONSE or
        names.HTTP_REQUEST_ERROR, carries `own`, by which it is known. A URL that is none is answered
        within this call."""
        info: Dict[str, Value] = {**own, keys.URL: url}
        if body is not None:
            info[keys.POST_DATA] = body
        self.post(names.HTTP_REQUEST, info)

    def listen(self, name: str, callback: Callback) -> Listener:
        """Calls the callback for each notification of this name, on the thread that posts it, until
        the listener is stopped or the program ends."""
        return listeners.add(name, callback)

    async def request(self, url: str, body: Optional[str] = None, **own: Value) -> Notification:
        """Sends a hit and waits for its answer, for as long as hits are held, too: see
        asyncio.wait_for(). Raises RequestError when it fails. A hit whose wait is cancelled goes out
        all the same."""
        loop = asyncio.get_running_loop()
        outcome: "asyncio.Future[Notification]" = loop.create_future()
        token = f"{os.getpid()}.{next(self._tokens)}"

        def settle(notification: Notification) -> None:
            if not outcome.done():
                outcome.set_result(notification)

        def receive(notification: Notification) -> None:
            if notification.info.get(_TOKEN) == token:
                loop.call_soon_threadsafe(settle, notification)

        with self.listen(names.HTTP_RESPONSE, receive), \
                self.listen(names.HTTP_REQUEST_ERROR, receive):
            self.send(url, body, **{**own, _TOKEN: token})
            answer = await outcome
        if answer.name == names.HTTP_REQUEST_ERROR:
            raise RequestError(answer)
        return answer

    # Hits.

    def save(self) -> None:
        """Writes those that wait to the container, beside the one under way."""
        check(library.qv_save())

    def save_at_each_change(self) -> None:
        """Does so at each change of their number from now on."""
        check(library.qv_save_at_each_change())

    def erase_everything(self) -> None:
        """Erases all that the kit keeps of the person and the installation, on disk and in memory."""
        check(library.qv_erase_everything())

    def wait_for_user_agent(self) -> None:
        """Holds hits until the user agent is known, and has it sent with them."""
        check(library.qv_wait_for_user_agent())

    def add_partner(self, partner: str) -> None:
        """Has the core hear names.HTTP_PARTNER_REQUEST + partner; once for each partner."""
        check(library.qv_add_partner(encoded(partner)))

    def set_queue_limits(self, seconds: int, hits: int) -> None:
        """How old hits may get and how many may wait before the oldest give way."""
        check(library.qv_set_queue_limits(seconds, hits))

    # Variables and configurations.

    def variable(self, name: str) -> Optional[str]:
        return taken(library.qv_variable(encoded(name)))

    def set_variable(self, name: str, value: Optional[str]) -> None:
        """None removes it."""
        check(library.qv_set_variable(encoded(name), encoded(value)))

    def set_account(self, site: int, container: int) -> None:
        """The numbers that configurations are found under, for those added from now on."""
        check(library.qv_set_account(site, container))

    def set_configuration_host(self, host: Optional[str]) -> None:
        """Where configurations without a URL are downloaded from: a host, or host:port."""
        check(library.qv_set_configuration_host(encoded(host)))

    def add_configuration(self, name: str, version_path: Optional[str] = None,
                          url: Optional[str] = None) -> None:
        """Takes "<name>.json" from the resources, and has a newer one downloaded."""
        check(library.qv_add_configuration(encoded(name), encoded(version_path),
                                             encoded(url)))

    def configuration(self, name: str, path: Optional[str] = None) -> Any:
        """What is at the path ("a/b") in the configuration, or all of it: "0" if that is missing, None
        if the configuration is."""
        text = taken(library.qv_configuration_json(encoded(name), encoded(path)))
        return None if text is None else json.loads(text)

    def set_log_sink(self, sink: Optional[LogSink]) -> None:
        """Takes all lines of the log from standard output and standard error; None brings these back.
        The sink is called with the line and its level, which is None for a line that says that
        something is wrong, on any thread of the process, and must not call the kit."""
        set_log_sink(sink)

    def log(self, line: str, level: int = 5) -> None:
        """Writes a line to the kit's log, if the level is at least `log_level`."""
        check(library.qv_log(encoded(line), level))
