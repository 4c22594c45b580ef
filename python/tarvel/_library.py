"""Finding and loading the TarvelAPI shared library, with the prototypes of its C entry points.

The library is looked for, in this order:

1. ``TARVEL_LIBRARY``: a path to the library file (when set, nothing else is tried);
2. next to this package (a wheel or an installation may ship it there);
3. the build tree, when the package is imported from a checkout of the
   repository (``build/default/libTarvelAPI.so``, ``build/windows/TarvelAPI.dll``);
4. the system's loader (``LD_LIBRARY_PATH``, ``ldconfig``, ``PATH`` on Windows).
"""

import ctypes
import ctypes.util
import os
import sys
import threading
from ctypes import POINTER, c_bool, c_char_p, c_int, c_longlong, c_ubyte, c_uint, c_ulonglong, c_ushort, c_void_p

from . import _types
from .errors import LibraryNotFoundError

if sys.platform == "win32":
    FILE_NAME = "TarvelAPI.dll"
    BUILD_DIR = os.path.join("build", "windows")
else:
    FILE_NAME = "libTarvelAPI.dylib" if sys.platform == "darwin" else "libTarvelAPI.so"
    BUILD_DIR = os.path.join("build", "default")

ENVIRONMENT_VARIABLE = "TARVEL_LIBRARY"

_PACKAGE_DIR = os.path.dirname(os.path.abspath(__file__))

_lock = threading.Lock()
_loaded = None  # (CDLL, path)

_T = c_void_p  # Tarvel*
_u8p = POINTER(c_ubyte)

# name: (result type, argument types)
_PROTOTYPES = {
    "NewTarvel": (_T, []),
    "DeleteTarvel": (None, [_T]),
    "ConnectTarvel": (c_int, [_T, c_char_p, c_uint, c_uint]),
    "DisconnectTarvel": (c_int, [_T]),
    "StartReceiverTarvel": (c_int, [_T]),
    "StopReceiverTarvel": (None, [_T]),
    "GetInternalThreadStatus": (c_int, [_T]),
    "ReadAsyncMsgTarvel": (c_int, [_T, c_int, POINTER(_types.AsyncMessage), _u8p, c_ubyte]),
    "ResetTarvel": (c_int, [_T]),
    "RebootTarvel": (c_int, [_T, c_bool]),
    "BootloaderTarvel": (c_int, [_T]),
    "GetVersionTarvel": (c_int, [_T]),
    "GetTimeTarvel": (c_int, [_T, POINTER(c_longlong)]),
    "SetTimeTarvel": (c_int, [_T, c_longlong]),
    "ReadEepromTarvel": (c_int, [_T, c_ushort, c_ubyte, _u8p]),
    "WriteEepromTarvel": (c_int, [_T, c_ushort, c_ubyte, _u8p]),
    "AddMessageTarvel": (c_int, [_T, POINTER(_types.CanMessage), _u8p]),
    "RemoveMessageTarvel": (c_int, [_T, c_ushort]),
    "EnableMessageTarvel": (c_int, [_T, c_ushort]),
    "DisableMessageTarvel": (c_int, [_T, c_ushort]),
    "SetMessageDataTarvel": (c_int, [_T, c_ushort, _u8p, _u8p, c_bool, c_bool]),
    "GetHandlerTarvel": (c_int, [_T, c_ubyte, c_ubyte, c_uint, c_bool, c_bool, c_bool]),
    "AddSignalTarvel": (c_int, [_T, c_ushort, c_ubyte, c_ushort, c_ushort, c_ubyte]),
    "RemoveSignalTarvel": (c_int, [_T, c_ushort]),
    "SignalChangeValueTarvel": (c_int, [_T, c_ushort, c_ushort, c_bool, c_bool]),
    "ChangeSignalSgroupTarvel": (c_int, [_T, c_ubyte, c_ushort]),
    "ExecuteSignalChangeTarvel": (c_int, [_T, c_bool]),
    "SetSignalControlTarvel": (c_int, [_T, c_ushort, c_ubyte, c_uint, c_uint, c_uint]),
    "AddCrcTarvel": (c_int, [_T, _u8p]),
    "ChangeCrcTarvel": (c_int, [_T, c_ushort, _u8p]),
    "DisableCrcTarvel": (c_int, [_T, c_ushort]),
    "BlobRemoveTarvel": (c_int, [_T]),
    "RequestMessageTarvel": (c_int, [_T, c_ubyte, c_uint, c_bool, c_bool, c_ubyte, c_bool, c_bool, _u8p]),
    "EnableRequestTarvel": (c_int, [_T, c_ushort]),
    "DisableRequestTarvel": (c_int, [_T, c_ushort]),
    "RemoveRequestTarvel": (c_int, [_T, c_ushort]),
    "RequestSignalTarvel": (c_int, [_T, c_int, c_ushort, c_ushort]),
    "SignalReadValue32Tarvel": (c_int, [_T, c_ushort, POINTER(c_uint), POINTER(c_uint), c_bool]),
    "SignalReadValue64Tarvel": (c_int, [_T, c_ushort, POINTER(c_ulonglong), POINTER(c_uint), c_bool]),
    "DebugCommTarvel": (None, [_T, c_char_p]),
    "SetPrintFunctionTarvel": (c_int, [_T, _types.PRINT_FUNCTION, c_int]),
    "ClearPrintFunctionTarvel": (c_int, [_T, _types.PRINT_FUNCTION, c_int]),
    # Called with the text as the format, its '%' doubled: no variadic arguments cross ctypes.
    "PrintfErrTarvel": (None, [_T, c_char_p]),
    "PrintfInfTarvel": (None, [_T, c_char_p]),
    "RequestReportTarvel": (c_int, [_T, c_ubyte, c_uint, c_bool, c_bool, c_ubyte, c_bool, c_bool, _u8p]),
    "SetReportQueueTarvel": (c_int, [_T, c_uint]),
    "WaitReportTarvel": (c_int, [_T, POINTER(_types.Report), c_uint]),
    "WaitReportsTarvel": (c_int, [_T, POINTER(_types.Report), c_uint, c_uint]),
    "SetReportCallbackTarvel": (c_int, [_T, _types.REPORT_FUNCTION, c_void_p]),
    "ReadReportTarvel": (c_int, [_T, c_int, POINTER(_types.Report)]),
    "GetStatisticsTarvel": (c_int, [_T, POINTER(_types.Statistics)]),
    "ResetStatisticsTarvel": (c_int, [_T]),
    "ResultTextTarvel": (c_char_p, [c_int]),
    "OperationResultTextTarvel": (c_char_p, [c_char_p, c_int]),
    "LibraryVersionTarvel": (c_char_p, []),
    "PingTarvel": (c_int, [_T]),
    "GatewayIDTarvel": (c_int, [_T, c_ubyte, c_uint]),
    "SetTimeoutTarvel": (c_int, [_T, c_uint, c_uint]),
    "GetTimeoutTarvel": (c_int, [_T, POINTER(c_uint), POINTER(c_uint)]),
    "SetAnswerWaitTarvel": (c_int, [_T, c_uint]),
    "SetReceiverErrorCountingTarvel": (c_int, [_T, c_bool]),
}


