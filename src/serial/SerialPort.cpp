// SerialPort lifecycle: construction, copies, connect, disconnect, purge and
// time-outs. The OS work is done by the platform layer (PortDevice.h).
#include "SerialPort.h"

#include <cstdio>
#include <utility>

#include "serial/PortDevice.h"
#include "serial/ReadGate.h"
#include "serial/SystemError.h"

using tarvel::PortDevice;
namespace port = tarvel::port;
namespace event = tarvel::event;

SerialPort::SerialPort()
    : m_dataReadyEvent(nullptr), m_threadStatusEvent(nullptr), m_portHandle(nullptr), m_dcb(), m_dropEnabled(true),
      m_readTimeout(0), m_writeTimeout(0), m_threadStatus(IDLE), m_readGate(new tarvel::ReadGate(m_portHandle)),
      m_readAhead(nullptr), m_readPos(0), m_readLen(0), m_readCap(0) {}

SerialPort::SerialPort(const SerialPort& other)
    : m_dataReadyEvent(nullptr), m_threadStatusEvent(nullptr), m_portHandle(nullptr), m_dcb(other.m_dcb),
      m_dropEnabled(other.m_dropEnabled), m_readTimeout(other.m_readTimeout.load()),
      m_writeTimeout(other.m_writeTimeout.load()), m_portName(other.m_portName), m_threadStatus(IDLE),
      m_readGate(new tarvel::ReadGate(m_portHandle)), m_readAhead(nullptr), m_readPos(0), m_readLen(0), m_readCap(0) {}

SerialPort& SerialPort::operator=(const SerialPort& other) {
    // Taken first: assigning a port to itself closes it as well, but keeps
    // the name that Disconnect clears.
    std::string name = other.m_portName;
    // The sender thread writes to the device, so it goes first; a connected
    // target must not leak its device.
    _stopSenderThread();
    tarvel::ControlTurn turn(*m_readGate);
    if (m_portHandle != nullptr) _disconnect();
    m_portHandle = nullptr;
    m_readPos = m_readLen = 0;
    m_dcb = other.m_dcb;
    m_dropEnabled = other.m_dropEnabled;
    m_readTimeout = other.m_readTimeout.load();
    m_writeTimeout = other.m_writeTimeout.load();
    m_portName = std::move(name);
    m_threadStatus = IDLE;
    return *this;
}

SerialPort::~SerialPort() {
    _stopSenderThread();
    if (m_portHandle != nullptr) _disconnect();
    if (m_dataReadyEvent != nullptr) event::close(m_dataReadyEvent);
    if (m_threadStatusEvent != nullptr) event::close(m_threadStatusEvent);
    delete[] m_readAhead;
}

int SerialPort::Connect(const std::string& name, unsigned int baud, unsigned char byteSize, unsigned char stopBits,
                        unsigned char parity) {
    tarvel::ControlTurn turn(*m_readGate);
    return _connect(name, baud, byteSize, stopBits, parity);
}

int SerialPort::_connect(const std::string& name, unsigned int baud, unsigned char byteSize, unsigned char stopBits,
                         unsigned char parity) {
    if (IsActive()) {
        if (name == m_portName) return 1;
        std::fprintf(stderr, "COM port already open! (Open: %s, opening: %s)\n", m_portName.c_str(), name.c_str());
        return -1;
    }
    // A sender started while no device was open must not see the new one
    // appear under its feet.
    _stopSenderThread();

    unsigned long error = 0;
    PortDevice* device = port::open(name, error);
    if (device == nullptr) {
        PrintSystemError(error, "SerialPort::Connect: CreateFile failed with error: ", false);
        return -2;
    }
    m_portHandle = device;
    m_readPos = m_readLen = 0;

    if (!port::getLineSettings(device, m_dcb, error)) {
        _disconnect();
        PrintSystemError(error, "SerialPort::Connect: GetCommState failed with error: ", false);
        return -3;
    }
    m_dcb.BaudRate = baud;
    m_dcb.ByteSize = byteSize;
    m_dcb.StopBits = stopBits;
    m_dcb.Parity = parity;
    if (!port::setLineSettings(device, m_dcb, error)) {
        _disconnect();
        PrintSystemError(error, "SerialPort::Connect: SetCommState failed with error: ", false);
        return -4;
    }
    m_portName = name;
    return 0;
}

int SerialPort::Disconnect() {
    tarvel::ControlTurn turn(*m_readGate);
    return _disconnect();
}

int SerialPort::_disconnect() {
    _stopSenderThread();
    if (m_portHandle != nullptr) {
        unsigned long error = 0;
        if (!port::close(m_portHandle, error)) {
            PrintSystemError(error, "SerialPort::Disconnect CloseHandle failed with error: ", false);
            return -1;
        }
        m_portHandle = nullptr;
    }
    m_readPos = m_readLen = 0;
    m_portName.clear();
    return 0;
}

int SerialPort::Flush() {
    tarvel::ControlTurn turn(*m_readGate);
    m_readPos = m_readLen = 0;
    unsigned long error = 0;
    if (!port::purge(m_portHandle, error)) {
        PrintSystemError(error, "SerialPort::Flush: Clearing RX and TX buffers failed.", false);
        return -1;
    }
    return 0;
}

int SerialPort::SetTimeout(unsigned int readMs, unsigned int writeMs) {
    tarvel::ControlTurn turn(*m_readGate);
    unsigned long error = 0;
    bool ok = false;
    if (m_portHandle == nullptr)
        error = tarvel::notOpenError();
    else
        ok = port::disableDriverTimeouts(m_portHandle, error);
    if (!ok) {
        PrintSystemError(error, "SerialPort::SetTimeout SetCommTimeouts failed with error: ", false);
        return -1;
    }
    m_readTimeout = readMs;
    m_writeTimeout = writeMs;
    return 0;
}

int SerialPort::GetTimeout(unsigned int& readMs, unsigned int& writeMs) {
    readMs = m_readTimeout;
    writeMs = m_writeTimeout;
    return 0;
}

bool SerialPort::IsActive() {
    return m_portHandle != nullptr;
}

int SerialPort::getThrStatus() const {
    return m_threadStatus.load();
}

void SerialPort::InterruptRead() {
    m_readGate->interrupt();
}
