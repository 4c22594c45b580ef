// The soak's worker threads, each a loop of calls on the one session until
// told to stop, and what they share. Every call is timed and its code
// checked against the codes the simulator's faults can cause:
//
//   a tracked exchange           its success value, or -15: the answer was
//                                dropped or spoilt, and the wait (with the
//                                receiver) ended without it
//   GatewayID                    -15 only: the device refuses it
//                                (--fail-command), and with the receiver
//                                running an error answer is not an answer
//   ExecuteSignalChange(false)   0: sent without waiting
//   WaitReports                  a count >= 0 (-3 would mean the receiver ended)
//   SignalReadValue              0, or -1 before the first report
//
// -14 (the receiver is not running), -21, -31, -666 or any other code is
// wrong. Beyond codes, results are checked: data read back from the EEPROM,
// the device clock, the identity and data of every report, and that a
// change the device confirmed shows in its reports.
#ifndef TARVEL_SOAK_WORKERS_H
#define TARVEL_SOAK_WORKERS_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "Tally.h"
#include "TarvelAPI.h"

namespace soak {

// The traffic on the simulated bus, as the simulator is told to make it and
// the workers expect it.
namespace traffic {
// The request that takes the simulator's flood (the lowest handler).
constexpr uint32_t kFloodId = 0x001;
constexpr unsigned char kFloodChannel = 0;
// Injected every 5 ms on channel 1, 16 bytes.
constexpr uint32_t kFixedId = 0x123;
constexpr unsigned char kFixedChannel = 1;
extern const uint8_t kFixedData[16];
// Injected every 10 ms on channel 2 (extended), requested and removed over and over.
constexpr uint32_t kRequestedId = 0x18DAF1F1;
constexpr unsigned char kRequestedChannel = 2;
extern const uint8_t kRequestedData[8];
// The transmit message whose signal (bits 0..15) the signal worker changes.
constexpr uint32_t kSignalId = 0x2A0;
constexpr unsigned char kSignalChannel = 0;
// The command the simulator refuses (--fail-command): GATEWAY_ID.
constexpr unsigned char kRefusedCommand = 0x19;
// The simulator's options: these injections and every fault at once.
std::vector<std::string> simulatorArguments();
} // namespace traffic

// Reports the reader took, by the request they answer.
struct ReportBook {
    std::atomic<uint64_t> flood{0}, fixed{0}, requested{0}, signal{0};
    std::atomic<uint64_t> requestedKnown{0}; // reports of kRequestedId that carry its request key
    std::atomic<uint32_t> highestSignal{0};  // the highest value the signal worker has sent
};

struct Context {
    Tarvel& tarvel;
    Tally& tally;
    const std::atomic<bool>& stop;
    ReportBook book;
};

// Times a command exchange and checks its code with `expected(code)`.
template <class Expected, class Call>
int exchangeWhere(Context& c, const char* operation, Expected expected, Call call) {
    const Clock::time_point start = Clock::now();
    const int code = call();
    c.tally.recordExchange(operation, code, Clock::now() - start, expected(code));
    return code;
}

// The same with the expected codes listed.
template <class Call> int exchange(Context& c, const char* operation, std::initializer_list<int> expected, Call call) {
    const std::vector<int> codes(expected);
    return exchangeWhere(
        c, operation, [&](int code) { return std::find(codes.begin(), codes.end(), code) != codes.end(); }, call);
}

// Ping, GetTime (the device clock never goes back), GatewayID (always refused).
void deviceWorker(Context& c);
// Blocks of its own in the EEPROM, written and read back; `index` picks them.
void eepromWorker(Context& c, int index);
// Takes every report from the queue and checks where it came from and what it carries.
void reportReader(Context& c);
// Requests the injected extended identifier, waits for its reports, removes the request.
void requestWorker(Context& c);
// Changes a signal of a transmit message and waits to see it in the message's reports.
void signalWorker(Context& c);

} // namespace soak

#endif
