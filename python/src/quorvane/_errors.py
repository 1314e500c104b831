"""The exceptions of the package."""

from __future__ import annotations


class Error(Exception):
    """A call failed. Its text is the library's sentence.

    Attributes
    ----------
    code : str
        The name of the library's code, such as ``"QUORVANE_BAD_AUDIO"``.
    """

    code: str = "QUORVANE_FAILED"

    def __init__(self, sentence: str = "", code: str | None = None) -> None:
        super().__init__(sentence)
        if code is not None:
            self.code = code

    def __reduce__(self) -> tuple[type[Error], tuple[str, str]]:
        return type(self), (str(self), self.code)


class Unsupported(Error):
    """A format, an array type or a number of channels that cannot be worked on."""


class Cancelled(Error):
    """The call was cancelled by :meth:`Leveler.cancel`."""


class ArgumentError(Error, ValueError):
    """An argument is out of range, or an option is unknown."""


_KINDS: dict[str, type[Error]] = {
    "QUORVANE_UNSUPPORTED": Unsupported,
    "QUORVANE_CANCELLED": Cancelled,
    "QUORVANE_BAD_ARGUMENT": ArgumentError,
    "QUORVANE_BAD_OPTION": ArgumentError,
}


def error_for(code: str, sentence: str) -> BaseException:
    """The exception for a code of the library."""
    if code == "QUORVANE_NO_MEMORY":
        return MemoryError(sentence)
    return _KINDS.get(code, Error)(sentence, code)
