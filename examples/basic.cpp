// The TarvelAPI session class in a few lines: connect, check the device, let
// it transmit a CAN message with a signal in it, read its clock.
//
//   basic_cpp <port>        e.g. basic_cpp COM3, basic_cpp /dev/ttyUSB0
#include <iostream>

#include "TarvelAPI.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: " << argv[0] << " <serial port>\n";
        return 2;
    }

    Tarvel tarvel;                                               // errors go to std::cerr, information to std::cout
    if (int rc = tarvel.Connect(argv[1], 1000, 1000); rc != 0) { // time-outs in ms
        std::cerr << "connect failed: " << rc << '\n';
        return 1;
    }

    // The version query doubles as a ping: 100 or 0 when the device answers.
    const int version = tarvel.GetVersion();
    std::cout << "device version: " << version << '\n';

    // A message sent every 100 ms: identifier 0x321, 8 data bytes.
    tagCanMessage msg{};
    msg.dlc = 8;
    msg.id = 0x321;
    msg.enabled = true;
    msg.param1 = 100;
    const int message = tarvel.AddMessage(msg, ByteVector{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88});
    if (message < 0) {
        std::cerr << "adding the message failed: " << message << '\n';
        return 1;
    }

    // A 12-bit signal in bits 16..27 of that message, set to 0x5A5.
    const int signal = tarvel.AddSignal(static_cast<unsigned short>(message), 0, 16, 27, 0);
    const int set =
        signal >= 0 ? tarvel.SignalChangeValue(static_cast<unsigned short>(signal), 0x5A5, false, true) : signal;
    std::cout << "message " << message << ", signal " << signal << ", value set: " << set << '\n';

    long long deviceTime = 0;
    const int rc = tarvel.GetTime(&deviceTime);
    std::cout << "device time: " << deviceTime << " (" << rc << ")\n";

    tarvel.Disconnect(); // also done by the destructor
    return version >= 0 && signal >= 0 && rc == 0 ? 0 : 1;
}
