#include "CaptureStderr.h"

#include <unistd.h>

#include <iostream>
#include <stdexcept>

CaptureStderr::CaptureStderr() {
    std::cerr.flush();
    std::fflush(stderr);
    m_file = std::tmpfile();
    m_saved = ::dup(2);
    if (m_file == nullptr || m_saved < 0 || ::dup2(::fileno(m_file), 2) < 0)
        throw std::runtime_error("CaptureStderr: cannot redirect fd 2");
}

CaptureStderr::~CaptureStderr() { stop(); }

std::string CaptureStderr::text() {
    if (m_file == nullptr) return std::string();
    std::cerr.flush();
    std::fflush(stderr);
    std::string out;
    char chunk[4096];
    const int fd = ::fileno(m_file);
    off_t at = 0;
    ssize_t r;
    while ((r = ::pread(fd, chunk, sizeof chunk, at)) > 0) {
        out.append(chunk, static_cast<std::size_t>(r));
        at += r;
    }
    return out;
}

std::string CaptureStderr::stop() {
    if (m_file == nullptr) return std::string();
    std::string out = text();
    ::dup2(m_saved, 2);
    ::close(m_saved);
    std::fclose(m_file);
    m_file = nullptr;
    m_saved = -1;
    return out;
}
