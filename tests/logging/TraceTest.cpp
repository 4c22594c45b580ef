// The packet trace lines and the trace file.
#include "Tarvel.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string g_err;
void recordErr(const char* text) {
    g_err += text;
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path); // text mode: the trace is written as text
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

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
        tarvel.DebugComm(nullptr, 0);
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    // The line DataPrint writes, with the clock value checked and cut off.
    std::string traced(const ByteVector& data, int direction) {
        com.str("");
        const auto before = static_cast<uint32_t>(Tarvel::GetTickMs());
        tarvel.DataPrint(data, direction);
        const auto after = static_cast<uint32_t>(Tarvel::GetTickMs());
        // The clock value comes first; with direction 0 the bytes follow it
        // directly, so match it against the clock readings around the call.
        const std::string line = com.str();
        for (uint32_t stamp = before; stamp != after + 1; ++stamp) {
            const std::string prefix = std::to_string(stamp);
            if (line.compare(0, prefix.size(), prefix) == 0) {
                return line.substr(prefix.size());
            }
        }
        ADD_FAILURE() << "no clock value between " << before << " and " << after << " in: " << line;
        return line;
    }

    Tarvel tarvel;
    std::ostringstream com;
    fs::path dir;
};

const std::string kSeparator = "\n" + std::string(80, '-');

} // namespace

TEST_F(Trace, LineFormatPerDirection) {
    EXPECT_EQ(traced({0x03, 0x04, 0x09, 0x00, 0x10}, 1), ":>> 0x03 0x04 0x09 0x00 0x10 \n");
    EXPECT_EQ(traced({0x02, 0x80, 0x00, 0x82}, -1), ":<< 0x02 0x80 0x00 0x82 " + kSeparator + "\n");
    EXPECT_EQ(traced({0x0A, 0xFF, 0x00}, -2), ":<< ERROR! 0x0A 0xFF 0x00 " + kSeparator + "\n");
    EXPECT_EQ(traced({0xAB}, -10), ":<< ERROR! 0xAB " + kSeparator + "\n");
    EXPECT_EQ(traced({0x5C}, 0), "0x5C " + kSeparator + "\n");
    EXPECT_EQ(traced({}, 1), ":>> \n");
    EXPECT_EQ(traced({}, 0), kSeparator + "\n");
    EXPECT_EQ(traced({0x25}, 7), ":>> 0x25 \n");
    EXPECT_TRUE(g_err.empty()) << g_err;
}

TEST_F(Trace, LongPacketIsOneLine) {
    ByteVector data(256);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(i);
    }
    const std::string line = traced(data, 1);
    ASSERT_EQ(line.size(), 4 + 256 * 5 + 1);
    EXPECT_EQ(line.substr(4, 15), "0x00 0x01 0x02 ");
    EXPECT_EQ(line.substr(line.size() - 11), "0xFE 0xFF \n");
}

TEST_F(Trace, FileCollectsAllChannelsAndIsWrittenThrough) {
    const fs::path path = dir / "trace.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    EXPECT_EQ(g_err, "");
    tarvel.Printf_err("e1\n");
    tarvel.Printf_inf("i1\n");
    tarvel.DataPrint({0x01}, 1);
    // Read while the file is still open: every line is already there.
    const std::string content = readFile(path);
    EXPECT_TRUE(std::regex_match(content, std::regex("e1\ni1\n[0-9]+:>> 0x01 \n"))) << content;
    EXPECT_EQ(g_err, "e1\n");

    // A null name closes the trace; later output no longer reaches the file.
    tarvel.DebugComm(nullptr, 0);
    tarvel.Printf_inf("after\n");
    EXPECT_EQ(readFile(path), content);
}

TEST_F(Trace, ReopeningTruncatesAndAttachesOnce) {
    const fs::path path = dir / "again.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    tarvel.Printf_inf("first\n");
    tarvel.DebugComm(path.string().c_str(), 0);
    EXPECT_EQ(readFile(path), "");
    tarvel.Printf_inf("second\n");
    EXPECT_EQ(readFile(path), "second\n");
    // The file holds one slot per channel, not two: four more sinks still fit on INF.
    std::ostringstream s;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tarvel.SetPrintStream(s, INF), 0);
    }
    EXPECT_EQ(tarvel.SetPrintStream(s, INF), -2);
}

TEST_F(Trace, AppendModeKeepsOldContent) {
    const fs::path path = dir / "app.log";
    {
        std::ofstream old(path);
        old << "old\n";
    }
    tarvel.DebugComm(path.string().c_str(), static_cast<int>(std::ios_base::app));
    tarvel.Printf_err("new\n");
    EXPECT_EQ(readFile(path), "old\nnew\n");
}

TEST_F(Trace, NullNameWithoutTraceDoesNothing) {
    tarvel.DebugComm(nullptr, 0);
    tarvel.DebugComm(nullptr, static_cast<int>(std::ios_base::app));
    EXPECT_EQ(g_err, "");
    tarvel.Printf_err("e");
    EXPECT_EQ(g_err, "e");
}

