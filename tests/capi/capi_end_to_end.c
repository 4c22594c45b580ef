/* A plain C caller driving one session through the flat interface, against
 * the device simulator: capi_end_to_end <port> <trace file>, started by
 * CApiProgramTest.cpp, which meanwhile keeps putting one CAN frame on the bus
 * (channel 0, identifier 0x123, flag 7, the 12 bytes of kFrameData) for the
 * request below; under wine (run-wine-tests.sh) tarvel-sim injects it itself.
 * Exit status 0 when every check held. */
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
    fprintf(stderr, "%s:%d: %s: expected %lld (%#llx), got %lld (%#llx)\n", __FILE__, line, what, expected,
            (unsigned long long)expected, actual, (unsigned long long)actual);
    ++failures;
    return 0;
}
#define CHECK_EQ(expected, actual) check((long long)(expected), (long long)(actual), #actual, __LINE__)
#define CHECK(cond) CHECK_EQ(1, (cond) != 0)
/* Stops at once: later steps make no sense without this one. */
#define REQUIRE_EQ(expected, actual)                                                                                   \
    do {                                                                                                               \
        if (!CHECK_EQ(expected, actual)) return 1;                                                                     \
    } while (0)

/* What the session printed on ERR through the callback. */
static char errLog[1 << 16];

static void onErr(const char* text) {
    strncat(errLog, text, sizeof errLog - strlen(errLog) - 1);
}

static void pauseMs(long ms) {
    struct timespec ts = {0, ms * 1000000L};
    nanosleep(&ts, NULL);
}

/* The whole file as a string, or NULL. Read as text: the trace is a text
 * file, with CR LF line ends on Windows. */
static const char* readFile(const char* path) {
    static char text[1 << 20];
    FILE* f = fopen(path, "r");
    if (!f) return NULL;
    text[fread(text, 1, sizeof text - 1, f)] = '\0';
    fclose(f);
    return text;
}

/* scratchPath: a file the FILE* sink may write (tmpfile() of the Windows C
 * runtime wants the drive's root directory, which users may not write). */
static void checkPrinting(Tarvel* t, const char* scratchPath) {
    CHECK_EQ(0, SetPrintFunctionTarvel(t, onErr, TARVEL_ERR));
    CHECK_EQ(-1, SetPrintFunctionTarvel(t, onErr, (LOG_LEVELS_TARVEL)3));
    PrintfErrTarvel(t, "capi err %s %d\n", "text", 7);
    CHECK(strstr(errLog, "capi err text 7\n") != NULL);

    /* FILE* sinks receive the text unchanged; a removed one nothing more. */
    FILE* file = fopen(scratchPath, "w+b");
    CHECK(file != NULL);
    if (file) {
        CHECK_EQ(0, SetPrintFileTarvel(t, file, TARVEL_INF));
        PrintfInfTarvel(t, "to file %s\n", "100%");
        CHECK_EQ(0, ClearPrintFileTarvel(t, file, TARVEL_INF));
        PrintfInfTarvel(t, "after clear\n");
        char content[64] = {0};
        rewind(file);
        CHECK(fread(content, 1, sizeof content - 1, file) > 0);
        CHECK(strcmp(content, "to file 100%\n") == 0);
        fclose(file);
        remove(scratchPath);
    }
}

/* DLC 16 with data: this entry point's own refusal; without data the member's. */
static void checkTransmitRefusals(Tarvel* t) {
    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    tagCanMessage msg;
    memset(&msg, 0, sizeof msg);
    msg.dlc = 16;
    errLog[0] = '\0';
    CHECK_EQ(-21, AddMessageTarvel(t, &msg, data));
    CHECK(strstr(errLog, "Tarvel::AddMessageTarvel: Invalid DLC value: 16.\n") != NULL);
    errLog[0] = '\0';
    CHECK_EQ(-21, AddMessageTarvel(t, &msg, NULL));
    CHECK(strstr(errLog, "Tarvel::AddMessage: Invalid DLC value: 16.\n") != NULL);
}

/* Reports handed to the callback, counted on the session's delivery thread. */
static atomic_int reportsCalled;
static void onReport(const TarvelReport* report, void* user) {
    if (report->id == FRAME_ID && user == &reportsCalled) atomic_fetch_add(&reportsCalled, 1);
}

