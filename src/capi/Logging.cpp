// C entry points: trace file, log sinks and the session's print channels.
#include <cstdarg>
#include <ios>

#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::onSession;
using tarvel::capi::onSessionVoid;

extern "C" {

TARVEL_API void TARVEL_CALL DebugCommTarvel(Tarvel* tarvel, const char* fileName) {
    // A fresh trace each time the file is opened.
    const int mode = static_cast<int>(std::ios_base::out | std::ios_base::trunc);
    onSessionVoid(tarvel, __func__, [&] { tarvel->DebugComm(fileName, mode); });
}

TARVEL_API int TARVEL_CALL SetPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*), LOG_LEVELS_TARVEL level) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (tarvel::capi::nullArgument(tarvel, func == nullptr, entryPoint, "func")) return TARVEL_ERROR_NULL_POINTER;
        return tarvel->SetPrintStream(func, level);
    });
}

TARVEL_API int TARVEL_CALL ClearPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*),
                                                    LOG_LEVELS_TARVEL level) {
    return onSession(tarvel, __func__, [&] { return tarvel->ClearPrintStream(func, level); });
}

TARVEL_API int TARVEL_CALL SetPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (tarvel::capi::nullArgument(tarvel, file == nullptr, entryPoint, "file")) return TARVEL_ERROR_NULL_POINTER;
        return tarvel->SetPrintStream(file, level);
    });
}

TARVEL_API int TARVEL_CALL ClearPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level) {
    return onSession(tarvel, __func__, [&] { return tarvel->ClearPrintStream(file, level); });
}

TARVEL_API void TARVEL_CALL PrintfErrTarvel(Tarvel* tarvel, const char* format, ...) {
    va_list args;
    va_start(args, format);
    onSessionVoid(tarvel, __func__, [&](const char* entryPoint) {
        if (!tarvel::capi::nullArgument(tarvel, format == nullptr, entryPoint, "format"))
            tarvel->vPrintf_err(format, args);
    });
    va_end(args);
}

TARVEL_API void TARVEL_CALL PrintfInfTarvel(Tarvel* tarvel, const char* format, ...) {
    va_list args;
    va_start(args, format);
    onSessionVoid(tarvel, __func__, [&](const char* entryPoint) {
        if (!tarvel::capi::nullArgument(tarvel, format == nullptr, entryPoint, "format"))
            tarvel->vPrintf_inf(format, args);
    });
    va_end(args);
}

} // extern "C"
