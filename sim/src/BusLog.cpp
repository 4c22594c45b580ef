#include "BusLog.h"

#include <cerrno>
#include <cstring>

namespace tarvelsim {

std::string candumpLine(const BusFrame& frame, std::chrono::system_clock::time_point when) {
    const long long us = std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
    const uint32_t id = frame.id & 0x1FFFFFFFu;
    const bool extended = frame.extended || id > 0x7FF;
    char head[64];
    std::snprintf(head, sizeof head, "(%lld.%06lld) can%u %0*X%s", us / 1000000, us % 1000000, unsigned(frame.channel),
                  extended ? 8 : 3, unsigned(id), frame.data.size() > 8 ? "##0" : "#");
    std::string line = head;
    char byte[3];
    for (uint8_t b : frame.data) {
        std::snprintf(byte, sizeof byte, "%02X", b);
        line += byte;
    }
    return line;
}

bool BusLog::open(const std::string& path, std::string& error) {
    close();
    m_file = path == "-" ? stdout : std::fopen(path.c_str(), "we");
    if (!m_file) error = "cannot write the bus log " + path + ": " + std::strerror(errno);
    return m_file != nullptr;
}

void BusLog::close() {
    if (m_file && m_file != stdout) std::fclose(m_file);
    m_file = nullptr;
}

void BusLog::write(const BusFrame& frame, std::chrono::system_clock::time_point when) {
    if (!m_file) return;
    std::fprintf(m_file, "%s\n", candumpLine(frame, when).c_str());
    std::fflush(m_file); // readers follow the file while the device runs
}

} // namespace tarvelsim
