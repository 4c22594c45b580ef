// The workers of the bus side: the report reader, and a signal changed and watched in the reports.
#include <cstring>
#include <thread>

#include "Workers.h"

namespace soak {

namespace {

using namespace traffic;

// Why a report does not fit the traffic the simulator makes; empty when it does.
std::string wrong(Context& c, const TarvelReport& r, uint32_t& lastFlood, bool& floodSeen) {
    auto is = [&](unsigned char channel, uint32_t id, bool extended) {
        if (r.channel != channel || (r.id & 0xFFFFu) != (id & 0xFFFFu)) return false;
        // A report of a request the session knows carries its whole identity.
        const int key = static_cast<int>((1u << channel) << 16 | (id & 0xFFFFu));
        return r.requestKey == 0 || (r.requestKey == key && r.id == id && r.extended == extended);
    };
    auto carries = [&](const uint8_t* data, std::size_t n) { return r.length == n && !std::memcmp(r.data, data, n); };
    if (is(kFloodChannel, kFloodId, false)) {
        const uint32_t number = uint32_t(r.data[0]) << 24 | uint32_t(r.data[1]) << 16 | r.data[2] << 8 | r.data[3];
        const bool inTurn = r.length == 8 && (!floodSeen || number > lastFlood);
        const std::string why = "flood report " + std::to_string(number) + " after " + std::to_string(lastFlood);
        lastFlood = number;
        floodSeen = true;
        ++c.book.flood;
        return inTurn ? "" : why;
    }
    if (is(kFixedChannel, kFixedId, false)) {
        ++c.book.fixed;
        return carries(kFixedData, sizeof kFixedData) ? "" : "data of the injected frame";
    }
    if (is(kExtendedChannel, kExtendedId, true)) {
        ++c.book.extended;
        return carries(kExtendedData, sizeof kExtendedData) ? "" : "data of the injected frame";
    }
    if (is(kSignalChannel, kSignalId, false)) {
        ++c.book.signal;
        // The signal in bits 0..15, the rest of the message zero; never a value that was not sent.
        const uint32_t value = r.data[0] | r.data[1] << 8;
        static const uint8_t zeros[6] = {};
        if (r.length == 8 && !std::memcmp(r.data + 2, zeros, 6) && value <= c.book.highestSignal) return "";
        return "signal value " + std::to_string(value) + " (highest sent " + std::to_string(c.book.highestSignal) + ")";
    }
    return "nobody asked for it";
}

} // namespace

void reportReader(Context& c) {
    std::vector<TarvelReport> batch(64);
    uint32_t lastFlood = 0;
    bool floodSeen = false;
    auto wait = [&] { return c.tarvel.WaitReports(batch.data(), static_cast<unsigned>(batch.size()), 200); };
    while (!c.stop) {
        const int n = timed(c, "WaitReports", {kPositive, 0}, wait, false);
        for (int i = 0; i < n; ++i) {
            const TarvelReport& r = batch[i];
            if (const std::string why = wrong(c, r, lastFlood, floodSeen); !why.empty()) {
                char id[96];
                std::snprintf(id, sizeof id, "can%u %X (key %X, length %u)", r.channel, static_cast<unsigned>(r.id),
                              static_cast<unsigned>(r.requestKey), r.length);
                c.tally.fail("report " + std::string(id) + ": " + why);
            }
        }
    }
}

void signalWorker(Context& c) {
    tagCanMessage m{};
    m.dlc = 8;
    m.id = kSignalId;
    m.selector1 = kSignalChannel;
    m.enabled = true;
    m.param1 = 0; // sent on every change
    const int message = setUp(c, "AddMessage", [&] { return c.tarvel.AddMessage(m); });
    if (message < 0) return;
    const int signal =
        setUp(c, "AddSignal", [&] { return c.tarvel.AddSignal(static_cast<unsigned short>(message), 0, 0, 15, 0); });
    const int key = setUp(c, "RequestReport", [&] {
        return c.tarvel.RequestReport(1u << kSignalChannel, kSignalId, false, false, 8, false, false, nullptr);
    });
    if (signal < 0 || key < 0) return;
    const int reading = c.tarvel.RequestSignal(key, 0, 15);

    for (unsigned short value = 1; !c.stop; value = static_cast<unsigned short>(value % 0xFFFF + 1)) {
        // Before the device can send it; once the values wrap, any value has been sent.
        c.book.highestSignal = std::max<uint32_t>(c.book.highestSignal, value);
        const int changed = timed(c, "SignalChangeValue", {0, -15}, [&] {
            return c.tarvel.SignalChangeValue(static_cast<unsigned short>(signal), value, true, true);
        });
        // The device sends the message on every change, the lost answers' too.
        unsigned int read = 0, age = 0;
        auto readBack = [&] {
            return c.tarvel.SignalReadValue(static_cast<unsigned short>(reading), read, &age, true);
        };
        bool seen = false;
        for (const Clock::time_point deadline = Clock::now() + std::chrono::seconds(2);
             !seen && !c.stop && Clock::now() < deadline; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            seen = timed(c, "SignalReadValue", {0, -1}, readBack, false) == 0 && read == value;
        if (!seen && changed == 0 && !c.stop)
            c.tally.fail("signal value " + std::to_string(value) + " was confirmed but not reported in 2 s");
        if (value % 16 == 0) timed(c, "ExecuteSignalChange", {0}, [&] { return c.tarvel.ExecuteSignalChange(false); });
    }
}

} // namespace soak
