// Opening a session: a real device on --port, or the built-in simulated
// device in this process, so that every command works without hardware.
#include <fstream>
#include <iostream>
#include <mutex>

#include "Tool.h"
#include "tarvelsim/Simulator.h"

namespace tool {

namespace {
std::mutex g_reportMutex;
std::string g_lastReport;

// The library's error channel while -v is off: kept to explain a failure.
void keepReport(const char* text) {
    std::lock_guard<std::mutex> lock(g_reportMutex);
    g_lastReport = text;
    while (!g_lastReport.empty() && (g_lastReport.back() == '\n' || g_lastReport.back() == ' '))
        g_lastReport.pop_back();
}
} // namespace

std::string lastLibraryReport() {
    std::lock_guard<std::mutex> lock(g_reportMutex);
    return g_lastReport;
}

OperationError::OperationError(std::string op, int c, ResultKind k)
    : std::runtime_error(op + ": " + describeResult(c, k)), operation(std::move(op)), code(c), kind(k) {}

int check(int code, const std::string& operation, ResultKind kind) {
    if (code < 0) throw OperationError(operation, code, kind);
    return code;
}

namespace {

tarvelsim::Options simOptions(const std::string& fault) {
    tarvelsim::Options options;
    if (fault.empty()) return options;
    if (fault == "silent")
        options.faults.silent = true;
    else if (fault == "drop")
        options.faults.dropEvery = 1;
    else if (fault == "corrupt")
        options.faults.corruptEvery = 1;
    else
        throw UsageError("--sim-fault: expected silent, drop or corrupt, got '" + fault + "'");
    return options;
}

} // namespace

Connection::Connection(const GlobalOptions& options) {
    m_portPath = options.port.empty() ? std::string() : resolvePort(options.port);
    if (!options.trace.empty()) {
        // DebugComm only reports an unopenable file on the error channel;
        // find out here so that the user gets a clear message and an exit code.
        std::ofstream probe(options.trace, std::ios::out | std::ios::trunc);
        if (!probe) throw UsageError("--trace: cannot write the file '" + options.trace + "'");
    }
    if (m_portPath.empty()) {
        m_sim = std::make_unique<tarvelsim::Simulator>(simOptions(options.simFault));
        if (!m_sim->start())
            throw std::runtime_error("cannot start the built-in simulated device: " + m_sim->lastError());
        m_portPath = m_sim->portPath();
        std::cerr << "tarvel: no --port given, using the built-in simulated device (" << m_portPath << ")\n";
    } else if (!options.simFault.empty()) {
        throw UsageError("--sim-fault applies only to the built-in simulated device (no --port)");
    }

    m_tarvel = std::make_unique<Tarvel>();
    Tarvel& t = *m_tarvel;
    // Standard output carries only command results; the library's own reports
    // go to stderr when asked for with -v.
    t.ClearPrintStream();
    if (options.verbose >= 1) {
        t.SetPrintStream(std::cerr, ERR);
        t.SetPrintStream(std::cerr, INF);
    } else {
        t.SetPrintStream(keepReport, ERR);
    }
    if (options.verbose >= 2) t.SetPrintStream(std::cerr, COM);
    if (!options.trace.empty()) {
        t.DebugComm(options.trace.c_str(), static_cast<int>(std::ios::out | std::ios::trunc));
        m_traceOpen = true;
    }
    check(t.Connect(m_portPath, options.readTimeout, options.writeTimeout), "Connect to " + m_portPath,
          ResultKind::Connect);
    // With the receiver running, an answer is awaited as long as a direct read
    // would wait for it, not only 50 ms: a slow device or a loaded machine
    // must not make commands fail.
    t.SetAnswerWait(options.readTimeout);
}

Connection::~Connection() {
    if (m_tarvel) {
        m_tarvel->StopReceiver();
        m_tarvel->Disconnect();
        closeTrace();
        m_tarvel.reset();
    }
    if (m_sim) m_sim->stop();
}

void builtInNote(const char* what) {
    std::cerr << "tarvel: note: on the built-in device " << what
              << "; run 'tarvel sim --link PATH' and use --port PATH for a bus that lasts\n";
}

void Connection::startReceiver() {
    // Line noise now and then must not end a long monitor: only faults in a row count.
    m_tarvel->SetReceiverErrorCounting(true);
    check(m_tarvel->StartReceiver(), "StartReceiver", ResultKind::Receiver);
}

void Connection::closeTrace() {
    if (m_traceOpen) {
        m_tarvel->DebugComm(nullptr, 0);
        m_traceOpen = false;
    }
}

} // namespace tool
