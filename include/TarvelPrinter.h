/// @file TarvelPrinter.h
/// @brief The session's logging object: channels of bounded sink lists
/// (C++ only; included by Tarvel.h).
#ifndef TARVEL_PRINTER_H
#define TARVEL_PRINTER_H

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <vector>

#include "TarvelBase.h"

/// One sink of a channel; exactly one field is set.
struct PrintSink {
    FILE* file = nullptr;                ///< an open C file
    std::ostream* stream = nullptr;      ///< a C++ stream
    void (*func)(const char*) = nullptr; ///< a function that takes each message

    /// The same target.
    bool operator==(const PrintSink& other) const {
        return file == other.file && stream == other.stream && func == other.func;
    }
};

/// @brief Formats a message once and hands it to every sink of its channel,
/// in the order the sinks were added.
///
/// The Printer never owns, flushes or closes a target. Sinks may be changed
/// while other threads print: dispatch works on a snapshot, so a callback may
/// itself print through the same Printer. Stream and file sinks are written
/// one message at a time (one lock for all Printers), and once a removal has
/// returned they receive nothing more (the caller may close them); function
/// sinks may be called from several threads at once.
class Printer {
public:
    /// max_level channels (levels 0..max_level-1) of at most max_stream sinks
    /// each. Throws std::invalid_argument on 0.
    Printer(unsigned max_level, unsigned max_stream);
    /// A copy has the same channels and sinks (the targets are shared).
    Printer(const Printer& other);
    /// Takes the channels and sinks of other.
    Printer& operator=(const Printer& other);

    /// @name Adding sinks
    /// 0 added; -1 level >= max_level; -2 channel full.
    /// @{
    int SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);      ///< a stream
    int SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level); ///< a function
    int SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level);                ///< an open file
    /// @}

    /// @name Removing sinks
    /// Remove every equal entry: 0, or -1 for a bad level. Without a level:
    /// every channel, always 0.
    /// @{
    int ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);      ///< a stream from one channel
    int ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level); ///< a function from one channel
    int ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level);                ///< a file from one channel
    int ClearPrintStream(std::ostream& stream);                               ///< a stream from every channel
    int ClearPrintStream(void (*func)(const char*));                          ///< a function from every channel
    int ClearPrintStream(FILE* file);                                         ///< a file from every channel
    int ClearPrintStream();                                                   ///< every sink of every channel
    /// @}

    /// Formats the message (no length limit) and writes it (Write); a null
    /// format or an empty text prints nothing.
    void vPrintf(unsigned level, const char* format, va_list args);
    /// vPrintf with the arguments given directly.
    void Printf(unsigned level, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 3, 4)))
#endif
        ;
    /// Hands text, as it is, to every sink of the channel (a level out of
    /// range or a null text: nothing).
    void Write(unsigned level, const char* text);
    /// Whether the channel has any sink: lets callers skip building a text nobody gets.
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
