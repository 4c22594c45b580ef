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

// The traffic on the simulated bus, as the simulator is told to make it and the workers expect it.
namespace traffic {
// The flood lands on the lowest request: handler 0x001, channel 0.
constexpr uint32_t kFloodId = 0x001;
constexpr unsigned char kFloodChannel = 0;
// Injected every 5 ms on channel 1, 16 bytes.
constexpr uint32_t kFixedId = 0x123;
constexpr unsigned char kFixedChannel = 1;
constexpr uint8_t kFixedData[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                    0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
// Injected every 10 ms on channel 2, extended.
constexpr uint32_t kExtendedId = 0x18DAF1F1;
constexpr unsigned char kExtendedChannel = 2;
constexpr uint8_t kExtendedData[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
// The transmit message whose signal (bits 0..15) the signal worker changes.
constexpr uint32_t kSignalId = 0x2A0;
constexpr unsigned char kSignalChannel = 0;
// The simulator's options: every answer fault at once, GATEWAY_ID (25) refused, a flood and the injections above.
inline const std::vector<std::string> kSimulatorArguments = {"--drop-every",
                                                             "53",
                                                             "--corrupt-every",
                                                             "37",
                                                             "--delay-ms",
                                                             "2",
                                                             "--garbage",
                                                             "--cut-frames",
                                                             "--hw-error",
                                                             "--fail-command",
                                                             "25",
                                                             "--fail-response",
                                                             "129",
                                                             "--flood-rate",
                                                             "300",
                                                             "--inject",
                                                             "1:123#00112233445566778899AABBCCDDEEFF@5",
                                                             "--inject",
                                                             "2:18DAF1F1#0102030405060708@10"};
} // namespace traffic

// Reports the reader took, by the request they answer.
struct ReportBook {
    std::atomic<uint64_t> flood{0}, fixed{0}, extended{0}, signal{0};
    std::atomic<uint32_t> highestSignal{0}; // the highest value the signal worker has sent
};

struct Context {
    Tarvel& tarvel;
    Tally& tally;
    const std::atomic<bool>& stop;
    ReportBook book;
};

// In a list of expected codes: any positive code (a count, a handler, a key).
constexpr int kPositive = 1 << 30;

// Times a call and checks its code against `expected`; `exchange`: a command
// exchange with the device, counted and the watchdog's heartbeat.
template <class Call>
int timed(Context& c, const char* operation, std::initializer_list<int> expected, Call call, bool exchange = true) {
    const Clock::time_point start = Clock::now();
    const int code = call();
    const bool ok =
        std::any_of(expected.begin(), expected.end(), [&](int e) { return e == code || (e == kPositive && code > 0); });
    c.tally.record(operation, code, Clock::now() - start, ok, exchange);
    return code;
}

// Makes something on the device, again while the answer is lost (a lost
// answer may leave a copy behind, which does no harm here): its handler or
// key, or -1 when the soak stops first.
template <class Call> int setUp(Context& c, const char* operation, Call call) {
    for (int attempt = 0; attempt < 50 && !c.stop; ++attempt)
        if (const int code = timed(c, operation, {kPositive, -15}, call); code > 0) return code;
    if (!c.stop) c.tally.fail(std::string(operation) + " never succeeded");
    return -1;
}

// Ping, GetTime (the device clock never goes back), GatewayID (always refused).
void deviceWorker(Context& c);
// Blocks of its own in the EEPROM, written and read back; `index` picks them.
void eepromWorker(Context& c, int index);
// Takes every report from the queue and checks where it came from and what it carries.
void reportReader(Context& c);
// Changes a signal of a transmit message and waits to see it in the message's reports.
void signalWorker(Context& c);

} // namespace soak

#endif
