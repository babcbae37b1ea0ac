"""The C interface of the library, as <QVCore/qvcore.h> declares it.

No call holds the interpreter's lock, so that a callback on a thread of the library can run while
this one waits in the library.
"""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_double, c_int, c_long, c_void_p

OK, INVALID, FAILED, UNDER_WAY = 0, -1, -2, -3
LOG_LEVEL, LOG_NOTIFICATIONS, BLOCK_HITS, OWN_WEB_ENGINE, SEND_IN_BACKGROUND = range(1, 6)

NO_LEVEL = -1

CALLBACK = ctypes.CFUNCTYPE(None, c_char_p, c_void_p, c_void_p)
LOG_SINK = ctypes.CFUNCTYPE(None, c_char_p, c_int, c_void_p)


class OwnedText(c_void_p):
    """A text that belongs to the caller: a subclass, or ctypes would turn it into a number."""


# Result, and then the arguments.
FUNCTIONS = {
    "qv_version": (c_char_p,),
    "qv_free": (None, c_void_p),
    "qv_set_identifier": (c_int, c_char_p),
    "qv_set_container_directory": (c_int, c_char_p),
    "qv_set_resource_directory": (c_int, c_char_p),
    "qv_assume_network": (c_int,),
    "qv_expect_consent": (c_int,),
    "qv_start": (c_int,),
    "qv_set": (c_int, c_int, c_int),
    "qv_get": (c_int, c_int, POINTER(c_int)),
    "qv_info_new": (c_void_p,),
    "qv_info_copy": (c_void_p, c_void_p),
    "qv_info_request": (c_void_p, c_void_p),
    "qv_info_free": (None, c_void_p),
    "qv_info_set_text": (c_int, c_void_p, c_char_p, c_char_p),
    "qv_info_set_number": (c_int, c_void_p, c_char_p, c_double),
    "qv_info_set_flag": (c_int, c_void_p, c_char_p, c_int),
    "qv_info_text": (c_char_p, c_void_p, c_char_p),
    "qv_info_number": (c_double, c_void_p, c_char_p),
    "qv_info_status": (c_int, c_void_p),
    "qv_info_json": (OwnedText, c_void_p),
    "qv_post": (c_int, c_char_p, c_void_p),
    "qv_send": (c_int, c_char_p, c_char_p),
    "qv_listen": (c_long, c_char_p, CALLBACK, c_void_p),
    "qv_unlisten": (c_int, c_long),
    "qv_save": (c_int,),
    "qv_save_at_each_change": (c_int,),
    "qv_shutdown": (c_int, c_int, POINTER(c_int)),
    "qv_erase_everything": (c_int,),
    "qv_wait_for_user_agent": (c_int,),
    "qv_add_partner": (c_int, c_char_p),
    "qv_set_queue_limits": (c_int, c_int, c_int),
    "qv_variable": (OwnedText, c_char_p),
    "qv_set_variable": (c_int, c_char_p, c_char_p),
    "qv_set_account": (c_int, c_int, c_int),
    "qv_set_configuration_host": (c_int, c_char_p),
    "qv_add_configuration": (c_int, c_char_p, c_char_p, c_char_p),
    "qv_configuration_json": (OwnedText, c_char_p, c_char_p),
    "qv_configuration_text": (OwnedText, c_char_p, c_char_p),
    "qv_main_queue_descriptor": (c_int,),
    "qv_main_queue_drain": (None,),
    "qv_main_queue_run": (None,),
    "qv_main_queue_stop": (None,),
    "qv_set_log_sink": (c_int, LOG_SINK, c_void_p),
    "qv_log": (c_int, c_char_p, c_int),
}


def load() -> ctypes.CDLL:
    """The library with the types of its functions. OSError when the loader does not find it."""
    library = ctypes.CDLL(os.environ.get("QVCORE_LIBRARY", "libQVCore.so.4"))
    for name, (result, *arguments) in FUNCTIONS.items():
        function = getattr(library, name, None)
        if function is None:
            raise ImportError(f"{library._name} is older than this package: it has no {name}")
        function.restype = result
        function.argtypes = arguments
    return library
