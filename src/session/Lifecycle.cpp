// Construction, copying and destruction of the session.
#include "Tarvel.h"

#include "session/Events.h"

#include <iostream>
#include <stdexcept>

namespace {

const unsigned kPrinterChannels = 3;
const unsigned kPrinterSinksPerChannel = 5;
const unsigned kDefaultAnswerWaitMs = 50; // 50 polls of the sync buffer, 1 ms apart

// Entry 0 of the signal requests is a placeholder: handles start at 1.
std::vector<SignalRequest> placeholderRequests() {
    return std::vector<SignalRequest>(1, SignalRequest{0, 0, 0});
}

} // namespace

Tarvel::Tarvel()
    : m_signalRequests(placeholderRequests()), m_receiverRunning(false), m_signalRequestCount(0), m_messageId(0),
      m_deviceVersion(0xFFFF), m_printer(kPrinterChannels, kPrinterSinksPerChannel), m_receiverStopRequested(false),
      m_receiverEnded(true), m_receiveErrors(0), m_invalidUntraced(0), m_badChannelReported(false),
      m_events(new tarvel::session::Events), m_answerWaitMs(kDefaultAnswerWaitMs), m_countConsecutiveErrors(false),
      m_closingPort(false) {
    if (m_printer.SetPrintStream(std::cerr, TARVEL_ERR) != 0 || m_printer.SetPrintStream(std::cout, TARVEL_INF) != 0) {
        throw std::invalid_argument("Tarvel::Tarvel: Printer's invalid argument!");
    }
}

// A copy shares the sinks of its source and nothing else: it is not
// connected, has no receiver and starts with empty tables.
Tarvel::Tarvel(const Tarvel& other)
    : m_signalRequests(placeholderRequests()), m_receiverRunning(false), m_signalRequestCount(0), m_messageId(0),
      m_deviceVersion(0xFFFF), m_printer(other.m_printer), m_receiverStopRequested(false), m_receiverEnded(true),
      m_receiveErrors(0), m_invalidUntraced(0), m_badChannelReported(false), m_events(new tarvel::session::Events),
      m_answerWaitMs(kDefaultAnswerWaitMs), m_countConsecutiveErrors(false), m_closingPort(false) {}

// Only the sinks are taken over; port, connection, tables and receiver stay.
Tarvel& Tarvel::operator=(const Tarvel& other) {
    if (this == &other) {
        return *this;
    }
    m_printer.ClearPrintStream(m_commFile);
    m_commFile.close();
    m_commFile = std::ofstream();
    m_printer = other.m_printer;
    return *this;
}

Tarvel::~Tarvel() {
    // The callback may be using the session: let it finish, and call it no more.
    m_events->delivery.set(nullptr);
    StopReceiver();
    if (m_serialPort.IsActive()) {
        m_serialPort.Disconnect();
    }
    if (m_commFile.is_open()) {
        m_printer.ClearPrintStream(m_commFile);
        m_commFile.close();
    }
}
