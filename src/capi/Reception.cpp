// C entry points: reception requests, received reports and signal reading.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::onSession;

extern "C" {

TARVEL_API int TARVEL_CALL ReadAsyncMsgTarvel(Tarvel* tarvel, int requestKey, TarvelAsyncMessage* msg,
                                              unsigned char* data, unsigned char maxLen) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (tarvel::capi::nullArgument(tarvel, msg == nullptr, entryPoint, "msg")) return TARVEL_ERROR_NULL_POINTER;
        const RecvAsyncMessage m = tarvel->ReadAsyncMessage(requestKey);
        if (m.key == 0) return -1; // no report: the caller's buffers stay as they were
        msg->key = m.key;
        msg->handler = m.handler;
        msg->channel = m.channel;
        msg->dlc = m.dlc;
        msg->flag7 = m.flag7;
        msg->flag6 = m.flag6;
        msg->flag5 = m.flag5;
        msg->flag4 = m.flag4;
        msg->timestamp = m.timestamp;
        if (!data) return 0;
        const std::size_t n = std::min<std::size_t>(maxLen, m.data.size());
        if (n) std::memcpy(data, m.data.data(), n);
        return static_cast<int>(n);
    });
}

TARVEL_API int TARVEL_CALL RequestMessageTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                                bool tailFlag, bool idFlag, unsigned char dlc, bool flag7, bool flag6,
                                                const unsigned char* data) {
    return onSession(tarvel, __func__, [&] {
        return tarvel->RequestMessage(channelMask, id, tailFlag, idFlag, dlc, flag7, flag6, data);
    });
}

TARVEL_API int TARVEL_CALL EnableRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->EnableRequest(handler); });
}

TARVEL_API int TARVEL_CALL DisableRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->DisableRequest(handler); });
}

TARVEL_API int TARVEL_CALL RemoveRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->RemoveRequest(handler); });
}

TARVEL_API int TARVEL_CALL RequestSignalTarvel(Tarvel* tarvel, int requestKey, unsigned short StartSymbol,
                                               unsigned short StopSymbol) {
    return onSession(tarvel, __func__, [&] { return tarvel->RequestSignal(requestKey, StartSymbol, StopSymbol); });
}

// A null value is refused here, before any check of the member and without a message.
TARVEL_API int TARVEL_CALL SignalReadValue32Tarvel(Tarvel* tarvel, unsigned short handler, unsigned int* value,
                                                   unsigned int* age, bool doRead) {
    if (!value) return -5;
    return onSession(tarvel, __func__, [&] { return tarvel->SignalReadValue(handler, *value, age, doRead); });
}

TARVEL_API int TARVEL_CALL SignalReadValue64Tarvel(Tarvel* tarvel, unsigned short handler, unsigned long long* value,
                                                   unsigned int* age, bool doRead) {
    if (!value) return -5;
    return onSession(tarvel, __func__, [&] { return tarvel->SignalReadValue(handler, *value, age, doRead); });
}

} // extern "C"
