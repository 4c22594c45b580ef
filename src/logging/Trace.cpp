// The communication trace: one hex line per packet, and the trace file.
#include "Tarvel.h"

#include <cstdint>
#include <string>

#include "protocol/Packet.h"

namespace {

const char kSeparator[] = "\n--------------------------------------------------------------------------------";

} // namespace

void Tarvel::DataPrint(const ByteVector& data, int direction) {
    if (!m_printer.HasSinks(TARVEL_COM)) return; // the usual case: no trace
    // The whole line is built first and written with one call per sink, so
    // lines of the sending and the receiving thread don't mix.
    std::string line = std::to_string(static_cast<uint32_t>(GetTickMs()));
    line.reserve(line.size() + 12 + 5 * data.size() + sizeof kSeparator);
    if (direction != 0) {
        line += direction > 0 ? ":>> " : ":<< ";
        if (direction < -1) {
            line += "ERROR! ";
        }
    }
    tarvel::appendHexBytes(line, data.data(), data.size());
    if (direction <= 0) {
        line += kSeparator;
    }
    line += '\n';
    m_printer.Write(TARVEL_COM, line.c_str());
}

void Tarvel::DebugComm(const char* filename, int mode) {
    if (m_commFile.is_open()) {
        m_printer.ClearPrintStream(m_commFile);
        m_commFile.close(); // sets failbit itself when closing fails
    }
    if (filename == nullptr) {
        return;
    }
    m_commFile.open(filename, static_cast<std::ios_base::openmode>(mode) | std::ios_base::out);
    if (m_commFile.fail()) {
        Printf_err("Tarvel::DebugComm: Unable to open file: %s", filename);
        return;
    }
    m_commFile.clear();
    // Write every line through at once, so a trace survives a crash of the application.
    m_commFile.setf(std::ios_base::unitbuf);

    if (m_printer.SetPrintStream(m_commFile, TARVEL_ERR) != 0) {
        m_printer.Write(TARVEL_ERR,
                        "Tarvel::DebugComm: Unable to add filestream to ERR channel. (max streams target reached)");
    }
    if (m_printer.SetPrintStream(m_commFile, TARVEL_INF) != 0) {
        m_printer.Write(TARVEL_ERR,
                        "Tarvel::DebugComm: Unable to add filestream to INF channel. (max streams target reached)");
    }
    if (m_printer.SetPrintStream(m_commFile, TARVEL_COM) != 0) {
        m_printer.Write(TARVEL_ERR,
                        "Tarvel::DebugComm: Unable to add filestream to COM channel. (max streams target reached)");
    }
}
