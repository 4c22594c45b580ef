// Validation of device packets: CheckMessage (public check only) and
// ParseMessage (check, trace and take apart).
#include "Tarvel.h"

#include <string>

#include "protocol/Packet.h"

namespace {

uint16_t receivedSum(const ByteVector& packet) {
    const std::size_t n = packet.size();
    return static_cast<uint16_t>((packet[n - 2] << 8) | packet[n - 1]);
}

bool lengthByteMatches(const ByteVector& packet) {
    return packet[0] == static_cast<unsigned char>((packet.size() - 4) & 0xFFu);
}

} // namespace

int Tarvel::CheckMessage(const ByteVector& packet, bool quiet) {
    const std::size_t size = packet.size();
    if (size < 4) {
        if (!quiet) {
            Printf_err("Tarvel::CheckMessage: Invalid message length. Length: %i\n", static_cast<int>(size));
        }
        return -1;
    }
    if (!lengthByteMatches(packet)) {
        if (!quiet) {
            Printf_err("Tarvel::CheckMessage: Invalid message length. Length: %i, Assumed: %i\n",
                       static_cast<int>((size - 4) & 0xFFu), static_cast<int>(packet[0]));
        }
        return -1;
    }
    return tarvel::sum16(packet.data(), size - 2) == receivedSum(packet) ? 0 : -2;
}

int Tarvel::ParseMessage(const ByteVector& packet, RecvMessage& out, int quietLevel) {
    if (packet.empty()) {
        return -4;
    }
    const std::size_t size = packet.size();
    int result = 0;
    if (size < 4 || !lengthByteMatches(packet)) {
        result = -1;
    } else if (tarvel::sum16(packet.data(), size - 2) != receivedSum(packet)) {
        result = -2;
    } else if (size < tarvel::kPacketOverhead) {
        // Length byte 0 and a right checksum: no response id to take apart.
        result = -1;
    }

    if (result != 0) {
        DataPrint(packet, -10);
        if (quietLevel == 0) {
            std::string text;
            tarvel::appendHexBytes(text, packet.data(), size);
            if (result == -1) {
                Printf_err("Tarvel::GetResponse: BAD Message's length %s!\n", text.c_str());
            } else {
                Printf_err("Tarvel::GetResponse: BAD Message's Checksum %s!\n", text.c_str());
            }
        }
        return result;
    }

    DataPrint(packet, -1);
    out.messageId = packet[1];
    out.responseId = packet[2];
    out.data.assign(packet.begin() + 3, packet.end() - 2);
    return 0;
}