/* The structures as C lays them out, filled from the injected frame. */
static int checkReception(Tarvel* t) {
    TarvelAsyncMessage msg, untouched;
    unsigned char buf[64];
    /* Receiver stopped: the caller's structure stays as it was. */
    memset(&msg, 0xAA, sizeof msg);
    untouched = msg;
    CHECK_EQ(-1, ReadAsyncMsgTarvel(t, 0x10000 | FRAME_ID, &msg, buf, sizeof buf));
    CHECK(memcmp(&msg, &untouched, sizeof msg) == 0);
    /* A null value is refused before the session looks at anything: -5, not -3. */
    unsigned int v32 = 0;
    CHECK_EQ(-3, SignalReadValue32Tarvel(t, 1, &v32, NULL, true));
    CHECK_EQ(-5, SignalReadValue64Tarvel(t, 999, NULL, NULL, true));

    /* Answers come through the receiver now: wait for them as long as a loaded machine needs. */
    CHECK_EQ(0, SetAnswerWaitTarvel(t, 2000));
    REQUIRE_EQ(0, StartReceiverTarvel(t));
    const int key = RequestMessageTarvel(t, 0x01, FRAME_ID, false, false, 9, false, false, NULL);
    REQUIRE_EQ(0x10000 | FRAME_ID, key);
    const int signal = RequestSignalTarvel(t, key, 4, 15);
    /* Wait (at least 5 s) for the first report of the injected frame; null data copies nothing. */
    int rc = -1;
    for (int i = 0; i < 1000 && (rc = ReadAsyncMsgTarvel(t, key, &msg, NULL, 0)) == -1; ++i)
        pauseMs(5);
    REQUIRE_EQ(0, rc);
    CHECK(msg.key == FRAME_ID && msg.handler == FRAME_ID && msg.channel == 0);
    CHECK(msg.dlc == 9 && msg.flag7 == 1 && msg.flag6 == 0 && msg.flag5 == 0 && msg.flag4 == 0);
    /* maxLen limits the copy; the rest of the buffer is not written. */
    memset(buf, 0xEE, sizeof buf);
    CHECK_EQ(8, ReadAsyncMsgTarvel(t, key, &msg, buf, 8));
    CHECK(memcmp(buf, kFrameData, 8) == 0 && buf[8] == 0xEE);
    CHECK_EQ(12, ReadAsyncMsgTarvel(t, key, &msg, buf, 64));
    CHECK(memcmp(buf, kFrameData, 12) == 0 && buf[12] == 0xEE);
    /* Bits 4..15 of 10 21 ...: 0x211. */
    unsigned int age = 0xFFFFFFFFu;
    CHECK_EQ(0, SignalReadValue32Tarvel(t, (unsigned short)signal, &v32, &age, true));
    CHECK(v32 == 0x211 && age < 60000);

    TarvelReport report;
    memset(&report, 0, sizeof report);
    CHECK_EQ(1, WaitReportTarvel(t, &report, 5000));
    CHECK(report.id == FRAME_ID && report.requestKey == key && report.channel == 0 && report.extended == 0);
    CHECK(report.dlc == 9 && report.length == 12 && report.flag7 == 1 && report.flag4 == 0);
    CHECK(memcmp(report.data, kFrameData, 12) == 0);
    CHECK(report.timeUs > 1600000000ULL * 1000000ULL); /* microseconds since 1970 */
    CHECK_EQ(0, SetReportCallbackTarvel(t, onReport, &reportsCalled));
    for (int i = 0; i < 1000 && atomic_load(&reportsCalled) < 2; ++i)
        pauseMs(5);
    CHECK_EQ(0, SetReportCallbackTarvel(t, NULL, NULL));
    CHECK(atomic_load(&reportsCalled) >= 2);
    CHECK(strcmp(ResultTextTarvel(-14), "no valid answer from the device") == 0);
    StopReceiverTarvel(t);
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s <port> <trace file>\n", argv[0]);
        return 2;
    }
    const char* tracePath = argv[2];
    DeleteTarvel(NULL); /* allowed, does nothing */
    Tarvel* t = NewTarvel();
    if (!t) return 1;
    char scratchPath[4096];
    snprintf(scratchPath, sizeof scratchPath, "%s.sink", tracePath);
    checkPrinting(t, scratchPath);

    /* The trace file is truncated when opened. */
    FILE* stale = fopen(tracePath, "w");
    if (stale) {
        fputs("stale content\n", stale);
        fclose(stale);
    }
    DebugCommTarvel(t, tracePath);
    REQUIRE_EQ(0, ConnectTarvel(t, argv[1], 1000, 1000));
    CHECK_EQ(100, GetVersionTarvel(t));
    checkTransmitRefusals(t);
    if (checkReception(t)) return 1;
    CHECK_EQ(0, DisconnectTarvel(t));
    DebugCommTarvel(t, NULL); /* closes the trace */

    const char* trace = readFile(tracePath);
    CHECK(trace != NULL);
    if (trace) {
        CHECK(strstr(trace, "stale content") == NULL);
        CHECK(strstr(trace, ":>> 0x") != NULL);
        CHECK(strstr(trace, ":<< 0x") != NULL);
        CHECK(strstr(trace, "Tarvel::AddMessageTarvel: Invalid DLC value: 16.\n") != NULL);
    }
    DeleteTarvel(t);
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