def _checkout_root():
    """The repository this package is imported from, or None when it is installed elsewhere."""
    root = os.path.dirname(os.path.dirname(_PACKAGE_DIR))
    if os.path.isfile(os.path.join(root, "include", "TarvelAPI.h")):
        return root
    return None


def candidates():
    """The places looked at, in order, as (how to name it in an error, path or None for the system's loader)."""
    explicit = os.environ.get(ENVIRONMENT_VARIABLE)
    if explicit:
        return [(f"{ENVIRONMENT_VARIABLE}={explicit}", explicit)]
    local = os.path.join(_PACKAGE_DIR, FILE_NAME)
    places = [(f"{local} (next to the package)", local)]
    root = _checkout_root()
    if root is not None:
        built = os.path.join(root, BUILD_DIR, FILE_NAME)
        places.append((f"{built} (the build tree of the checkout)", built))
    places.append(("the system's loader", None))
    return places


def _open(path):
    """A CDLL for the path (None: the system's loader), or the reason it could not be loaded."""
    if path is not None:
        if not os.path.isfile(path):
            return None, "no such file"
        try:
            return ctypes.CDLL(path), None
        except OSError as error:
            return None, str(error)
    name = ctypes.util.find_library("TarvelAPI") or FILE_NAME
    try:
        return ctypes.CDLL(name), None
    except OSError as error:
        return None, str(error)


def _declare(library, path):
    missing = []
    for name, (restype, argtypes) in _PROTOTYPES.items():
        try:
            function = getattr(library, name)
        except AttributeError:
            missing.append(name)
            continue
        function.restype = restype
        function.argtypes = argtypes
    if missing:
        raise LibraryNotFoundError(
            f"{path} is not a TarvelAPI library this package can use: it lacks {', '.join(missing)}"
        )


def load():
    """The loaded library (ctypes.CDLL), found once per process.

    Raises LibraryNotFoundError naming every place it looked.
    """
    global _loaded
    with _lock:
        if _loaded is not None:
            return _loaded[0]
        tried = []
        for where, path in candidates():
            library, reason = _open(path)
            if library is None:
                tried.append(f"{where}: {reason}")
                continue
            shown = path or getattr(library, "_name", FILE_NAME)
            _declare(library, shown)
            _loaded = (library, shown)
            return library
        raise LibraryNotFoundError(
            f"cannot find the TarvelAPI library ({FILE_NAME}); looked at:\n  "
            + "\n  ".join(tried)
            + f"\nSet {ENVIRONMENT_VARIABLE} to the path of the library."
        )


def path():
    """Where the loaded library came from (loads it if need be)."""
    load()
    return _loaded[1]
