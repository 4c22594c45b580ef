#include "CaptureStderr.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

// A file of its own in the temporary directory (tmpfile() of the Windows C
// runtime wants the root of the drive, which a user may not write), read back
// through a stream of its own: the writers share the position of the capture
// file, which must stay at the end.
CaptureStderr::CaptureStderr() {
    static std::atomic<unsigned> count{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    m_path = (std::filesystem::temp_directory_path() /
              ("tarvel-stderr-" + std::to_string(now) + "-" + std::to_string(count++) + ".txt"))
                 .string();
    std::cerr.flush();
    std::fflush(stderr);
    m_file = std::fopen(m_path.c_str(), "w+b");
    m_saved = ::dup(2);
    if (m_file == nullptr || m_saved < 0 || ::dup2(::fileno(m_file), 2) < 0)
        throw std::runtime_error("CaptureStderr: cannot redirect fd 2");
}

CaptureStderr::~CaptureStderr() {
    stop();
}

std::string CaptureStderr::text() {
    if (m_file == nullptr) return std::string();
    std::cerr.flush();
    std::fflush(stderr);
    std::ifstream in(m_path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string CaptureStderr::stop() {
    if (m_file == nullptr) return std::string();
    std::string out = text();
    ::dup2(m_saved, 2);
    ::close(m_saved);
    std::fclose(m_file);
    std::remove(m_path.c_str());
    m_file = nullptr;
    m_saved = -1;
    return out;
}
