// Shared pieces of the tarvel command-line tool: global options, the
// connection to a device (real or the built-in simulated one), failure
// reporting and argument parsing helpers.
#ifndef TARVEL_TOOL_H
#define TARVEL_TOOL_H

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Interrupt.h"
#include "Numbers.h"
#include "ResultText.h"
#include "TarvelAPI.h"

namespace CLI {
class App;
}
namespace tarvelsim {
class Simulator;
}

namespace tool {

// Exit codes.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1; // a device operation or the connection failed
constexpr int kExitUsage = 2;  // bad arguments

struct GlobalOptions {
    std::string port;             // empty: the built-in simulated device
    unsigned readTimeout = 1000;  // ms
    unsigned writeTimeout = 1000; // ms
    std::string trace;            // communication trace file
    int verbose = 0;              // 1: library reports, 2: also the packet trace, on stderr
    std::string simFault;         // hidden: fault of the built-in device (silent, drop, corrupt)
};

// A device operation failed: the operation, its result code and how to read it.
struct OperationError : std::runtime_error {
    OperationError(std::string operation, int code, ResultKind kind);
    std::string operation;
    int code;
    ResultKind kind;
};

// Arguments that parse but make no sense; reported with the usage line.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws OperationError unless code >= 0.
int check(int code, const std::string& operation, ResultKind kind = ResultKind::Command);

// The library's last report on its error channel (without -v), or "".
std::string lastLibraryReport();

// The open session. Without a port it starts the built-in simulated device
// in this process and says so on stderr.
class Connection {
public:
    explicit Connection(const GlobalOptions& options);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    Tarvel& tarvel() { return *m_tarvel; }
    bool simulated() const { return m_sim != nullptr; }
    tarvelsim::Simulator* simulator() { return m_sim.get(); }
    const std::string& portPath() const { return m_portPath; }
    void startReceiver();
    // Detaches and closes the trace file so that everything is on disk.
    void closeTrace();

private:
    std::unique_ptr<tarvelsim::Simulator> m_sim;
    std::unique_ptr<Tarvel> m_tarvel;
    std::string m_portPath;
    bool m_traceOpen = false;
};

// The built-in device lives for one command: says so on stderr, with how to
// get a bus that lasts; `what` tells what this means for the command.
void builtInNote(const char* what);

// Each command family adds its subcommands; a chosen command stores its work
// in `action`, which main runs after the whole line has parsed.
struct CommandContext {
    GlobalOptions options;
    std::function<int()> action;
    CLI::App* chosen = nullptr; // for the usage line of a late usage error
};

void addDeviceCommands(CLI::App& app, CommandContext& ctx);
void addEepromCommands(CLI::App& app, CommandContext& ctx);
void addTransmitCommands(CLI::App& app, CommandContext& ctx);
void addReceiveCommands(CLI::App& app, CommandContext& ctx);
void addDemoCommand(CLI::App& app, CommandContext& ctx);
void addSimCommand(CLI::App& app, CommandContext& ctx);
void addPortsCommand(CLI::App& app, CommandContext& ctx);

// What --port NAME opens (Ports.cpp): a path as given; a bare name in the
// device directory ($TARVEL_DEV_ROOT, else /dev). A bare name that also names
// a file here is refused (UsageError) rather than silently taken for the other.
std::string resolvePort(const std::string& name);

// --- parsing helpers (Parse.cpp) -------------------------------------------------
// Hex bytes: "0102ff", "01 02 ff", "01:02:ff" and "01.02" all give 01 02 (ff).
std::vector<unsigned char> parseHexBytes(const std::string& text, const std::string& what);
// CAN channel: 0..3 or can0..can3.
unsigned parseChannel(const std::string& text);

struct CanFrameText {
    uint32_t id = 0;
    bool extended = false; // more than 3 hex digits
    std::vector<unsigned char> data;
    unsigned char dlc = 0;
};
// "123#1122334455", "12345678#", "123#11.22.33": identifier in hex (up to 3
// digits: standard, at most 7FF; more: extended, at most 1FFFFFFF), '#', hex
// data of a CAN FD length.
CanFrameText parseFrame(const std::string& text);
// "0:123", "can1:1ABCDEF0".
struct ChannelId {
    unsigned channel = 0;
    uint32_t id = 0;
    bool extended = false;
};
ChannelId parseChannelId(const std::string& text);
// "START:STOP" or a single bit "N"; bits of a frame of up to 64 bytes, at
// most maxLength of them.
constexpr unsigned kLastBit = 511;
struct BitRange {
    unsigned start = 0;
    unsigned stop = 0;
};
BitRange parseBitRange(const std::string& text, unsigned maxLength);

// Data length code for a number of bytes; -1 when no CAN FD frame is that long.
int dlcForLength(std::size_t length);

// --- text forms (Format.cpp) -------------------------------------------------------
// Is the file descriptor a terminal (progress bars, colour)?
bool isTerminal(int fd);
std::string hexBytes(const unsigned char* data, std::size_t length, const char* separator = " ");
std::string idText(uint32_t id, bool extended);
// "(seconds.micros)" of a time in microseconds since the Unix epoch.
std::string stampText(uint64_t timeUs);
// A candump log line of a report: "(seconds.micros) canN ID#DATA", with the
// report's own identifier and format.
std::string candumpLine(const TarvelReport& report);

} // namespace tool

#endif
