// The Printer on its own: sink lists, formatting, dispatch, copying, threads.
#include "Tarvel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

namespace {

// Callback sinks are plain function pointers, so what they receive is kept globally.
std::mutex g_logMutex;
std::string g_log;

void resetLog() {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log.clear();
}

std::string takeLog() {
    std::lock_guard<std::mutex> guard(g_logMutex);
    return g_log;
}

void tagA(const char*) {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log += 'A';
}
void tagB(const char*) {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log += 'B';
}
void tagC(const char*) {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log += 'C';
}
void record(const char* text) {
    std::lock_guard<std::mutex> guard(g_logMutex);
    g_log += text;
}

std::string readAll(FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string out;
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        out.append(buf, n);
    }
    return out;
}

// A C caller may pass any int as a level.
LOG_LEVELS_TARVEL levelFromInt(int v) {
    return static_cast<LOG_LEVELS_TARVEL>(v);
}

} // namespace

TEST(Printer, ConstructorRejectsZeroSizesLevelFirst) {
    try {
        Printer p(0, 0);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Invalid argument: max_level has to be > 0.");
    }
    try {
        Printer p(3, 0);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Invalid argument: max_stream has to be > 0.");
    }
    EXPECT_NO_THROW(Printer(1, 1));
}

TEST(Printer, ChannelBoundsAndCapacity) {
    Printer p(3, 5);
    std::ostringstream s;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(p.SetPrintStream(s, COM), 0) << i;
    }
    EXPECT_EQ(p.SetPrintStream(s, COM), -2);
    EXPECT_EQ(p.SetPrintStream(tagA, COM), -2);
    EXPECT_EQ(p.SetPrintStream(stdout, COM), -2);

    // Out-of-range levels, negative ones included (compared unsigned).
    for (int level : {3, 4, -1, -3}) {
        EXPECT_EQ(p.SetPrintStream(s, levelFromInt(level)), -1) << level;
        EXPECT_EQ(p.SetPrintStream(tagA, levelFromInt(level)), -1) << level;
        EXPECT_EQ(p.SetPrintStream(stdout, levelFromInt(level)), -1) << level;
        EXPECT_EQ(p.ClearPrintStream(s, levelFromInt(level)), -1) << level;
        EXPECT_EQ(p.ClearPrintStream(tagA, levelFromInt(level)), -1) << level;
        EXPECT_EQ(p.ClearPrintStream(stdout, levelFromInt(level)), -1) << level;
    }

    // A full channel keeps its five entries: one message arrives five times.
    p.Printf(COM, "%d", 7);
    EXPECT_EQ(s.str(), "77777");
    // Messages to a level outside the Printer are dropped, not misrouted.
    p.Printf(3, "x");
    p.Printf(static_cast<unsigned>(-1), "x");
    p.Write(3, "x");
    EXPECT_EQ(s.str(), "77777");
}

TEST(Printer, DispatchOrderAndRemoval) {
    Printer p(3, 5);
    resetLog();
    ASSERT_EQ(p.SetPrintStream(tagA, INF), 0);
    ASSERT_EQ(p.SetPrintStream(tagB, INF), 0);
    ASSERT_EQ(p.SetPrintStream(tagA, INF), 0);
    ASSERT_EQ(p.SetPrintStream(tagC, INF), 0);
    p.Printf(INF, "m");
    EXPECT_EQ(takeLog(), "ABAC");

    // Removing A takes both of its entries; B and C keep their order.
    resetLog();
    EXPECT_EQ(p.ClearPrintStream(tagA, INF), 0);
    p.Printf(INF, "m");
    EXPECT_EQ(takeLog(), "BC");

    // Removing what isn't there, or from another channel, changes nothing.
    resetLog();
    EXPECT_EQ(p.ClearPrintStream(tagA, INF), 0);
    EXPECT_EQ(p.ClearPrintStream(tagB, ERR), 0);
    p.Printf(INF, "m");
    EXPECT_EQ(takeLog(), "BC");

    // Freed slots can be reused up to the limit again.
    EXPECT_EQ(p.SetPrintStream(tagA, INF), 0);
    EXPECT_EQ(p.SetPrintStream(tagA, INF), 0);
    EXPECT_EQ(p.SetPrintStream(tagA, INF), 0);
    EXPECT_EQ(p.SetPrintStream(tagA, INF), -2);
}

