// A transmit message with a signal, a request for the same identifier, and
// the signal read back from the device's reports with its age.
//
//   receive_cpp <port>      e.g. receive_cpp /dev/ttyUSB0, or the path tarvel-sim prints
#include <chrono>
#include <cstdio>
#include <thread>

#include <TarvelAPI.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <serial port>\n", argv[0]);
        return 2;
    }
    Tarvel tarvel;                              // errors go to std::cerr
    int rc = tarvel.Connect(argv[1], 100, 100); // port name, read/write time-outs in ms
    if (rc != 0) {
        std::fprintf(stderr, "connect: %d\n", rc);
        return 1;
    }

    tagCanMessage msg{}; // 0x2A0 on channel 0, every 10 ms
    msg.dlc = 8;
    msg.id = 0x2A0;
    msg.enabled = true;
    msg.param1 = 10;
    const int handler = tarvel.AddMessage(msg); // the device's handler, or a negative code
    if (handler < 0) return 1;
    const int speed = tarvel.AddSignal(static_cast<unsigned short>(handler), 0, 0, 15, 0); // bits 0..15
    if (speed < 0 || tarvel.SignalChangeValue(static_cast<unsigned short>(speed), 1234, true, true) < 0) return 1;

    const int key = tarvel.RequestMessage(0x01, 0x2A0, false, false, 8, false, false, nullptr);
    if (key < 0 || tarvel.StartReceiver() < 0) // reports now flow in
        return 1;
    const int signal = tarvel.RequestSignal(key, 0, 15);
    unsigned int value = 0, age = 0;
    for (int tries = 0; tries < 500; ++tries) { // the first report is a few ms away
        if (tarvel.SignalReadValue(static_cast<unsigned short>(signal), value, &age, true) == 0) {
            std::printf("speed %u, %u ms old\n", value, age);
            return value == 1234 ? 0 : 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::fprintf(stderr, "no report of 0x2A0\n");
    return 1; // the destructor stops and disconnects
}
