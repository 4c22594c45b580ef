// C entry points added beside the original set: reception as events,
// statistics, result texts, and the operations that had no C form.
#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::nullArgument;
using tarvel::capi::onSession;

extern "C" {

TARVEL_API int TARVEL_CALL RequestReportTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                               bool extended, bool tailFlag, unsigned char dlc, bool flag7, bool flag6,
                                               const unsigned char* data) {
    return onSession(tarvel, __func__, [&] {
        return tarvel->RequestReport(channelMask, id, extended, tailFlag, dlc, flag7, flag6, data);
    });
}

TARVEL_API int TARVEL_CALL SetReportQueueTarvel(Tarvel* tarvel, unsigned int capacity) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetReportQueue(capacity); });
}

TARVEL_API int TARVEL_CALL WaitReportTarvel(Tarvel* tarvel, TarvelReport* report, unsigned int timeoutMs) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (nullArgument(tarvel, report == nullptr, entryPoint, "report")) return TARVEL_ERROR_NULL_POINTER;
        return tarvel->WaitReport(*report, timeoutMs);
    });
}

TARVEL_API int TARVEL_CALL WaitReportsTarvel(Tarvel* tarvel, TarvelReport* reports, unsigned int maxCount,
                                             unsigned int timeoutMs) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (nullArgument(tarvel, reports == nullptr, entryPoint, "reports")) return TARVEL_ERROR_NULL_POINTER;
        return tarvel->WaitReports(reports, maxCount, timeoutMs);
    });
}

TARVEL_API int TARVEL_CALL SetReportCallbackTarvel(Tarvel* tarvel, void (*function)(const TarvelReport*, void*),
                                                   void* user) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetReportCallback(function, user); });
}

TARVEL_API int TARVEL_CALL ReadReportTarvel(Tarvel* tarvel, int requestKey, TarvelReport* report) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (nullArgument(tarvel, report == nullptr, entryPoint, "report")) return TARVEL_ERROR_NULL_POINTER;
        return tarvel->ReadReport(requestKey, *report);
    });
}

TARVEL_API int TARVEL_CALL GetStatisticsTarvel(Tarvel* tarvel, TarvelStatistics* statistics) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (nullArgument(tarvel, statistics == nullptr, entryPoint, "statistics")) return TARVEL_ERROR_NULL_POINTER;
        *statistics = tarvel->GetStatistics();
        return 0;
    });
}

TARVEL_API int TARVEL_CALL ResetStatisticsTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] {
        tarvel->ResetStatistics();
        return 0;
    });
}

TARVEL_API const char* TARVEL_CALL ResultTextTarvel(int code) {
    return Tarvel::ResultText(code, nullptr);
}

TARVEL_API const char* TARVEL_CALL OperationResultTextTarvel(const char* operation, int code) {
    return Tarvel::ResultText(code, operation);
}

TARVEL_API const char* TARVEL_CALL LibraryVersionTarvel(void) {
    return Tarvel::LibraryVersion();
}

TARVEL_API int TARVEL_CALL PingTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->Ping(); });
}

TARVEL_API int TARVEL_CALL GatewayIDTarvel(Tarvel* tarvel, unsigned char target, unsigned int id) {
    return onSession(tarvel, __func__, [&] { return tarvel->GatewayID(target, id); });
}

TARVEL_API int TARVEL_CALL SetTimeoutTarvel(Tarvel* tarvel, unsigned int readTimeout, unsigned int writeTimeout) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetTimeout(readTimeout, writeTimeout); });
}

TARVEL_API int TARVEL_CALL GetTimeoutTarvel(Tarvel* tarvel, unsigned int* readTimeout, unsigned int* writeTimeout) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (nullArgument(tarvel, readTimeout == nullptr || writeTimeout == nullptr, entryPoint, "a time-out pointer"))
            return TARVEL_ERROR_NULL_POINTER;
        return tarvel->GetTimeout(*readTimeout, *writeTimeout);
    });
}

TARVEL_API int TARVEL_CALL SetAnswerWaitTarvel(Tarvel* tarvel, unsigned int ms) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetAnswerWait(ms); });
}

TARVEL_API int TARVEL_CALL SetReceiverErrorCountingTarvel(Tarvel* tarvel, bool consecutive) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetReceiverErrorCounting(consecutive); });
}

} // extern "C"