TEST(Printer, RemovalWithoutLevelAndClearAll) {
    Printer p(3, 5);
    std::ostringstream s, other;
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    resetLog();
    for (LOG_LEVELS_TARVEL level : {ERR, INF, COM}) {
        ASSERT_EQ(p.SetPrintStream(s, level), 0);
        ASSERT_EQ(p.SetPrintStream(other, level), 0);
        ASSERT_EQ(p.SetPrintStream(f, level), 0);
        ASSERT_EQ(p.SetPrintStream(tagA, level), 0);
    }
    EXPECT_EQ(p.ClearPrintStream(s), 0);
    EXPECT_EQ(p.ClearPrintStream(f), 0);
    EXPECT_EQ(p.ClearPrintStream(tagA), 0);
    for (unsigned level = 0; level < 3; ++level) {
        p.Printf(level, "%u", level);
    }
    EXPECT_EQ(s.str(), "");
    EXPECT_EQ(other.str(), "012");
    EXPECT_EQ(readAll(f), "");
    EXPECT_EQ(takeLog(), "");

    EXPECT_EQ(p.ClearPrintStream(), 0);
    p.Printf(ERR, "gone");
    EXPECT_EQ(other.str(), "012");
    // The channels remain usable after everything was removed.
    EXPECT_EQ(p.SetPrintStream(s, COM), 0);
    p.Printf(COM, "back");
    EXPECT_EQ(s.str(), "back");
    std::fclose(f);
}

TEST(Printer, TextReachesEverySinkKindUnchanged) {
    Printer p(3, 5);
    std::ostringstream s;
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    resetLog();
    ASSERT_EQ(p.SetPrintStream(s, INF), 0);
    ASSERT_EQ(p.SetPrintStream(f, INF), 0);
    ASSERT_EQ(p.SetPrintStream(record, INF), 0);

    // Long messages are neither cut nor lost.
    std::string big(10000, 'q');
    big[0] = '<';
    big[9999] = '>';
    p.Printf(INF, "%s", big.c_str());
    EXPECT_EQ(s.str(), big);
    EXPECT_EQ(readAll(f), big);
    EXPECT_EQ(takeLog(), big);

    // A '%' produced by an argument is written as it stands, not formatted again.
    s.str("");
    resetLog();
    std::fseek(f, 0, SEEK_END);
    const char* tricky = "100%d %s %n%%";
    p.Printf(INF, "[%s]\n", tricky);
    EXPECT_EQ(s.str(), "[100%d %s %n%%]\n");
    EXPECT_EQ(takeLog(), "[100%d %s %n%%]\n");
    EXPECT_EQ(readAll(f).substr(big.size()), "[100%d %s %n%%]\n");
    std::fclose(f);
}

TEST(Printer, EmptyTextCallsNoSink) {
    Printer p(3, 5);
    std::ostringstream s;
    resetLog();
    ASSERT_EQ(p.SetPrintStream(record, ERR), 0);
    ASSERT_EQ(p.SetPrintStream(tagA, ERR), 0);
    ASSERT_EQ(p.SetPrintStream(s, ERR), 0);
    p.Printf(ERR, "%s", "");
    p.Printf(ERR, "%.0s", "hidden");
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(s.str(), "");
    p.Printf(ERR, "%c", 'z');
    EXPECT_EQ(takeLog(), "zA");
}

TEST(Printer, CopiesShareTargetsButNotLists) {
    Printer original(3, 5);
    std::ostringstream s;
    resetLog();
    ASSERT_EQ(original.SetPrintStream(s, ERR), 0);
    ASSERT_EQ(original.SetPrintStream(tagA, ERR), 0);

    Printer copy(original);
    copy.Printf(ERR, "c");
    EXPECT_EQ(s.str(), "c");
    EXPECT_EQ(takeLog(), "A");

    // Changing the copy's lists leaves the original alone.
    EXPECT_EQ(copy.ClearPrintStream(), 0);
    original.Printf(ERR, "o");
    EXPECT_EQ(s.str(), "co");
    EXPECT_EQ(takeLog(), "AA");

    // Assignment takes over the sizes too: one channel of one sink becomes 3 x 5.
    Printer small(1, 1);
    ASSERT_EQ(small.SetPrintStream(tagB, ERR), 0);
    small = original;
    resetLog();
    small.Printf(ERR, "a");
    EXPECT_EQ(takeLog(), "A");
    EXPECT_EQ(small.SetPrintStream(tagC, COM), 0);
    EXPECT_EQ(small.SetPrintStream(tagC, COM), 0);
    EXPECT_EQ(small.SetPrintStream(tagC, ERR), 0);

    Printer& alias = small;
    small = alias;
    resetLog();
    small.Printf(ERR, "a");
    EXPECT_EQ(takeLog(), "AC");
}

// --- Callbacks that use the Printer themselves ------------------------------------

namespace {

Printer* g_reentrant = nullptr;

void forwardToErr(const char* text) {
    g_reentrant->Printf(ERR, "fwd:%s", text);
}

void removeMyself(const char* text) {
    record(text);
    g_reentrant->ClearPrintStream(removeMyself);
}

} // namespace

