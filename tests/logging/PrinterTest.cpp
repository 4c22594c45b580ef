// The Printer on its own: sink lists, formatting, dispatch, and a removal
// that races a dispatch (copies: through the session, SessionLoggingTest).
#include "Tarvel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "Wait.h"

namespace {

// Callback sinks are plain function pointers, so what they receive is kept globally.
std::mutex g_logMutex;
std::string g_log;

void record(const char* text) {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log += text;
}

// Records only that this sink was called.
template <char Tag> void tag(const char*) {
    const char text[] = {Tag, '\0'};
    record(text);
}

// What the callbacks received since the last call.
std::string takeLog() {
    std::lock_guard<std::mutex> guard(g_logMutex);
    std::string out;
    out.swap(g_log);
    return out;
}

std::string readAll(FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string out;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
        out.append(buf, n);
    return out;
}

TEST(Printer, ConstructorRejectsZeroSizesLevelFirst) {
    for (unsigned levels : {0u, 3u}) {
        try {
            Printer p(levels, 0);
            ADD_FAILURE() << "no exception for " << levels << " x 0";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), levels == 0 ? "Invalid argument: max_level has to be > 0."
                                               : "Invalid argument: max_stream has to be > 0.");
        }
    }
}

TEST(Printer, ChannelBoundsCapacityDispatchOrderAndRemoval) {
    Printer p(3, 5);
    std::ostringstream s;
    // Out-of-range levels, negative ones included (a C caller may pass any int).
    for (int level : {3, -1}) {
        const auto l = static_cast<LOG_LEVELS_TARVEL>(level);
        EXPECT_EQ(p.SetPrintStream(s, l), -1) << level;
        EXPECT_EQ(p.SetPrintStream(tag<'A'>, l), -1) << level;
        EXPECT_EQ(p.SetPrintStream(stdout, l), -1) << level;
        EXPECT_EQ(p.ClearPrintStream(s, l), -1) << level;
    }
    takeLog();
    for (auto sink : {tag<'A'>, tag<'B'>, tag<'A'>, tag<'C'>, tag<'D'>})
        ASSERT_EQ(p.SetPrintStream(sink, INF), 0);
    EXPECT_EQ(p.SetPrintStream(s, INF), -2) << "five sinks a channel";
    EXPECT_EQ(p.SetPrintStream(stdout, INF), -2);
    p.Printf(INF, "m");
    p.Printf(3, "x"); // dropped, not misrouted
    p.Printf(static_cast<unsigned>(-1), "x");
    EXPECT_EQ(takeLog(), "ABACD");

    // Removing A takes both of its entries; the rest keep their order.
    // Removing what isn't there, or from another channel, changes nothing.
    EXPECT_EQ(p.ClearPrintStream(tag<'A'>, INF), 0);
    EXPECT_EQ(p.ClearPrintStream(tag<'B'>, ERR), 0);
    p.Printf(INF, "m");
    EXPECT_EQ(takeLog(), "BCD");
    // Freed slots can be used up to the limit again.
    EXPECT_EQ(p.SetPrintStream(tag<'A'>, INF), 0);
    EXPECT_EQ(p.SetPrintStream(tag<'A'>, INF), 0);
    EXPECT_EQ(p.SetPrintStream(tag<'A'>, INF), -2);
    // A copy has the same sinks; assigning it to itself changes nothing (and must not deadlock).
    Printer copy(p);
    copy = *&copy;
    copy.Printf(INF, "m");
    EXPECT_EQ(takeLog(), "BCDAA");
}

TEST(Printer, TextReachesEverySinkKindUnchanged) {
    Printer p(3, 5);
    std::ostringstream s;
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    takeLog();
    ASSERT_EQ(p.SetPrintStream(s, INF), 0);
    ASSERT_EQ(p.SetPrintStream(f, INF), 0);
    ASSERT_EQ(p.SetPrintStream(record, INF), 0);
    ASSERT_EQ(p.SetPrintStream(tag<'|'>, INF), 0);

    // Long messages are neither cut nor lost; a '%' produced by an argument is
    // written as it stands, not formatted again; empty text calls no sink.
    std::string big(10000, 'q');
    big.front() = '<';
    big.back() = '>';
    p.Printf(INF, "%s", big.c_str());
    p.Printf(INF, "[%s]\n", "100%d %s %n%%");
    p.Printf(INF, "%s", "");
    p.Printf(INF, "%.0s", "hidden");
    const std::string expected = big + "[100%d %s %n%%]\n";
    EXPECT_EQ(s.str(), expected);
    EXPECT_EQ(readAll(f), expected);
    EXPECT_EQ(takeLog(), big + "|[100%d %s %n%%]\n|");
    std::fclose(f);
}

TEST(Printer, CallbackMayPrintAndChangeSinksOfTheSamePrinter) {
    static Printer* printer = nullptr;
    void (*forwardToErr)(const char*) = [](const char* text) { printer->Printf(ERR, "fwd:%s", text); };
    static void (*removeMyself)(const char*) = [](const char* text) {
        record(text);
        printer->ClearPrintStream(removeMyself);
    };
    Printer p(3, 5);
    printer = &p;
    takeLog();
    ASSERT_EQ(p.SetPrintStream(forwardToErr, INF), 0);
    ASSERT_EQ(p.SetPrintStream(record, ERR), 0);
    p.Printf(INF, "hello");
    EXPECT_EQ(takeLog(), "fwd:hello");

    // A callback that removes itself still completes the current message,
    // and the other sinks of the snapshot still get it.
    ASSERT_EQ(p.SetPrintStream(removeMyself, COM), 0);
    ASSERT_EQ(p.SetPrintStream(tag<'B'>, COM), 0);
    p.Printf(COM, "1");
    p.Printf(COM, "2");
    EXPECT_EQ(takeLog(), "1BB");
}

std::atomic<bool> g_gateEntered{false};
std::atomic<bool> g_gateOpen{false};

// Holds a dispatch after its snapshot was taken until the test opens the gate.
void gate(const char*) {
    g_gateEntered = true;
    eventually([] { return g_gateOpen.load(); });
}

TEST(Printer, NothingReachesAStreamOrFileOnceItsRemovalReturned) {
    Printer p(3, 5);
    std::ostringstream stream;
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(p.SetPrintStream(gate, INF), 0);
    ASSERT_EQ(p.SetPrintStream(stream, INF), 0);
    ASSERT_EQ(p.SetPrintStream(f, INF), 0);

    // Another thread's message has both targets in its snapshot when they are
    // removed; the gate holds it there until the removals have returned.
    std::thread other([&p] { p.Printf(INF, "late"); });
    EXPECT_TRUE(eventually([] { return g_gateEntered.load(); }));
    EXPECT_EQ(p.ClearPrintStream(stream), 0); // from every channel
    EXPECT_EQ(p.ClearPrintStream(f), 0);
    g_gateOpen = true;
    other.join();

    EXPECT_EQ(stream.str(), "");
    EXPECT_EQ(readAll(f), "");
    std::fclose(f);
}

} // namespace
