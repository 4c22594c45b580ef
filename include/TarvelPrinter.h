// The session's logging object: channels of bounded sink lists.
#ifndef TARVEL_PRINTER_H
#define TARVEL_PRINTER_H

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <vector>

#include "TarvelBase.h"

// One sink of a channel; exactly one field is set.
struct PrintSink {
    FILE* file = nullptr;
    std::ostream* stream = nullptr;
    void (*func)(const char*) = nullptr;

    bool operator==(const PrintSink& other) const {
        return file == other.file && stream == other.stream && func == other.func;
    }
};

// Formats a message once and hands it to every sink of its channel, in the
// order the sinks were added. The Printer never owns, flushes or closes a
// target. Sinks may be changed while other threads print: dispatch works on
// a snapshot, so a callback may itself print through the same Printer. Stream
// and file sinks are written one message at a time, and once a removal has
// returned they receive nothing more (the caller may close them).
class Printer {
public:
    Printer(unsigned max_level, unsigned max_stream); // throws std::invalid_argument on 0
    Printer(const Printer& other);
    Printer& operator=(const Printer& other);

    // 0 added; -1 level >= max_level; -2 channel full.
    int SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    int SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    int SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level);

    // Remove every equal entry: 0, or -1 for a bad level. Without a level: every channel, always 0.
    int ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    int ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    int ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level);
    int ClearPrintStream(std::ostream& stream);
    int ClearPrintStream(void (*func)(const char*));
    int ClearPrintStream(FILE* file);
    int ClearPrintStream();

    void vPrintf(unsigned level, const char* format, va_list args);
    void Printf(unsigned level, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 3, 4)))
#endif
        ;
    void Write(unsigned level, const char* text);
    // Whether the channel has any sink: lets callers skip building a text nobody gets.
    bool HasSinks(unsigned level) const;

private:
    int add(const PrintSink& sink, unsigned level);
    int remove(const PrintSink& sink, unsigned level);
    void removeEverywhere(const PrintSink& sink);

    unsigned max_level;
    unsigned max_stream;
    std::vector<std::vector<PrintSink>> channels;
    mutable std::mutex m_lock; // guards channels
};

#endif
