// The session's logging front: default sinks, the packet trace lines, the
// trace file, copies, and two threads tracing while the sinks change.
#include "Tarvel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "CaptureStderr.h"

namespace fs = std::filesystem;

namespace {

TEST(SessionLogging, DefaultSinksAndTheirRemoval) {
    CaptureStderr err;
    std::ostringstream out;
    std::streambuf* const cout = std::cout.rdbuf(out.rdbuf());
    Tarvel t;
    t.Printf_err("x%d\n", 1);
    t.Printf_inf("y%s\n", "2");
    t.DataPrint(ByteVector{1, 2, 3}, 1);
    EXPECT_EQ(err.text(), "x1\n");
    EXPECT_EQ(out.str(), "y2\n");

    // Without std::cerr, ERR reaches the standard error stream no more.
    EXPECT_EQ(t.ClearPrintStream(std::cerr, ERR), 0);
    t.Printf_err("abc");
    EXPECT_EQ(err.stop(), "x1\n");

    // Clearing everything takes std::cout off INF too.
    EXPECT_EQ(t.ClearPrintStream(), 0);
    t.Printf_inf("lost\n");
    std::cout.rdbuf(cout);
    EXPECT_EQ(out.str(), "y2\n");
}

std::string g_err;
void recordErr(const char* text) {
    g_err += text;
}

std::string contents(const fs::path& path) {
    std::ifstream in(path); // text mode: the trace is written as text
    return std::string(std::istreambuf_iterator<char>(in), {});
}

const std::string kSeparator = "\n" + std::string(80, '-');

class Trace : public ::testing::Test {
protected:
    void SetUp() override {
        tarvel.ClearPrintStream();
        g_err.clear();
        ASSERT_EQ(tarvel.SetPrintStream(recordErr, ERR), 0);
        ASSERT_EQ(tarvel.SetPrintStream(com, COM), 0);
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::temp_directory_path() /
              ("tarvel_trace_" + std::string(info->name()) + "_" + std::to_string(Tarvel::GetTickMs()));
        fs::create_directories(dir);
    }
    void TearDown() override {
        tarvel.DebugComm(nullptr, 0); // also where no trace was opened: nothing to close
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    // The line DataPrint writes, without its clock value.
    std::string traced(const ByteVector& data, int direction) {
        com.str("");
        tarvel.DataPrint(data, direction);
        return std::regex_replace(com.str(), std::regex("^[0-9]+(?=0x|:|\n)"), "");
    }

    // Opens the trace file `name` in the test's directory; returns its path.
    std::string trace(const char* name, int mode = 0) {
        const std::string path = (dir / name).string();
        tarvel.DebugComm(path.c_str(), mode);
        return path;
    }

    Tarvel tarvel;
    std::ostringstream com;
    fs::path dir;
};

// Received lines (":<< ", ":<< ERROR! ") are checked in ParseMessageTest, sent
// ones in the trace-file tests below; here the unmarked one and a long packet.
TEST_F(Trace, LineFormat) {
    EXPECT_EQ(traced({0x5C}, 0), "0x5C " + kSeparator + "\n");
    EXPECT_EQ(traced({}, 0), kSeparator + "\n");

    // A long packet is one line, whole.
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += "0xEC ";
    EXPECT_EQ(traced(ByteVector(256, 0xEC), 1), ":>> " + bytes + "\n");
    EXPECT_TRUE(g_err.empty()) << g_err;
}

TEST_F(Trace, FileCollectsAllChannelsIsWrittenThroughAndReopensTruncatingOrAppending) {
    const std::string path = trace("trace.log");
    tarvel.Printf_err("e1\n");
    tarvel.Printf_inf("i1\n");
    tarvel.DataPrint({0x01}, 1);
    // Read while the file is still open: every line is already there.
    const std::string content = contents(path);
    EXPECT_TRUE(std::regex_match(content, std::regex("e1\ni1\n[0-9]+:>> 0x01 \n"))) << content;
    EXPECT_EQ(g_err, "e1\n");

    // A null name closes the trace; later output no longer reaches the file.
    tarvel.DebugComm(nullptr, 0);
    tarvel.Printf_inf("after\n");
    EXPECT_EQ(contents(path), content);

    trace("trace.log");
    EXPECT_EQ(contents(path), "");
    tarvel.Printf_inf("second\n");
    trace("trace.log", static_cast<int>(std::ios_base::app));
    tarvel.Printf_err("third\n");
    EXPECT_EQ(contents(path), "second\nthird\n");
}

TEST_F(Trace, UnopenableFileIsReportedAndNothingAttached) {
    const std::string name = (dir / "missing" / "trace.log").string();
    tarvel.DebugComm(name.c_str(), 0);
    EXPECT_EQ(g_err, "Tarvel::DebugComm: Unable to open file: " + name);
    EXPECT_FALSE(fs::exists(dir / "missing"));
    // Nothing was attached: ERR still has four free slots (one is the recorder).
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(tarvel.SetPrintStream(com, ERR), i < 4 ? 0 : -2) << i;
}

TEST_F(Trace, AFullErrChannelIsReportedToItsSinks) {
    const std::string report =
        "Tarvel::DebugComm: Unable to add filestream to ERR channel. (max streams target reached)";
    // INF and COM still reach the file.
    std::ostringstream s[4];
    for (std::ostringstream& one : s)
        ASSERT_EQ(tarvel.SetPrintStream(one, ERR), 0);
    const std::string path = trace("full.log");
    EXPECT_EQ(g_err, report);
    EXPECT_EQ(s[3].str(), report);
    tarvel.Printf_err("not in file\n");
    tarvel.Printf_inf("inf\n");
    tarvel.DataPrint({0x7F}, 1);
    EXPECT_TRUE(std::regex_match(contents(path), std::regex("inf\n[0-9]+:>> 0x7F \n"))) << contents(path);
}

TEST_F(Trace, CopiesTakeOverSinksAndAssignmentClosesTheTrace) {
    const std::string path = trace("assigned.log");
    Tarvel source;
    source.ClearPrintStream();
    std::ostringstream taken;
    ASSERT_EQ(source.SetPrintStream(taken, INF), 0);
    // A copy shares the sinks and gets no default ones of its own: ERR has room for five.
    Tarvel copy(source);
    copy.Printf_inf("copy\n");
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(copy.SetPrintStream(com, ERR), i < 5 ? 0 : -2) << i;
    // The lists are the copy's own: clearing them leaves the source's alone.
    EXPECT_EQ(copy.ClearPrintStream(), 0);
    tarvel.Printf_inf("before\n");
    tarvel = source;
    tarvel.Printf_inf("after\n");
    EXPECT_EQ(taken.str(), "copy\nafter\n");
    EXPECT_EQ(contents(path), "before\n");
}

// The receiver thread and the application thread trace at once while a
// third thread keeps filling and emptying the channel: every line reaches
// the file and the stream whole, and a sink that stays sees each line once.
TEST_F(Trace, TwoThreadsTraceWholeLinesWhileTheSinksChange) {
    static std::atomic<long> steadyCalls;
    steadyCalls = 0;
    void (*churning)(const char*) = [](const char*) {};
    ASSERT_EQ(tarvel.SetPrintStream([](const char*) { steadyCalls++; }, COM), 0);
    const std::string path = trace("threads.log");
    std::atomic<bool> stop{false};
    std::atomic<int> badResults{0};
    std::thread churn([&] {
        while (!stop) {
            const int r = tarvel.SetPrintStream(churning, COM);
            badResults += (r != 0 && r != -2) ? 1 : 0;
            tarvel.ClearPrintStream(churning);
        }
    });
    const int lines = 2000;
    auto traceLines = [this, lines](unsigned char tag) {
        for (int i = 0; i < lines; ++i)
            tarvel.DataPrint({tag, static_cast<unsigned char>(i)}, 1);
    };
    std::thread other(traceLines, 0xAA);
    traceLines(0xBB);
    other.join();
    stop = true;
    churn.join();
    tarvel.DebugComm(nullptr, 0);

    EXPECT_EQ(steadyCalls.load(), 2L * lines);
    EXPECT_EQ(badResults.load(), 0);
    const std::regex shape("[0-9]+:>> 0x(AA|BB) 0x[0-9A-F]{2} ");
    for (const std::string& text : {contents(path), com.str()}) {
        int perTag[2] = {0, 0};
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            ASSERT_TRUE(std::regex_match(line, shape)) << line;
            ++perTag[line.find(":>> 0xAA") != std::string::npos ? 0 : 1];
        }
        EXPECT_EQ(perTag[0], lines);
        EXPECT_EQ(perTag[1], lines);
    }
}

} // namespace
