// The session's logging front: each member forwards to the Printer.
#include "Tarvel.h"

int Tarvel::SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level) {
    return m_printer.SetPrintStream(stream, level);
}

int Tarvel::SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level) {
    return m_printer.SetPrintStream(func, level);
}

int Tarvel::SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level) {
    return m_printer.SetPrintStream(file, level);
}

int Tarvel::ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level) {
    return m_printer.ClearPrintStream(stream, level);
}

int Tarvel::ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level) {
    return m_printer.ClearPrintStream(func, level);
}

int Tarvel::ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level) {
    return m_printer.ClearPrintStream(file, level);
}

int Tarvel::ClearPrintStream(std::ostream& stream) {
    return m_printer.ClearPrintStream(stream);
}

int Tarvel::ClearPrintStream(void (*func)(const char*)) {
    return m_printer.ClearPrintStream(func);
}

int Tarvel::ClearPrintStream(FILE* file) {
    return m_printer.ClearPrintStream(file);
}

int Tarvel::ClearPrintStream() {
    return m_printer.ClearPrintStream();
}

void Tarvel::Printf_err(const char* format, ...) {
    va_list args;
    va_start(args, format);
    m_printer.vPrintf(TARVEL_ERR, format, args);
    va_end(args);
}

void Tarvel::Printf_inf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    m_printer.vPrintf(TARVEL_INF, format, args);
    va_end(args);
}

void Tarvel::vPrintf_err(const char* format, va_list& args) {
    m_printer.vPrintf(TARVEL_ERR, format, args);
}

void Tarvel::vPrintf_inf(const char* format, va_list& args) {
    m_printer.vPrintf(TARVEL_INF, format, args);
}
