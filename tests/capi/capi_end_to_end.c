/* A plain C caller driving one session through the flat interface, against
 * the device simulator: capi_end_to_end <port> <trace file>, started by
 * CApiProgramTest.cpp, which meanwhile keeps putting one CAN frame on the bus
 * (channel 0, identifier 0x123, flag 7, the 12 bytes of kFrameData) for the
 * request below; under wine (run-wine-tests.sh) tarvel-sim injects it itself.
 * The fields of every form are checked in ReportFieldsTest.cpp; this program
 * checks that C reaches each entry point. Exit status 0 when every check held. */
#define _POSIX_C_SOURCE 200809L

#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

/* Another header may own ERR (curses does): the header still compiles, and
 * the prefixed level names stand in. */
#define ERR (-1)
#include "TarvelAPI.h"

/* Must match the frame the launcher injects. */
#define FRAME_ID 0x123u
static const unsigned char kFrameData[12] = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87, 0x98, 0xA9, 0xBA, 0xCB};

static int failures;

/* Counts and reports a failed check; returns whether it held. */
static int check(long long expected, long long actual, const char* what, int line) {
    if (expected == actual) return 1;
    fprintf(stderr, "%s:%d: %s: expected %lld, got %lld\n", __FILE__, line, what, expected, actual);
    ++failures;
    return 0;
}
#define CHECK_EQ(expected, actual) check((long long)(expected), (long long)(actual), #actual, __LINE__)
#define CHECK(cond) CHECK_EQ(1, (cond) != 0)

/* What the session printed on ERR through the callback. */
static char errLog[1 << 16];

static void onErr(const char* text) {
    strncat(errLog, text, sizeof errLog - strlen(errLog) - 1);
}

static void pauseMs(long ms) {
    struct timespec ts = {0, ms * 1000000L};
    nanosleep(&ts, NULL);
}

/* Reports handed to the callback, counted on the session's delivery thread. */
static atomic_int reportsCalled;
static void onReport(const TarvelReport* report, void* user) {
    if (report->id == FRAME_ID && user == &reportsCalled) atomic_fetch_add(&reportsCalled, 1);
}

/* The injected frame, through each way C reads a report. */
static int checkReception(Tarvel* t) {
    TarvelAsyncMessage msg;
    unsigned char buf[64];
    /* Answers come through the receiver now: wait for them as long as a loaded machine needs. */
    CHECK_EQ(0, SetAnswerWaitTarvel(t, 2000));
    if (!CHECK_EQ(0, StartReceiverTarvel(t))) return 1;
    const int key = RequestMessageTarvel(t, 0x01, FRAME_ID, false, false, 9, false, false, NULL);
    if (!CHECK_EQ(0x10000 | FRAME_ID, key)) return 1;
    const int signal = RequestSignalTarvel(t, key, 4, 15);
    /* Wait (at least 5 s) for the first report of the injected frame; null data copies nothing. */
    int rc = -1;
    for (int i = 0; i < 1000 && (rc = ReadAsyncMsgTarvel(t, key, &msg, NULL, 0)) == -1; ++i)
        pauseMs(5);
    if (!CHECK_EQ(0, rc)) return 1;
    /* maxLen limits the copy; the rest of the buffer is not written. */
    memset(buf, 0xEE, sizeof buf);
    CHECK_EQ(8, ReadAsyncMsgTarvel(t, key, &msg, buf, 8));
    CHECK(memcmp(buf, kFrameData, 8) == 0 && buf[8] == 0xEE);
    /* Bits 4..15 of 10 21 ...: 0x211. */
    unsigned int v32 = 0, age = 0xFFFFFFFFu;
    CHECK_EQ(0, SignalReadValue32Tarvel(t, (unsigned short)signal, &v32, &age, true));
    CHECK(v32 == 0x211 && age < 60000);

    TarvelReport report;
    memset(&report, 0, sizeof report);
    CHECK_EQ(1, WaitReportTarvel(t, &report, 5000));
    CHECK(report.id == FRAME_ID && report.requestKey == key && memcmp(report.data, kFrameData, 12) == 0);
    CHECK_EQ(0, SetReportCallbackTarvel(t, onReport, &reportsCalled));
    for (int i = 0; i < 1000 && atomic_load(&reportsCalled) < 2; ++i)
        pauseMs(5);
    CHECK_EQ(0, SetReportCallbackTarvel(t, NULL, NULL));
    CHECK(atomic_load(&reportsCalled) >= 2);
    StopReceiverTarvel(t);
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s <port> <trace file>\n", argv[0]);
        return 2;
    }
    Tarvel* t = NewTarvel();
    if (!t) return 1;
    CHECK_EQ(0, SetPrintFunctionTarvel(t, onErr, TARVEL_ERR));
    PrintfErrTarvel(t, "capi err %s %d\n", "text", 7);
    CHECK(strcmp(errLog, "capi err text 7\n") == 0);
    CHECK(strcmp(ResultTextTarvel(-14), "no valid answer from the device") == 0);

    DebugCommTarvel(t, argv[2]);
    if (!CHECK_EQ(0, ConnectTarvel(t, argv[1], 1000, 1000))) return 1;
    CHECK_EQ(100, GetVersionTarvel(t));
    /* DLC 16 with data: this entry point's own refusal. */
    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    tagCanMessage msg;
    memset(&msg, 0, sizeof msg);
    msg.dlc = 16;
    errLog[0] = '\0';
    CHECK_EQ(-21, AddMessageTarvel(t, &msg, data));
    CHECK(strcmp(errLog, "Tarvel::AddMessageTarvel: Invalid DLC value: 16.\n") == 0);
    if (checkReception(t)) return 1;
    CHECK_EQ(0, DisconnectTarvel(t));
    DebugCommTarvel(t, NULL); /* closes the trace */

    /* Read as text: the trace is a text file, with CR LF line ends on Windows. */
    static char trace[1 << 20];
    FILE* f = fopen(argv[2], "r");
    CHECK(f != NULL);
    if (f) {
        trace[fread(trace, 1, sizeof trace - 1, f)] = '\0';
        fclose(f);
        CHECK(strstr(trace, ":>> 0x") != NULL && strstr(trace, ":<< 0x") != NULL);
    }
    DeleteTarvel(t);
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
