// The async map: the latest report of each requested CAN message.
#include <algorithm>
#include <mutex>

#include "Tarvel.h"
#include "session/Events.h"
#include "session/SessionUtil.h"

namespace {

const std::size_t kReportHeader = 3; // handler (2 bytes), flags and data length code
const unsigned kChannels = 4;

} // namespace

namespace tarvel {
namespace session {

bool buildAsyncMessage(const RecvMessage& message, RecvAsyncMessage& out) {
    const ByteVector& d = message.data;
    if (d.size() < kReportHeader) return false;
    const uint8_t dlc = d[2] & 0x0F;
    const std::size_t length = Tarvel::kDlcToLength[dlc];
    if (d.size() < kReportHeader + length) return false;

    out.channel = message.messageId;
    out.handler = static_cast<uint16_t>((d[0] << 8) | d[1]);
    out.key = (static_cast<uint32_t>(out.channel) << 16) + out.handler;
    out.dlc = dlc;
    out.flag7 = (d[2] >> 7) & 1;
    out.flag6 = (d[2] >> 6) & 1;
    out.flag5 = (d[2] >> 5) & 1;
    out.flag4 = (d[2] >> 4) & 1;
    out.data.assign(d.begin() + kReportHeader, d.begin() + kReportHeader + length);
    out.timestamp = static_cast<uint32_t>(Tarvel::GetTickMs());
    return true;
}

} // namespace session
} // namespace tarvel

void Tarvel::_fileReport(const RecvMessage& message, uint64_t timeUs) {
    RecvAsyncMessage filed;
    // A report too short for its header or its length is dropped (the trace
    // already holds it).
    if (!tarvel::session::buildAsyncMessage(message, filed)) return;
    TarvelReport report{};
    report.timeUs = timeUs;
    report.handler = filed.handler;
    report.channel = filed.channel;
    report.dlc = filed.dlc;
    report.length = static_cast<uint8_t>(filed.data.size());
    report.flag7 = filed.flag7;
    report.flag6 = filed.flag6;
    report.flag5 = filed.flag5;
    report.flag4 = filed.flag4;
    std::copy(filed.data.begin(), filed.data.end(), report.data);
    tarvel::session::Events& events = *m_events;
    {
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        // The report carries only the low 16 bits; the request knows the rest.
        const tarvel::session::RequestIdentity* request = events.requests.find(filed.channel, filed.handler);
        report.id = request != nullptr ? request->id : filed.handler;
        report.extended = request != nullptr && request->extended ? 1 : 0;
        report.requestKey = request != nullptr ? request->requestKey : 0;
        events.latest[filed.key] = report;
    }
    _writeAsyncMessage(filed);
    events.stats.reportsReceived.add();
    events.stats.reportsDropped.add(events.queue.push(report) + events.delivery.deliver(report));
}

void Tarvel::_writeAsyncMessage(const RecvAsyncMessage& message) {
    std::lock_guard<std::mutex> lock(m_asyncMutex);
    m_asyncMessages[message.key] = message;
}

RecvAsyncMessage Tarvel::ReadAsyncMessage(int requestKey) {
    if (!m_receiverRunning.load()) {
        Printf_err("Tarvel::ReadAsyncMessage: Receiving thread is not running!\n");
        return RecvAsyncMessage();
    }
    const uint32_t key = static_cast<uint32_t>(requestKey);
    const uint32_t handler = key & 0xFFFFu;
    std::lock_guard<std::mutex> lock(m_asyncMutex);
    // The selected channels in ascending order; the first report found wins.
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if ((key & (1u << (16 + channel))) == 0) continue;
        const auto it = m_asyncMessages.find((channel << 16) + handler);
        if (it != m_asyncMessages.end()) return it->second;
    }
    return RecvAsyncMessage();
}
