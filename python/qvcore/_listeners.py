"""What the library calls: listeners, and the sink of its log."""

from __future__ import annotations

import atexit
import itertools
import threading
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Optional

from . import _library as c
from . import keys
from ._calls import Error, check, content_of, encoded, library

Callback = Callable[["Notification"], None]
LogSink = Callable[[str, Optional[int]], None]


@dataclass(frozen=True)
class Notification:
    """What was posted on the bus."""

    name: str
    #: Keys and values; objects of the library are texts that describe them.
    info: Dict[str, Any] = field(default_factory=dict)
    #: The status of the HTTP answer, where this tells one.
    status: Optional[int] = None
    #: What has to be posted to send the request once more of which this is the answer or error.
    request: Dict[str, Any] = field(default_factory=dict)


class Listener:
    """One registration of a callback. As a context manager it ends with its block."""

    def __init__(self, stop: Callable[[], None]) -> None:
        self._stop = stop

    def stop(self) -> None:
        """When this returns, the callback runs no more, but for a call that the caller is in. It
        waits for calls on other threads, so that the caller holds no lock that these take."""
        self._stop()

    def __enter__(self) -> "Listener":
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()


class _Listeners:
    """All callbacks of the process, behind one function that the library calls. It is never freed,
    so that a late call finds it."""

    def __init__(self) -> None:
        self._callbacks: Dict[int, Callback] = {}
        self._numbers: Dict[int, int] = {}
        self._keys = itertools.count(1)
        self._lock = threading.Lock()
        self._is_closed = False
        self._entry = c.CALLBACK(self._receive)
        # Before the interpreter ends: a thread of the library that waited for it then would never
        # go on, or be ended in the middle of its work.
        atexit.register(self.close)

    def add(self, name: str, callback: Callback) -> Listener:
        key = next(self._keys)
        with self._lock:
            if self._is_closed:
                raise Error("the program is ending")
            self._callbacks[key] = callback
        number = library.qv_listen(encoded(name), self._entry, key)
        if number < 0:
            self._callbacks.pop(key, None)
            check(number)
        with self._lock:
            self._numbers[key] = number
            is_late = self._is_closed
        if is_late:
            self._remove(key)
        return Listener(lambda: self._remove(key))

    def _remove(self, key: int) -> None:
        with self._lock:
            number = self._numbers.pop(key, None)
        if number is not None:
            library.qv_unlisten(number)  # the lock is not held: callbacks under way may take it
        self._callbacks.pop(key, None)

    def close(self) -> None:
        with self._lock:
            self._is_closed = True
            numbered = list(self._numbers)
        for key in numbered:
            self._remove(key)
        set_log_sink(None)

    def _receive(self, name: bytes, info: int, key: int) -> None:
        callback = self._callbacks.get(key)
        if callback is None:
            return
        content = content_of(info)
        callback(Notification(name.decode(), content, library.qv_info_status(info) or None,
                              self._request_of(info) if keys.REQUEST_ID in content else {}))

    @staticmethod
    def _request_of(info: int) -> Dict[str, Any]:
        request = library.qv_info_request(info)
        try:
            return content_of(request)
        finally:
            library.qv_info_free(request)


_log_sink: Optional[LogSink] = None


def _take_line(line: bytes, level: int, _: object) -> None:
    sink = _log_sink
    if sink is not None:
        sink(line.decode(errors="replace"), None if level == c.NO_LEVEL else level)


_log_entry = c.LOG_SINK(_take_line)  # never freed, as the listeners' is not


def set_log_sink(sink: Optional[LogSink]) -> None:
    global _log_sink
    was_set, _log_sink = _log_sink is not None, sink
    if was_set != (sink is not None):
        check(library.qv_set_log_sink(_log_entry if sink else c.LOG_SINK(), None))


listeners = _Listeners()
