// C entry points: reception requests, received reports and signal reading.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::guarded;

// C callers lay the structure out from the header alone; pin it down.
static_assert(sizeof(TarvelAsyncMessage) == 16, "TarvelAsyncMessage must be 16 bytes");
static_assert(offsetof(TarvelAsyncMessage, key) == 0, "key at 0");
static_assert(offsetof(TarvelAsyncMessage, handler) == 4, "handler at 4");
static_assert(offsetof(TarvelAsyncMessage, channel) == 6, "channel at 6");
static_assert(offsetof(TarvelAsyncMessage, dlc) == 7, "dlc at 7");
static_assert(offsetof(TarvelAsyncMessage, flag7) == 8, "flag7 at 8");
static_assert(offsetof(TarvelAsyncMessage, flag6) == 9, "flag6 at 9");
static_assert(offsetof(TarvelAsyncMessage, flag5) == 10, "flag5 at 10");
static_assert(offsetof(TarvelAsyncMessage, flag4) == 11, "flag4 at 11");
static_assert(offsetof(TarvelAsyncMessage, timestamp) == 12, "timestamp at 12");

extern "C" {

TARVEL_API int TARVEL_CALL ReadAsyncMsgTarvel(Tarvel* tarvel, int requestKey, TarvelAsyncMessage* msg,
                                              unsigned char* data, unsigned char maxLen) {
    return guarded([&] {
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
                                                bool tailFlag, bool idFlag, unsigned char dlc, bool flag7,
                                                bool flag6, const unsigned char* data) {
    return guarded([&] { return tarvel->RequestMessage(channelMask, id, tailFlag, idFlag, dlc, flag7, flag6, data); });
}

TARVEL_API int TARVEL_CALL EnableRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return guarded([&] { return tarvel->EnableRequest(handler); });
}

TARVEL_API int TARVEL_CALL DisableRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return guarded([&] { return tarvel->DisableRequest(handler); });
}

TARVEL_API int TARVEL_CALL RemoveRequestTarvel(Tarvel* tarvel, unsigned short handler) {
    return guarded([&] { return tarvel->RemoveRequest(handler); });
}

TARVEL_API int TARVEL_CALL RequestSignalTarvel(Tarvel* tarvel, int requestKey, unsigned short StartSymbol,
                                               unsigned short StopSymbol) {
    return guarded([&] { return tarvel->RequestSignal(requestKey, StartSymbol, StopSymbol); });
}

// A null value is refused here, before any check of the member and without a message.
TARVEL_API int TARVEL_CALL SignalReadValue32Tarvel(Tarvel* tarvel, unsigned short handler, unsigned int* value,
                                                   unsigned int* age, bool doRead) {
    if (!value) return -5;
    return guarded([&] { return tarvel->SignalReadValue(handler, *value, age, doRead); });
}

TARVEL_API int TARVEL_CALL SignalReadValue64Tarvel(Tarvel* tarvel, unsigned short handler,
                                                   unsigned long long* value, unsigned int* age, bool doRead) {
    if (!value) return -5;
    return guarded([&] { return tarvel->SignalReadValue(handler, *value, age, doRead); });
}

} // extern "C"
