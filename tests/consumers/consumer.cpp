// A program outside the tree, as a user writes it: one session through the
// C++ class, built against an installed or embedded TarvelAPI and run against
// the simulator. Exit status 0 when it connected, the device answered a ping
// and its version query (feature level 100), and the library is the expected
// version.
//
//   consumer_cpp <port> [expected library version]
#include <cstdio>
#include <cstring>

#include <TarvelAPI.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <serial port> [library version]\n", argv[0]);
        return 2;
    }
    Tarvel tarvel;
    const int connected = tarvel.Connect(argv[1], 1000, 1000);
    if (connected != 0) {
        std::fprintf(stderr, "consumer_cpp: connect: %d (%s)\n", connected, Tarvel::ResultText(connected, "Connect"));
        return 1;
    }
    const int ping = tarvel.Ping();
    const int version = tarvel.GetVersion();
    const char* library = Tarvel::LibraryVersion();
    std::printf("consumer_cpp: ping %d, device version %d, library %s\n", ping, version, library);
    tarvel.Disconnect();
    if (argc > 2 && std::strcmp(argv[2], library) != 0) {
        std::fprintf(stderr, "consumer_cpp: library %s, expected %s\n", library, argv[2]);
        return 1;
    }
    return ping == 0 && version == 100 ? 0 : 1;
}
