"""Exceptions of the tarvel package."""


class TarvelError(Exception):
    """An operation of the library returned a negative result.

    Attributes:
        operation: the library's name of the operation ("Connect", "ReadEeprom", ...).
        code: the result code (negative).
        text: the library's words for the code in this operation
            (``OperationResultTextTarvel(operation, code)``).
        report: what the library printed on its error channel during the call,
            when it did (its own explanation), else None.
        detail: what the caller was doing, when given ("to /dev/ttyUSB0"), else "".
    """

    def __init__(self, operation, code, text, report=None, detail=""):
        self.operation = operation
        self.code = code
        self.text = text
        self.report = report
        self.detail = detail
        what = f"{operation} {detail}".rstrip()
        message = f"{what} failed: {code}: {text}"
        if report:
            message += f" (the library reported: {report})"
        super().__init__(message)


class LibraryNotFoundError(OSError):
    """The TarvelAPI shared library could not be found or loaded; the message names every place looked at."""


class SimulatorError(RuntimeError):
    """The simulator program could not be found, or did not start; the message says why."""
