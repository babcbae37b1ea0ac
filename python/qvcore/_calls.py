"""Calls of the library, with Python's values and errors."""

from __future__ import annotations

import ctypes
import json
from typing import Any, Dict, Optional

from . import _library as c

library = c.load()


class Error(Exception):
    """The library refused an argument, or could not do what it was asked."""


def check(result: int) -> int:
    if result == c.INVALID:
        raise Error("the library does not take this argument")
    if result < 0:
        raise Error("the library could not do it; standard error tells why")
    return result


def encoded(text: Optional[str]) -> Optional[bytes]:
    """What the library takes for text, which ends at a zero byte and is UTF-8."""
    if text is None:
        return None
    if not isinstance(text, str) or "\0" in text:
        raise Error(f"{text!r} is not a text without zero bytes")
    try:
        return text.encode()
    except UnicodeEncodeError as error:
        raise Error(f"{text!r} is not Unicode text") from error


def taken(text: c.OwnedText) -> Optional[str]:
    """A text that was handed over."""
    try:
        return ctypes.string_at(text).decode() if text else None
    finally:
        library.qv_free(text)


def content_of(info: Optional[int]) -> Dict[str, Any]:
    return json.loads(taken(library.qv_info_json(info)) or "{}")
