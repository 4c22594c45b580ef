// The workers of the bus side: the report reader, requests made and removed,
// a signal changed and watched in the reports.
#include <cstring>
#include <thread>

#include "Workers.h"

namespace soak {

namespace {

using namespace traffic;

int keyOf(unsigned char channel, uint32_t id) {
    return static_cast<int>((1u << channel) << 16 | (id & 0xFFFFu));
}

std::string identity(const TarvelReport& r) {
    char text[96];
    std::snprintf(text, sizeof text, "can%u %X (key %X, length %u)", r.channel, static_cast<unsigned>(r.id),
                  static_cast<unsigned>(r.requestKey), r.length);
    return text;
}

// Checks one report against the traffic the simulator makes; false with
// `why` set when it is wrong.
bool sound(Context& c, const TarvelReport& r, uint32_t& lastFlood, bool& floodSeen, std::string& why) {
    const uint32_t low = r.id & 0xFFFFu;
    auto is = [&](unsigned char channel, uint32_t id, bool extended) {
        if (r.channel != channel || low != (id & 0xFFFFu)) return false;
        // A report of a request the session knows carries its whole identity.
        return r.requestKey == 0 || (r.requestKey == keyOf(channel, id) && r.id == id && r.extended == extended);
    };
    if (is(kFloodChannel, kFloodId, false)) {
        const uint32_t number = uint32_t(r.data[0]) << 24 | uint32_t(r.data[1]) << 16 | r.data[2] << 8 | r.data[3];
        if (r.length != 8 || (floodSeen && number <= lastFlood)) {
            why = "flood report " + std::to_string(number) + " after " + std::to_string(lastFlood);
            return false;
        }
        lastFlood = number;
        floodSeen = true;
        ++c.book.flood;
        return true;
    }
    if (is(kFixedChannel, kFixedId, false)) {
        ++c.book.fixed;
        why = "data of the injected frame";
        return r.length == sizeof kFixedData && std::memcmp(r.data, kFixedData, r.length) == 0;
    }
    if (is(kRequestedChannel, kRequestedId, true)) {
        ++c.book.requested;
        if (r.requestKey != 0) ++c.book.requestedKnown;
        why = "data of the injected frame";
        return r.length == sizeof kRequestedData && std::memcmp(r.data, kRequestedData, r.length) == 0;
    }
    if (is(kSignalChannel, kSignalId, false)) {
        ++c.book.signal;
        // The signal in bits 0..15, the rest of the message zero; never a
        // value that was not sent.
        const uint32_t value = r.data[0] | r.data[1] << 8;
        static const uint8_t zeros[6] = {};
        why = "signal value " + std::to_string(value) + " (highest sent " + std::to_string(c.book.highestSignal) + ")";
        return r.length == 8 && std::memcmp(r.data + 2, zeros, 6) == 0 && value <= c.book.highestSignal;
    }
    why = "nobody asked for it";
    return false;
}

// Makes something on the device, again while the answer is lost (a lost
// answer may leave a copy behind, which does no harm here): its handler or key.
template <class Call> int setUp(Context& c, const char* operation, Call call) {
    for (int attempt = 0; attempt < 50 && !c.stop; ++attempt) {
        const int code = exchangeWhere(
            c, operation, [](int code) { return code > 0 || code == -15; }, call);
        if (code > 0) return code;
    }
    if (!c.stop) c.tally.fail(std::string(operation) + " never succeeded");
    return -1;
}

// Waits up to `limit` for `condition`; false when the soak stops first or the time runs out.
template <class Condition> bool waitFor(Context& c, std::chrono::milliseconds limit, Condition condition) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (!condition()) {
        if (c.stop || Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace

void reportReader(Context& c) {
    std::vector<TarvelReport> batch(64);
    uint32_t lastFlood = 0;
    bool floodSeen = false;
    while (!c.stop) {
        const Clock::time_point start = Clock::now();
        const int n = c.tarvel.WaitReports(batch.data(), static_cast<unsigned>(batch.size()), 200);
        // 1: some reports taken, 0: none in time.
        c.tally.record("WaitReports", n > 0 ? 1 : n, Clock::now() - start, n >= 0);
        for (int i = 0; i < n; ++i) {
            std::string why;
            if (!sound(c, batch[i], lastFlood, floodSeen, why))
                c.tally.fail("report " + identity(batch[i]) + ": " + why);
        }
    }
}

void requestWorker(Context& c) {
    const unsigned short handler = kRequestedId & 0xFFFFu;
    const int key = keyOf(kRequestedChannel, kRequestedId);
    while (!c.stop) {
        const uint64_t before = c.book.requestedKnown;
        const int got = exchange(c, "RequestReport", {key, -15}, [&] {
            return c.tarvel.RequestReport(1u << kRequestedChannel, kRequestedId, true, false, 8, false, false, nullptr);
        });
        // The frame is on the bus every 10 ms: its reports follow at once.
        if (got == key && !waitFor(c, std::chrono::seconds(3), [&] { return c.book.requestedKnown > before; }) &&
            !c.stop)
            c.tally.fail("RequestReport gave its key but no report of it came in 3 s");
        exchange(c, "RemoveRequest", {0, -15}, [&] { return c.tarvel.RemoveRequest(handler); });
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
        const int changed = exchange(c, "SignalChangeValue", {0, -15}, [&] {
            return c.tarvel.SignalChangeValue(static_cast<unsigned short>(signal), value, true, true);
        });
        // The device sends the message on every change, the lost answers' too.
        const bool seen = waitFor(c, std::chrono::seconds(2), [&] {
            unsigned int read = 0, age = 0;
            const Clock::time_point start = Clock::now();
            const int r = c.tarvel.SignalReadValue(static_cast<unsigned short>(reading), read, &age, true);
            c.tally.record("SignalReadValue", r, Clock::now() - start, r == 0 || r == -1);
            return r == 0 && read == value;
        });
        if (!seen && changed == 0 && !c.stop)
            c.tally.fail("signal value " + std::to_string(value) + " was confirmed but not reported in 2 s");
        if (value % 16 == 0)
            exchange(c, "ExecuteSignalChange", {0}, [&] { return c.tarvel.ExecuteSignalChange(false); });
    }
}

} // namespace soak
