"""The library's failures as python-can's exceptions, with the code and its words."""

import can

NO_ANSWER_IN_TIME = -15


def can_error(error, kind=can.CanOperationError):
    """A python-can exception for a tarvel.TarvelError (its code as error_code, its message as the text).

    An answer that did not come in time is a CanTimeoutError.
    """
    if kind is can.CanOperationError and error.code == NO_ANSWER_IN_TIME:
        kind = can.CanTimeoutError
    return kind(str(error), error_code=error.code)
