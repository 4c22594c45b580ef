// The platform layer's device functions over memory (see MemoryLine.h). One
// line for the whole process: every device opened reads the same input.
// Nothing here waits: a read without input is a time-out at once, a write
// always succeeds. A purge keeps the input, which stands for what arrives
// after it.
#include "MemoryLine.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "serial/PortDevice.h"

namespace {

struct Line {
    std::mutex mutex; // the port's sender thread writes while the target reads
    ByteVector input;
    std::size_t readPos = 0;
    ByteVector chunkSizes;
    std::size_t nextChunk = 0;
    std::size_t emptyReads = 0;
    ByteVector written;
};

Line& line() {
    static Line instance;
    return instance;
}

tarvel::IoResult failure(int error) {
    tarvel::IoResult r;
    r.ok = false;
    r.stage = tarvel::IoStage::Transfer;
    r.error = static_cast<unsigned long>(error);
    return r;
}

tarvel::IoResult done(std::size_t count) {
    tarvel::IoResult r;
    r.count = static_cast<long long>(count);
    return r;
}

} // namespace

namespace memline {

void setInput(ByteVector input, ByteVector chunkSizes) {
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    l.input = std::move(input);
    l.readPos = 0;
    l.chunkSizes = std::move(chunkSizes);
    l.nextChunk = 0;
    l.emptyReads = 0;
    l.written.clear();
}

std::size_t unread() {
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    return l.input.size() - l.readPos;
}

std::size_t emptyReads() {
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    return l.emptyReads;
}

ByteVector takeWritten() {
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    ByteVector out;
    out.swap(l.written);
    return out;
}

} // namespace memline

namespace tarvel {

struct PortDevice {
    std::atomic<bool> cancelled{false};
};

namespace port {

PortDevice* open(const std::string& /*name*/, unsigned long& /*error*/) {
    return new PortDevice;
}

bool getLineSettings(PortDevice* /*device*/, LineSettings& /*settings*/, unsigned long& /*error*/) {
    return true;
}

bool setLineSettings(PortDevice* /*device*/, const LineSettings& /*settings*/, unsigned long& /*error*/) {
    return true;
}

bool disableDriverTimeouts(PortDevice* device, unsigned long& error) {
    if (device != nullptr) return true;
    error = EBADF;
    return false;
}

bool purge(PortDevice* device, unsigned long& error) {
    if (device != nullptr) return true;
    error = EBADF;
    return false;
}

bool close(PortDevice* device, unsigned long& /*error*/) {
    delete device;
    return true;
}

IoResult readSome(PortDevice* device, unsigned char* buf, std::size_t n, uint32_t /*timeoutMs*/) {
    if (device == nullptr) return failure(EBADF);
    if (device->cancelled.exchange(false)) return done(0);
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    std::size_t count = std::min(n, l.input.size() - l.readPos);
    if (l.readPos == l.input.size()) ++l.emptyReads;
    if (count > 0 && !l.chunkSizes.empty()) {
        count = std::min<std::size_t>(count, 1u + l.chunkSizes[l.nextChunk]);
        l.nextChunk = (l.nextChunk + 1) % l.chunkSizes.size();
    }
    if (count > 0) std::memcpy(buf, l.input.data() + l.readPos, count);
    l.readPos += count;
    return done(count);
}

IoResult write(PortDevice* device, const unsigned char* buf, std::size_t n, uint32_t /*timeoutMs*/) {
    if (device == nullptr) return failure(EBADF);
    Line& l = line();
    std::lock_guard<std::mutex> lock(l.mutex);
    l.written.insert(l.written.end(), buf, buf + n);
    return done(n);
}

void cancelRead(PortDevice* device) {
    if (device != nullptr) device->cancelled = true;
}

void clearCancel(PortDevice* device) {
    if (device != nullptr) device->cancelled = false;
}

std::string errorText(unsigned long code) {
    return std::strerror(static_cast<int>(code));
}

unsigned long lastError() {
    return static_cast<unsigned long>(errno);
}

} // namespace port
} // namespace tarvel
