// The C entry points keep C++ exceptions from reaching C callers, and refuse
// null handles and pointers before anything else.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CaptureStderr.h"
#include "TarvelAPI.h"

namespace {
void throwingSink(const char*) {
    throw std::runtime_error("sink failed");
}
} // namespace

TEST(CApiGuard, ExceptionFromTheSessionBecomesAResultCode) {
    Tarvel* t = NewTarvel();
    ASSERT_NE(nullptr, t);
    ASSERT_EQ(0, SetPrintFunctionTarvel(t, throwingSink, ERR));

    // The refusal message goes through the throwing sink.
    tagCanMessage msg{};
    msg.dlc = 16;
    const unsigned char data[1] = {0};
    EXPECT_EQ(TARVEL_ERROR_EXCEPTION, AddMessageTarvel(t, &msg, data));
    EXPECT_NO_THROW(PrintfErrTarvel(t, "x\n"));
    EXPECT_NO_THROW(DebugCommTarvel(t, "/nonexistent-dir/trace.txt"));

    // Once the sink is gone the same call reports normally.
    EXPECT_EQ(0, ClearPrintFunctionTarvel(t, throwingSink, ERR));
    EXPECT_EQ(-21, AddMessageTarvel(t, &msg, data));
    DeleteTarvel(t);
}

// An entry point that takes a session refuses a null handle before doing
// anything, with one code and a message; void ones just return. One shared
// guard does it: a few of each kind stand for the rest.
TEST(CApiGuard, ANullSessionHandleIsRefusedEverywhere) {
    unsigned char byte = 0;
    unsigned int u = 0;
    unsigned long long ull = 0;
    tagCanMessage msg{};
    TarvelAsyncMessage am{};
    TarvelReport report{};
    TarvelStatistics stats{};
    Tarvel* const none = nullptr;
    const std::vector<std::pair<const char*, std::function<int()>>> calls = {
        {"ConnectTarvel", [&] { return ConnectTarvel(none, "x", 1, 1); }},
        {"ReadAsyncMsgTarvel", [&] { return ReadAsyncMsgTarvel(none, 0x10123, &am, &byte, 1); }},
        {"ReadEepromTarvel", [&] { return ReadEepromTarvel(none, 30, 1, &byte); }},
        {"AddMessageTarvel", [&] { return AddMessageTarvel(none, &msg, nullptr); }},
        {"RequestMessageTarvel",
         [&] { return RequestMessageTarvel(none, 1, 0x123, false, false, 8, false, false, nullptr); }},
        {"SignalReadValue64Tarvel", [&] { return SignalReadValue64Tarvel(none, 1, &ull, nullptr, true); }},
        {"SetPrintFunctionTarvel", [&] { return SetPrintFunctionTarvel(none, throwingSink, TARVEL_ERR); }},
        {"WaitReportsTarvel", [&] { return WaitReportsTarvel(none, &report, 1, 0); }},
        {"GetStatisticsTarvel", [&] { return GetStatisticsTarvel(none, &stats); }},
        {"GetTimeoutTarvel", [&] { return GetTimeoutTarvel(none, &u, &u); }},
    };
    for (const auto& call : calls) {
        CaptureStderr err;
        EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, call.second()) << call.first;
        EXPECT_EQ(std::string(call.first) + ": The session handle is NULL!\n", err.stop()) << call.first;
    }
    CaptureStderr err;
    StopReceiverTarvel(none);
    DebugCommTarvel(none, "trace.txt");
    PrintfErrTarvel(none, "%d\n", 1);
    PrintfInfTarvel(none, "%d\n", 1);
    DeleteTarvel(none); // the one entry point for which null means "nothing to do"
    EXPECT_EQ("StopReceiverTarvel: The session handle is NULL!\nDebugCommTarvel: The session handle is NULL!\n"
              "PrintfErrTarvel: The session handle is NULL!\nPrintfInfTarvel: The session handle is NULL!\n",
              err.stop());
}

// Null pointers an entry point can't do without are refused on the session's
// error channel; the ones an operation accepts keep their meaning.
TEST(CApiGuard, NullPointersTheEntryPointNeedsAreRefused) {
    Tarvel* t = NewTarvel();
    ASSERT_NE(nullptr, t);
    std::string said;
    static std::string* sink = nullptr;
    sink = &said;
    ClearPrintFunctionTarvel(t, nullptr, TARVEL_ERR);
    ASSERT_EQ(0, SetPrintFunctionTarvel(
                     t, [](const char* text) { *sink += text; }, TARVEL_ERR));
    const unsigned char data[8] = {};
    TarvelStatistics stats{};
    unsigned int u = 0;
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, AddMessageTarvel(t, nullptr, data));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, ReadAsyncMsgTarvel(t, 0x10123, nullptr, nullptr, 0));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, WaitReportTarvel(t, nullptr, 0));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, WaitReportsTarvel(t, nullptr, 4, 0));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, ReadReportTarvel(t, 0x10123, nullptr));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, GetStatisticsTarvel(t, nullptr));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, GetTimeoutTarvel(t, &u, nullptr));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, SetPrintFunctionTarvel(t, nullptr, TARVEL_INF));
    EXPECT_EQ(TARVEL_ERROR_NULL_POINTER, SetPrintFileTarvel(t, nullptr, TARVEL_INF));
    PrintfErrTarvel(t, nullptr);
    EXPECT_EQ("AddMessageTarvel: msg is NULL!\nReadAsyncMsgTarvel: msg is NULL!\nWaitReportTarvel: report is NULL!\n"
              "WaitReportsTarvel: reports is NULL!\nReadReportTarvel: report is NULL!\n"
              "GetStatisticsTarvel: statistics is NULL!\nGetTimeoutTarvel: a time-out pointer is NULL!\n"
              "SetPrintFunctionTarvel: func is NULL!\nSetPrintFileTarvel: file is NULL!\n"
              "PrintfErrTarvel: format is NULL!\n",
              said);
    // Null where the operation gives it a meaning: unchanged results.
    EXPECT_EQ(-5, SignalReadValue32Tarvel(t, 1, nullptr, nullptr, true));
    EXPECT_EQ(0, GetStatisticsTarvel(t, &stats));
    EXPECT_EQ(-1, ConnectTarvel(t, nullptr, 10, 10) < 0 ? -1 : 0) << "a null name is an empty name";
    DeleteTarvel(t);
}
