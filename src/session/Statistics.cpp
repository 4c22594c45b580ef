#include "session/Statistics.h"

#include "Tarvel.h"

namespace tarvel {
namespace session {

bool Statistics::countErrorAnswer(unsigned char responseId) {
    switch (responseId) {
    case Tarvel::COMMAND_FAILED: commandFailed.add(); return true;
    case Tarvel::PACKET_ERROR: packetError.add(); return true;
    case Tarvel::SLIP_PROTO_ERROR: slipProtoError.add(); return true;
    case Tarvel::TARVEL_HW_ERROR: hardwareError.add(); return true;
    default: return false;
    }
}

TarvelStatistics Statistics::snapshot() const {
    TarvelStatistics s{};
    s.framesSent = framesSent.get();
    s.bytesSent = bytesSent.get();
    s.framesReceived = framesReceived.get();
    s.bytesReceived = bytesReceived.get();
    s.rejectedSlip = rejectedSlip.get();
    s.rejectedLength = rejectedLength.get();
    s.rejectedChecksum = rejectedChecksum.get();
    s.commandFailed = commandFailed.get();
    s.packetError = packetError.get();
    s.slipProtoError = slipProtoError.get();
    s.hardwareError = hardwareError.get();
    s.exchangesTimedOut = exchangesTimedOut.get();
    s.reportsReceived = reportsReceived.get();
    s.reportsDropped = reportsDropped.get();
    s.reportsBadChannel = reportsBadChannel.get();
    s.writesDropped = writesDropped.get();
    s.receiverEnded = receiverEnded.get();
    s.lastReceivedUs = lastReceivedUs.get();
    return s;
}

void Statistics::reset() {
    for (Counter* c :
         {&framesSent, &bytesSent, &framesReceived, &bytesReceived, &rejectedSlip, &rejectedLength, &rejectedChecksum,
          &commandFailed, &packetError, &slipProtoError, &hardwareError, &exchangesTimedOut, &reportsReceived,
          &reportsDropped, &reportsBadChannel, &writesDropped, &receiverEnded, &lastReceivedUs})
        c->set(0);
}

} // namespace session
} // namespace tarvel