TEST(Printer, CallbackMayPrintAndChangeSinksOfTheSamePrinter) {
    Printer p(3, 5);
    g_reentrant = &p;
    resetLog();
    ASSERT_EQ(p.SetPrintStream(forwardToErr, INF), 0);
    ASSERT_EQ(p.SetPrintStream(record, ERR), 0);
    p.Printf(INF, "hello");
    EXPECT_EQ(takeLog(), "fwd:hello");

    // A callback that removes itself still completes the current message,
    // and the other sinks of the snapshot still get it.
    resetLog();
    ASSERT_EQ(p.SetPrintStream(removeMyself, COM), 0);
    ASSERT_EQ(p.SetPrintStream(tagB, COM), 0);
    p.Printf(COM, "1");
    p.Printf(COM, "2");
    EXPECT_EQ(takeLog(), "1BB");
    g_reentrant = nullptr;
}

// --- Threads --------------------------------------------------------------------------

namespace {

std::atomic<long> g_steadyCount{0};
std::atomic<long> g_churnCount{0};
void countSteady(const char*) {
    g_steadyCount.fetch_add(1, std::memory_order_relaxed);
}
void countChurn(const char*) {
    g_churnCount.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

TEST(Printer, PrintingWhileSinksChange) {
    Printer p(3, 5);
    ASSERT_EQ(p.SetPrintStream(countSteady, INF), 0);
    g_steadyCount = 0;
    g_churnCount = 0;
    constexpr int kThreads = 3;
    constexpr int kMessages = 3000;
    std::atomic<bool> stop{false};
    std::atomic<int> badResults{0};
    std::atomic<int> cycles{0};

    // One thread keeps filling and emptying the channel the others print to.
    std::thread churn([&] {
        while (!stop.load()) {
            for (int i = 0; i < 5; ++i) {
                int r = p.SetPrintStream(countChurn, INF);
                if (r != 0 && r != -2) {
                    badResults++;
                }
            }
            p.ClearPrintStream(countChurn, INF);
            p.ClearPrintStream(countChurn);
            cycles++;
        }
    });
    while (cycles.load() == 0) {
        std::this_thread::yield();
    }
    std::vector<std::thread> printers;
    for (int t = 0; t < kThreads; ++t) {
        printers.emplace_back([&p, t] {
            for (int i = 0; i < kMessages; ++i) {
                p.Printf(INF, "%d:%d\n", t, i);
            }
        });
    }
    for (std::thread& t : printers) {
        t.join();
    }
    stop = true;
    churn.join();

    // The sink that stayed attached saw every message exactly once.
    EXPECT_EQ(g_steadyCount.load(), long{kThreads} * kMessages);
    EXPECT_EQ(badResults.load(), 0);
    // Whatever the churn left, the channel never exceeded its limit.
    p.ClearPrintStream(countChurn);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(p.SetPrintStream(countChurn, INF), 0);
    }
    EXPECT_EQ(p.SetPrintStream(countChurn, INF), -2);
}

namespace {

// Counts writes that arrive after `removed` was set.
class LateWriteCounter : public std::streambuf {
public:
    std::atomic<bool> removed{false};
    std::atomic<int> late{0};

protected:
    int_type overflow(int_type c) override {
        note();
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char*, std::streamsize n) override {
        note();
        return n;
    }

private:
    void note() {
        if (removed.load()) {
            late++;
        }
    }
};

std::atomic<bool> g_gateEntered{false};
std::atomic<bool> g_gateOpen{false};

// Holds a dispatch after its snapshot was taken until the test opens the gate.
void gate(const char*) {
    g_gateEntered = true;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!g_gateOpen.load() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
}

} // namespace

TEST(Printer, NothingReachesAStreamOrFileOnceItsRemovalReturned) {
    Printer p(3, 5);
    LateWriteCounter buffer;
    std::ostream stream(&buffer);
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    g_gateEntered = false;
    g_gateOpen = false;
    ASSERT_EQ(p.SetPrintStream(gate, INF), 0);
    ASSERT_EQ(p.SetPrintStream(stream, INF), 0);
    ASSERT_EQ(p.SetPrintStream(f, INF), 0);

    // Another thread's message has both targets in its snapshot when they are removed.
    std::thread other([&p] { p.Printf(INF, "late"); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!g_gateEntered.load() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(g_gateEntered.load());
    EXPECT_EQ(p.ClearPrintStream(stream, INF), 0);
    EXPECT_EQ(p.ClearPrintStream(f), 0);
    buffer.removed = true;
    g_gateOpen = true;
    other.join();

    EXPECT_EQ(buffer.late.load(), 0);
    EXPECT_EQ(readAll(f), "");
    std::fclose(f);
}
