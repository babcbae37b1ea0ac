"""The core of a tag-management and analytics kit, for Python.

    import qvcore

    with qvcore.Kit("org.example.kiosk") as kit:
        kit.listen(qvcore.names.HTTP_RESPONSE, lambda answer: print(answer.info["content"]))
        kit.send("http://collector.example/hit", "page=home")

It is pure Python on top of the C interface of the library libQVCore.so.4, which the loader must find,
or the environment variable QVCORE_LIBRARY name by its path.
"""

from . import keys, names, variables
from ._calls import Error
from ._kit import Kit, RequestError, Value
from ._listeners import Listener, Notification

__all__ = ["Error", "Kit", "Listener", "Notification", "RequestError", "Value", "keys", "names",
           "variables"]
