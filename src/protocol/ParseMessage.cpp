// Validation of device packets: CheckMessage (public check only) and
// ParseMessage (check, trace and take apart).
#include "Tarvel.h"

#include <string>

#include "protocol/Packet.h"

int Tarvel::CheckMessage(const ByteVector& packet, bool quiet) {
    const std::size_t size = packet.size();
    switch (tarvel::checkPacket(packet.data(), size)) {
    case tarvel::PacketFault::None: return 0;
    case tarvel::PacketFault::Checksum: return -2;
    case tarvel::PacketFault::Length: break;
    }
    if (!quiet) {
        if (size < 4)
            Printf_err("Tarvel::CheckMessage: Invalid message length. Length: %i\n", static_cast<int>(size));
        else
            Printf_err("Tarvel::CheckMessage: Invalid message length. Length: %i, Assumed: %i\n",
                       static_cast<int>((size - 4) & 0xFFu), static_cast<int>(packet[0]));
    }
    return -1;
}

int Tarvel::ParseMessage(const ByteVector& packet, RecvMessage& out, int quietLevel) {
    if (packet.empty()) return -4;
    const std::size_t size = packet.size();
    int result = 0;
    switch (tarvel::checkPacket(packet.data(), size)) {
    case tarvel::PacketFault::Length: result = -1; break;
    case tarvel::PacketFault::Checksum: result = -2; break;
    case tarvel::PacketFault::None:
        // Length byte 0 and a right checksum: no response id to take apart.
        if (size < tarvel::kPacketOverhead) result = -1;
        break;
    }

    if (result != 0) {
        DataPrint(packet, -10);
        if (quietLevel == 0) {
            std::string text;
            tarvel::appendHexBytes(text, packet.data(), size);
            if (result == -1)
                Printf_err("Tarvel::GetResponse: BAD Message's length %s!\n", text.c_str());
            else
                Printf_err("Tarvel::GetResponse: BAD Message's Checksum %s!\n", text.c_str());
        }
        return result;
    }

    DataPrint(packet, -1);
    out.messageId = packet[1];
    out.responseId = packet[2];
    out.data.assign(packet.begin() + 3, packet.end() - 2);
    return 0;
}