TEST_F(Trace, UnopenableFileIsReportedAndNothingAttached) {
    const std::string name = (dir / "missing" / "trace.log").string();
    tarvel.DebugComm(name.c_str(), 0);
    EXPECT_EQ(g_err, "Tarvel::DebugComm: Unable to open file: " + name);
    EXPECT_FALSE(fs::exists(dir / "missing"));
    // Nothing was attached: ERR still has four free slots (one is the recorder).
    g_err.clear();
    std::ostringstream s;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tarvel.SetPrintStream(s, ERR), 0);
    }
    tarvel.ClearPrintStream(s);

    // A later good name still works after the failure.
    const fs::path good = dir / "good.log";
    tarvel.DebugComm(good.string().c_str(), 0);
    tarvel.Printf_inf("ok\n");
    EXPECT_EQ(readFile(good), "ok\n");
    EXPECT_EQ(g_err, "");
}

TEST_F(Trace, FullErrChannelIsReportedToItsSinks) {
    std::ostringstream s1, s2, s3, s4;
    ASSERT_EQ(tarvel.SetPrintStream(s1, ERR), 0);
    ASSERT_EQ(tarvel.SetPrintStream(s2, ERR), 0);
    ASSERT_EQ(tarvel.SetPrintStream(s3, ERR), 0);
    ASSERT_EQ(tarvel.SetPrintStream(s4, ERR), 0);
    const fs::path path = dir / "full.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    const std::string expected =
        "Tarvel::DebugComm: Unable to add filestream to ERR channel. (max streams target reached)";
    EXPECT_EQ(g_err, expected);
    for (const std::ostringstream* s : {&s1, &s2, &s3, &s4}) {
        EXPECT_EQ(s->str(), expected);
    }
    // INF and COM still reach the file, ERR doesn't.
    tarvel.Printf_err("not in file\n");
    tarvel.Printf_inf("inf\n");
    tarvel.DataPrint({0x7F}, 1);
    EXPECT_TRUE(std::regex_match(readFile(path), std::regex("inf\n[0-9]+:>> 0x7F \n"))) << readFile(path);
}

TEST_F(Trace, FullInfAndComChannelsAreReportedOnErr) {
    std::ostringstream s;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(tarvel.SetPrintStream(s, INF), 0);
    }
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(tarvel.SetPrintStream(s, COM), 0);
    }
    const fs::path path = dir / "partial.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    EXPECT_EQ(g_err, "Tarvel::DebugComm: Unable to add filestream to INF channel. (max streams target reached)"
                     "Tarvel::DebugComm: Unable to add filestream to COM channel. (max streams target reached)");
    // The ERR attachment worked, so the file got both reports too.
    EXPECT_EQ(readFile(path), g_err);
}

TEST_F(Trace, AssignmentClosesTheTargetsTraceFile) {
    const fs::path path = dir / "assigned.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    tarvel.Printf_inf("before\n");

    Tarvel& self = tarvel;
    tarvel = self;
    tarvel.Printf_inf("self\n");
    EXPECT_EQ(readFile(path), "before\nself\n");

    Tarvel source;
    source.ClearPrintStream();
    tarvel = source;
    tarvel.Printf_inf("after\n");
    EXPECT_EQ(readFile(path), "before\nself\n");
    // The target's fresh stream can trace again.
    tarvel.DebugComm(path.string().c_str(), 0);
    tarvel.Printf_inf("again\n");
    EXPECT_EQ(readFile(path), "again\n");
}

namespace {

// Counts the lines "<clock>:>> 0xAA 0x.. " and "... 0xBB 0x.. "; any other line counts as bad.
struct LineCount {
    int aa = 0, bb = 0, bad = 0;
};

LineCount countTraceLines(const std::string& text) {
    static const std::regex shape("[0-9]+:>> 0x(AA|BB) 0x[0-9A-F]{2} ");
    LineCount c;
    std::istringstream in(text);
    std::string line;
    std::smatch m;
    while (std::getline(in, line)) {
        if (!std::regex_match(line, m, shape)) {
            ++c.bad;
        } else if (m[1] == "AA") {
            ++c.aa;
        } else {
            ++c.bb;
        }
    }
    return c;
}

} // namespace

TEST_F(Trace, LinesOfTwoThreadsReachFileAndStreamWhole) {
    // The receiver thread and the application thread trace at the same time.
    const fs::path path = dir / "threads.log";
    tarvel.DebugComm(path.string().c_str(), 0);
    const int lines = 2000;
    auto traceLines = [this, lines](unsigned char tag) {
        for (int i = 0; i < lines; ++i) {
            tarvel.DataPrint({tag, static_cast<unsigned char>(i)}, 1);
        }
    };
    std::thread other(traceLines, 0xAA);
    traceLines(0xBB);
    other.join();
    tarvel.DebugComm(nullptr, 0);
    for (const std::string& text : {readFile(path), com.str()}) {
        const LineCount c = countTraceLines(text);
        EXPECT_EQ(c.bad, 0);
        EXPECT_EQ(c.aa, lines);
        EXPECT_EQ(c.bb, lines);
    }
}
