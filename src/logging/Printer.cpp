// The Printer: channels of bounded sink lists, printf-style formatting.
#include "TarvelPrinter.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace {

// Dispatch runs outside the lock, on a copy of the channel. A channel holds a
// handful of sinks, so the copy lives on the stack unless max_stream is large.
class SinkSnapshot {
public:
    void assign(const std::vector<PrintSink>& src) {
        m_count = src.size();
        if (m_count <= kInline) {
            std::copy(src.begin(), src.end(), m_inline);
            m_data = m_inline;
        } else {
            m_heap = src;
            m_data = m_heap.data();
        }
    }
    const PrintSink* begin() const { return m_data; }
    const PrintSink* end() const { return m_data + m_count; }
    bool empty() const { return m_count == 0; }

private:
    static const std::size_t kInline = 8;
    PrintSink m_inline[kInline];
    std::vector<PrintSink> m_heap;
    const PrintSink* m_data = m_inline;
    std::size_t m_count = 0;
};

// Streams may not be written by two threads at once, and the receiver and
// the application thread print at the same time (a trace file gets both).
// The lock also makes removal final: once ClearPrintStream has returned, no
// dispatch still working on an older snapshot writes to the removed stream or
// file, so the caller may close it. Copied Printers share their targets, so
// the lock is one for all of them; recursive, in case a stream prints.
std::recursive_mutex& outputLock() {
    static std::recursive_mutex lock;
    return lock;
}

bool attached(const std::vector<PrintSink>& channel, const PrintSink& sink) {
    return std::find(channel.begin(), channel.end(), sink) != channel.end();
}

} // namespace

Printer::Printer(unsigned max_level_, unsigned max_stream_) : max_level(max_level_), max_stream(max_stream_) {
    if (max_level == 0) {
        throw std::invalid_argument("Invalid argument: max_level has to be > 0.");
    }
    if (max_stream == 0) {
        throw std::invalid_argument("Invalid argument: max_stream has to be > 0.");
    }
    channels.resize(max_level);
}

Printer::Printer(const Printer& other) {
    std::lock_guard<std::mutex> guard(other.m_lock);
    max_level = other.max_level;
    max_stream = other.max_stream;
    channels = other.channels;
}

Printer& Printer::operator=(const Printer& other) {
    if (this == &other) {
        return *this;
    }
    std::lock_guard<std::recursive_mutex> output(outputLock()); // the old sinks go away
    std::scoped_lock guard(m_lock, other.m_lock);
    max_level = other.max_level;
    max_stream = other.max_stream;
    channels = other.channels;
    return *this;
}

int Printer::add(const PrintSink& sink, unsigned level) {
    std::lock_guard<std::mutex> guard(m_lock);
    if (level >= max_level) {
        return -1;
    }
    std::vector<PrintSink>& channel = channels[level];
    if (channel.size() >= max_stream) {
        return -2;
    }
    channel.push_back(sink);
    return 0;
}

int Printer::remove(const PrintSink& sink, unsigned level) {
    std::lock_guard<std::recursive_mutex> output(outputLock());
    std::lock_guard<std::mutex> guard(m_lock);
    if (level >= max_level) {
        return -1;
    }
    std::vector<PrintSink>& channel = channels[level];
    channel.erase(std::remove(channel.begin(), channel.end(), sink), channel.end());
    return 0;
}

void Printer::removeEverywhere(const PrintSink& sink) {
    std::lock_guard<std::recursive_mutex> output(outputLock());
    std::lock_guard<std::mutex> guard(m_lock);
    for (std::vector<PrintSink>& channel : channels) {
        channel.erase(std::remove(channel.begin(), channel.end(), sink), channel.end());
    }
}

static PrintSink streamSink(std::ostream& stream) {
    PrintSink sink;
    sink.stream = &stream;
    return sink;
}

static PrintSink funcSink(void (*func)(const char*)) {
    PrintSink sink;
    sink.func = func;
    return sink;
}

static PrintSink fileSink(FILE* file) {
    PrintSink sink;
    sink.file = file;
    return sink;
}

// Levels are compared as unsigned numbers, so a negative level is out of range.
int Printer::SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level) {
    return add(streamSink(stream), static_cast<unsigned>(level));
}

int Printer::SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level) {
    return add(funcSink(func), static_cast<unsigned>(level));
}

int Printer::SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level) {
    return add(fileSink(file), static_cast<unsigned>(level));
}

int Printer::ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level) {
    return remove(streamSink(stream), static_cast<unsigned>(level));
}

int Printer::ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level) {
    return remove(funcSink(func), static_cast<unsigned>(level));
}

int Printer::ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level) {
    return remove(fileSink(file), static_cast<unsigned>(level));
}

int Printer::ClearPrintStream(std::ostream& stream) {
    removeEverywhere(streamSink(stream));
    return 0;
}

int Printer::ClearPrintStream(void (*func)(const char*)) {
    removeEverywhere(funcSink(func));
    return 0;
}

int Printer::ClearPrintStream(FILE* file) {
    removeEverywhere(fileSink(file));
    return 0;
}

int Printer::ClearPrintStream() {
    std::lock_guard<std::recursive_mutex> output(outputLock());
    std::lock_guard<std::mutex> guard(m_lock);
    for (std::vector<PrintSink>& channel : channels) {
        channel.clear();
    }
    return 0;
}

void Printer::vPrintf(unsigned level, const char* format, va_list args) {
    if (format == nullptr) {
        return;
    }
    // Measure first, then format into a buffer of exactly that size: no
    // fixed limit and no truncation.
    va_list measure;
    va_copy(measure, args);
    const int n = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (n <= 0) {
        return;
    }
    std::unique_ptr<char[]> text(new char[static_cast<std::size_t>(n) + 1]);
    va_list fill;
    va_copy(fill, args);
    const int written = std::vsnprintf(text.get(), static_cast<std::size_t>(n) + 1, format, fill);
    va_end(fill);
    if (written <= 0) {
        return;
    }
    Write(level, text.get());
}

void Printer::Printf(unsigned level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vPrintf(level, format, args);
    va_end(args);
}

void Printer::Write(unsigned level, const char* text) {
    if (text == nullptr) {
        return;
    }
    SinkSnapshot sinks;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (level >= max_level) {
            return;
        }
        sinks.assign(channels[level]);
    }
    for (const PrintSink& sink : sinks) {
        if (sink.file == nullptr && sink.stream == nullptr) {
            if (sink.func != nullptr) {
                sink.func(text);
            }
            continue;
        }
        std::lock_guard<std::recursive_mutex> output(outputLock());
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (level >= max_level || !attached(channels[level], sink)) {
                continue;
            }
        }
        if (sink.file != nullptr) {
            // fputs, not fprintf: the text is final, a '%' in it stays as it is.
            std::fputs(text, sink.file);
        } else if (sink.stream != nullptr) {
            *sink.stream << text;
        }
    }
}

bool Printer::HasSinks(unsigned level) const {
    std::lock_guard<std::mutex> guard(m_lock);
    return level < max_level && !channels[level].empty();
}
