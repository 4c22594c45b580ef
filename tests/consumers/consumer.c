/* A plain C program outside the tree: one session through the flat entry
 * points, built with `pkg-config --cflags --libs tarvelapi` and run against
 * the simulator. Exit status 0 when it connected, the device answered a ping
 * and its version query (feature level 100), and the library is the expected
 * version.
 *
 *   consumer_c <port> [expected library version] */
#include <stdio.h>
#include <string.h>

#include <TarvelAPI.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <serial port> [library version]\n", argv[0]);
        return 2;
    }
    Tarvel* tarvel = NewTarvel();
    int connected = ConnectTarvel(tarvel, argv[1], 1000, 1000);
    if (connected != 0) {
        fprintf(stderr, "consumer_c: connect: %d (%s)\n", connected, OperationResultTextTarvel("Connect", connected));
        DeleteTarvel(tarvel);
        return 1;
    }
    int ping = PingTarvel(tarvel);
    int version = GetVersionTarvel(tarvel);
    const char* library = LibraryVersionTarvel();
    printf("consumer_c: ping %d, device version %d, library %s\n", ping, version, library);
    DisconnectTarvel(tarvel);
    DeleteTarvel(tarvel);
    if (argc > 2 && strcmp(argv[2], library) != 0) {
        fprintf(stderr, "consumer_c: library %s, expected %s\n", library, argv[2]);
        return 1;
    }
    return ping == 0 && version == 100 ? 0 : 1;
}
