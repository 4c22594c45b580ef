// The state of the session's two threads as one number.
#include "Tarvel.h"

int Tarvel::GetInternalThreadStatus() {
    int status = m_receiverRunning.load() ? 0x01 : 0x00;
    switch (m_serialPort.getThrStatus()) {
    case SerialPort::RUNNING: status |= 0x10; break;
    case SerialPort::START_REQ:
    case SerialPort::STOP_REQ:
    case SerialPort::FAILED: status |= 0x20; break;
    default: // IDLE, STOPPED
        break;
    }
    return status;
}
