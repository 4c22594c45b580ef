/*
 * The TarvelAPI C interface in a few lines: connect, check the device, let it
 * transmit a CAN message with a signal in it, read its clock.
 *
 *   basic <port>        e.g. basic COM3, basic /dev/ttyUSB0
 */
#include <stdio.h>
#include <string.h>

#include "TarvelAPI.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <serial port>\n", argv[0]);
        return 2;
    }

    Tarvel* tarvel = NewTarvel();
    int rc = ConnectTarvel(tarvel, argv[1], 1000, 1000); /* read / write time-outs in ms */
    if (rc != 0) {
        fprintf(stderr, "connect failed: %d\n", rc);
        DeleteTarvel(tarvel);
        return 1;
    }

    /* The version query doubles as a ping: 100 or 0 when the device answers. */
    int version = GetVersionTarvel(tarvel);
    printf("device version: %d\n", version);

    /* A message sent every 100 ms: identifier 0x321, 8 data bytes. */
    tagCanMessage msg;
    memset(&msg, 0, sizeof msg);
    msg.dlc = 8;
    msg.id = 0x321;
    msg.enabled = true;
    msg.param1 = 100;
    const unsigned char data[8] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    int message = AddMessageTarvel(tarvel, &msg, data);
    if (message < 0) {
        fprintf(stderr, "adding the message failed: %d\n", message);
        DisconnectTarvel(tarvel);
        DeleteTarvel(tarvel);
        return 1;
    }

    /* A 12-bit signal in bits 16..27 of that message, set to 0x5A5. */
    int signal = AddSignalTarvel(tarvel, (unsigned short)message, 0, 16, 27, 0);
    if (signal >= 0) rc = SignalChangeValueTarvel(tarvel, (unsigned short)signal, 0x5A5, false, true);
    printf("message %d, signal %d, value set: %d\n", message, signal, signal >= 0 ? rc : signal);

    long long deviceTime = 0;
    rc = GetTimeTarvel(tarvel, &deviceTime);
    printf("device time: %lld (%d)\n", deviceTime, rc);

    DisconnectTarvel(tarvel);
    DeleteTarvel(tarvel);
    return version >= 0 && signal >= 0 && rc == 0 ? 0 : 1;
}
