// Win32 backend of the port device: a COM port opened for overlapped I/O,
// every transfer a single request with its own event and a deadline taken
// from WaitForSingleObject (the driver's own time-outs are all off).
#include "serial/win32/Win32Api.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include "serial/PortDevice.h"

namespace tarvel {

struct PortDevice {
    HANDLE handle = INVALID_HANDLE_VALUE;
    DCB dcb{}; // as the driver reported it; patched at setLineSettings
    bool dcbRead = false;

    // Cross-thread wake-up of a blocked read: the flag survives until a read
    // consumes it, so a cancel that arrives before the read waits still counts.
    std::mutex cancelMutex;
    bool cancelPending = false;
    OVERLAPPED* pendingRead = nullptr; // the read now waiting, if any
};

namespace {

const char kDevicePrefix[] = "\\\\.\\";

std::string devicePath(const std::string& name) {
    if (name.compare(0, sizeof(kDevicePrefix) - 1, kDevicePrefix) == 0) return name;
    if (name.find_first_of("/\\") != std::string::npos) return name;
    return kDevicePrefix + name;
}

IoResult failure(IoStage stage, unsigned long error) {
    IoResult r;
    r.ok = false;
    r.stage = stage;
    r.error = error;
    return r;
}

// Cancels the calling thread's request `ov` and waits until the driver has
// let go of it, so that the request record, its event and the caller's
// buffer may go out of use. Returns the bytes it moved before the cancel.
DWORD cancelAndDrain(HANDLE h, OVERLAPPED* ov) {
    CancelIo(h);
    DWORD moved = 0;
    if (!GetOverlappedResult(h, ov, &moved, TRUE)) moved = 0;
    return moved;
}

enum class Direction { Read, Write };

// One overlapped request of n bytes, bounded by timeoutMs.
IoResult transfer(PortDevice* device, Direction dir, unsigned char* buf, DWORD n, uint32_t timeoutMs) {
    HANDLE h = device->handle;
    OVERLAPPED ov;
    std::memset(&ov, 0, sizeof ov);
    ov.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (ov.hEvent == nullptr) return failure(IoStage::CreateEvent, GetLastError());

    IoResult result;
    DWORD moved = 0;
    BOOL done = dir == Direction::Read ? ReadFile(h, buf, n, nullptr, &ov) : WriteFile(h, buf, n, nullptr, &ov);
    if (done) {
        // Finished at once; the count comes from the request record.
        if (GetOverlappedResult(h, &ov, &moved, FALSE))
            result.count = moved;
        else
            result = failure(IoStage::Result, GetLastError());
    } else if (GetLastError() != ERROR_IO_PENDING) {
        result = failure(IoStage::Transfer, GetLastError());
    } else {
        bool cancelledEarly = false;
        if (dir == Direction::Read) {
            std::lock_guard<std::mutex> lock(device->cancelMutex);
            if (device->cancelPending)
                cancelledEarly = true;
            else
                device->pendingRead = &ov;
        }
        if (cancelledEarly) {
            // A cancel came in while the request was being issued.
            result.count = cancelAndDrain(h, &ov);
            std::lock_guard<std::mutex> lock(device->cancelMutex);
            if (result.count == 0) device->cancelPending = false;
        } else {
            DWORD waited = WaitForSingleObject(ov.hEvent, timeoutMs);
            DWORD waitError = GetLastError();
            bool cancelled = false;
            if (dir == Direction::Read) {
                std::lock_guard<std::mutex> lock(device->cancelMutex);
                device->pendingRead = nullptr;
                cancelled = device->cancelPending;
            }
            if (waited == WAIT_OBJECT_0) {
                if (GetOverlappedResult(h, &ov, &moved, FALSE)) {
                    result.count = moved;
                } else {
                    DWORD error = GetLastError();
                    if (cancelled && error == ERROR_OPERATION_ABORTED)
                        result.count = 0;
                    else
                        result = failure(IoStage::Result, error);
                }
            } else if (waited == WAIT_TIMEOUT && dir == Direction::Read) {
                // A byte that slipped in before the cancel is kept, not lost.
                result.count = cancelAndDrain(h, &ov);
            } else {
                // Write time-out or a broken wait: report the wait with the
                // thread's last error, then leave no request behind.
                result = failure(IoStage::Wait, waitError);
                cancelAndDrain(h, &ov);
            }
            if (cancelled && result.ok && result.count == 0) {
                // This read was the one the cancel was meant for.
                std::lock_guard<std::mutex> lock(device->cancelMutex);
                device->cancelPending = false;
            }
        }
    }

    if (!CloseHandle(ov.hEvent) && result.ok) {
        long long count = result.count;
        result = failure(IoStage::CloseEvent, GetLastError());
        result.count = count;
    }
    return result;
}

} // namespace

namespace port {

PortDevice* open(const std::string& name, unsigned long& error) {
    std::string path = devicePath(name);
    HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return nullptr;
    }
    PortDevice* device = new PortDevice;
    device->handle = h;
    return device;
}

bool getLineSettings(PortDevice* device, LineSettings& settings, unsigned long& error) {
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof(DCB);
    if (!GetCommState(device->handle, &dcb)) {
        error = GetLastError();
        return false;
    }
    device->dcb = dcb;
    device->dcbRead = true;
    settings.BaudRate = dcb.BaudRate;
    settings.ByteSize = dcb.ByteSize;
    settings.StopBits = dcb.StopBits;
    settings.Parity = dcb.Parity;
    return true;
}

bool setLineSettings(PortDevice* device, const LineSettings& settings, unsigned long& error) {
    if (!device->dcbRead) {
        // Every other field must keep the driver's value.
        LineSettings current;
        if (!getLineSettings(device, current, error)) return false;
    }
    DCB dcb = device->dcb;
    dcb.DCBlength = sizeof(DCB);
    dcb.BaudRate = settings.BaudRate;
    dcb.ByteSize = settings.ByteSize;
    dcb.StopBits = settings.StopBits;
    dcb.Parity = settings.Parity;
    if (!SetCommState(device->handle, &dcb)) {
        error = GetLastError();
        return false;
    }
    device->dcb = dcb;
    return true;
}

bool disableDriverTimeouts(PortDevice* device, unsigned long& error) {
    COMMTIMEOUTS timeouts;
    std::memset(&timeouts, 0, sizeof timeouts);
    if (!SetCommTimeouts(device->handle, &timeouts)) {
        error = GetLastError();
        return false;
    }
    return true;
}

bool purge(PortDevice* device, unsigned long& error) {
    HANDLE h = device ? device->handle : INVALID_HANDLE_VALUE;
    if (!PurgeComm(h, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR)) {
        error = GetLastError();
        return false;
    }
    return true;
}

bool close(PortDevice* device, unsigned long& error) {
    if (device == nullptr) return true;
    if (!CloseHandle(device->handle)) {
        error = GetLastError();
        return false;
    }
    delete device;
    return true;
}

IoResult readSome(PortDevice* device, unsigned char* buf, std::size_t n, uint32_t timeoutMs) {
    {
        std::lock_guard<std::mutex> lock(device->cancelMutex);
        if (device->cancelPending) {
            device->cancelPending = false;
            return IoResult();
        }
    }
    if (n == 0) return IoResult();
    DWORD limit = n > static_cast<std::size_t>(MAXDWORD) ? MAXDWORD : static_cast<DWORD>(n);

    // Bytes already in the driver's queue are fetched by one request; with
    // the driver time-outs off, asking for more would wait for all of them.
    DWORD errors = 0;
    COMSTAT status;
    std::memset(&status, 0, sizeof status);
    if (ClearCommError(device->handle, &errors, &status) && status.cbInQue > 0)
        return transfer(device, Direction::Read, buf, std::min(limit, status.cbInQue), timeoutMs);
    return transfer(device, Direction::Read, buf, 1, timeoutMs);
}

IoResult write(PortDevice* device, const unsigned char* buf, std::size_t n, uint32_t timeoutMs) {
    // WriteFile takes a DWORD count; the shared code passes an int.
    DWORD count = n > static_cast<std::size_t>(MAXDWORD) ? MAXDWORD : static_cast<DWORD>(n);
    return transfer(device, Direction::Write, const_cast<unsigned char*>(buf), count, timeoutMs);
}

void cancelRead(PortDevice* device) {
    if (device == nullptr) return;
    std::lock_guard<std::mutex> lock(device->cancelMutex);
    device->cancelPending = true;
    if (device->pendingRead != nullptr) CancelIoEx(device->handle, device->pendingRead);
}

void clearCancel(PortDevice* device) {
    if (device == nullptr) return;
    std::lock_guard<std::mutex> lock(device->cancelMutex);
    device->cancelPending = false;
}

std::string errorText(unsigned long code) {
    LPWSTR wide = nullptr;
    DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&wide), 0, nullptr);
    std::string text;
    if (length > 0 && wide != nullptr) {
        std::vector<char> narrow(static_cast<std::size_t>(length) + 1, '\0');
        WideCharToMultiByte(GetConsoleCP(), 0, wide, static_cast<int>(length), narrow.data(), static_cast<int>(length),
                            nullptr, nullptr);
        text = narrow.data();
    }
    if (wide != nullptr) LocalFree(wide);
    return text;
}

unsigned long lastError() {
    return GetLastError();
}

} // namespace port
} // namespace tarvel
