#include "CaptureStderr.h"

#include <iostream>
#include <stdexcept>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace {

#ifdef _WIN32
// In the user's temporary directory: tmpfile() of the Windows C runtime
// creates its file in the root of the drive, which a user may not write.
// The file goes away with its last handle.
std::FILE* openCaptureFile() {
    wchar_t dir[MAX_PATH + 1];
    wchar_t name[MAX_PATH + 1];
    if (GetTempPathW(MAX_PATH + 1, dir) == 0 || GetTempFileNameW(dir, L"err", 0, name) == 0) return nullptr;
    HANDLE handle =
        CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        DeleteFileW(name);
        return nullptr;
    }
    const int fd = ::_open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDWR | _O_BINARY);
    if (fd < 0) {
        CloseHandle(handle);
        return nullptr;
    }
    std::FILE* file = ::_fdopen(fd, "w+b");
    if (file == nullptr) ::_close(fd);
    return file;
}

// Through a handle of its own: the writers share the file position of the
// capture handle, which must stay at the end.
std::string readCaptureFile(std::FILE* file) {
    const HANDLE capture = reinterpret_cast<HANDLE>(::_get_osfhandle(::fileno(file)));
    const HANDLE reader = ReOpenFile(capture, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
    if (reader == INVALID_HANDLE_VALUE) throw std::runtime_error("CaptureStderr: cannot read the capture file");
    std::string out;
    char chunk[4096];
    DWORD got = 0;
    while (ReadFile(reader, chunk, sizeof chunk, &got, nullptr) && got > 0)
        out.append(chunk, got);
    CloseHandle(reader);
    return out;
}
#else
std::FILE* openCaptureFile() {
    return std::tmpfile();
}

// pread: the writers share the file offset, which must stay at the end.
std::string readCaptureFile(std::FILE* file) {
    std::string out;
    char chunk[4096];
    const int fd = ::fileno(file);
    off_t at = 0;
    ssize_t r;
    while ((r = ::pread(fd, chunk, sizeof chunk, at)) > 0) {
        out.append(chunk, static_cast<std::size_t>(r));
        at += r;
    }
    return out;
}
#endif

} // namespace

CaptureStderr::CaptureStderr() {
    std::cerr.flush();
    std::fflush(stderr);
    m_file = openCaptureFile();
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
    return readCaptureFile(m_file);
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
