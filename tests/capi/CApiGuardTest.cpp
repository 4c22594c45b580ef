// The C entry points keep C++ exceptions from reaching C callers.
#include <gtest/gtest.h>

#include <stdexcept>

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
