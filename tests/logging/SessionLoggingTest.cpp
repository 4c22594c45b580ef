// The session's logging front: default sinks, forwarding, copies.
#include "Tarvel.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

// Redirects a standard stream into a string for the life of the object.
class StreamCapture {
public:
    explicit StreamCapture(std::ostream& stream) : m_stream(stream), m_old(stream.rdbuf(m_buffer.rdbuf())) {}
    ~StreamCapture() { m_stream.rdbuf(m_old); }
    std::string str() const { return m_buffer.str(); }

private:
    std::ostream& m_stream;
    std::ostringstream m_buffer;
    std::streambuf* m_old;
};

std::string g_log;
void record(const char* text) {
    g_log += text;
}
void recordOther(const char* text) {
    g_log += std::string("other:") + text;
}

FILE* g_orderFile = nullptr;
long g_filePosSeenByCallback = -1;
void noteFilePosition(const char*) {
    g_filePosSeenByCallback = std::ftell(g_orderFile);
}

void viaErrList(Tarvel& t, const char* format, ...) {
    va_list args;
    va_start(args, format);
    t.vPrintf_err(format, args);
    va_end(args);
}

void viaInfList(Tarvel& t, const char* format, ...) {
    va_list args;
    va_start(args, format);
    t.vPrintf_inf(format, args);
    va_end(args);
}

LOG_LEVELS_TARVEL levelFromInt(int v) {
    return static_cast<LOG_LEVELS_TARVEL>(v);
}

} // namespace

TEST(SessionLogging, NewSessionWritesErrorsToCerrAndInformationToCout) {
    StreamCapture err(std::cerr);
    StreamCapture out(std::cout);
    Tarvel t;
    t.Printf_err("x%d\n", 1);
    EXPECT_EQ(err.str(), "x1\n");
    EXPECT_EQ(out.str(), "");
    t.Printf_inf("y%s\n", "2");
    EXPECT_EQ(err.str(), "x1\n");
    EXPECT_EQ(out.str(), "y2\n");
    // The trace channel has no sink by default.
    t.DataPrint(ByteVector{1, 2, 3}, 1);
    EXPECT_EQ(err.str(), "x1\n");
    EXPECT_EQ(out.str(), "y2\n");
}

TEST(SessionLogging, ArgumentListFormsUseTheirChannel) {
    Tarvel t;
    std::ostringstream err, inf;
    t.ClearPrintStream();
    ASSERT_EQ(t.SetPrintStream(err, ERR), 0);
    ASSERT_EQ(t.SetPrintStream(inf, INF), 0);
    viaErrList(t, "e%03d|%s\n", 7, "a");
    viaInfList(t, "i%x\n", 255u);
    EXPECT_EQ(err.str(), "e007|a\n");
    EXPECT_EQ(inf.str(), "iff\n");
}

TEST(SessionLogging, SinkLimitsCountTheDefaultSinks) {
    Tarvel t;
    std::ostringstream s;
    // ERR already holds std::cerr: four more fit.
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(t.SetPrintStream(s, ERR), 0) << i;
    }
    EXPECT_EQ(t.SetPrintStream(s, ERR), -2);
    // COM starts empty: five fit.
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(t.SetPrintStream(record, COM), 0) << i;
    }
    EXPECT_EQ(t.SetPrintStream(stdout, COM), -2);
    // The session has three channels; levels compare unsigned.
    EXPECT_EQ(t.SetPrintStream(s, levelFromInt(3)), -1);
    EXPECT_EQ(t.SetPrintStream(record, levelFromInt(-1)), -1);
    EXPECT_EQ(t.ClearPrintStream(stdout, levelFromInt(3)), -1);
}

TEST(SessionLogging, DuplicateCallbackIsCalledTwiceAndRemovedAtOnce) {
    Tarvel t;
    t.ClearPrintStream();
    g_log.clear();
    ASSERT_EQ(t.SetPrintStream(record, INF), 0);
    ASSERT_EQ(t.SetPrintStream(record, INF), 0);
    t.Printf_inf("m;");
    EXPECT_EQ(g_log, "m;m;");
    EXPECT_EQ(t.ClearPrintStream(record, INF), 0);
    t.Printf_inf("n;");
    EXPECT_EQ(g_log, "m;m;");
}

TEST(SessionLogging, RemovingCerrKeepsFileThenCallbackInOrder) {
    StreamCapture err(std::cerr);
    Tarvel t;
    g_orderFile = std::tmpfile();
    ASSERT_NE(g_orderFile, nullptr);
    g_filePosSeenByCallback = -1;
    ASSERT_EQ(t.SetPrintStream(g_orderFile, ERR), 0);
    ASSERT_EQ(t.SetPrintStream(noteFilePosition, ERR), 0);
    EXPECT_EQ(t.ClearPrintStream(std::cerr, ERR), 0);
    t.Printf_err("abc");
    EXPECT_EQ(err.str(), "");
    // The callback ran after the file had received the text.
    EXPECT_EQ(g_filePosSeenByCallback, 3);
    std::fclose(g_orderFile);
    g_orderFile = nullptr;
}

TEST(SessionLogging, ClearAllThenCoutOnErr) {
    StreamCapture err(std::cerr);
    StreamCapture out(std::cout);
    Tarvel t;
    EXPECT_EQ(t.ClearPrintStream(), 0);
    t.Printf_inf("lost\n");
    EXPECT_EQ(t.SetPrintStream(std::cout, ERR), 0);
    t.Printf_err("e\n");
    EXPECT_EQ(out.str(), "e\n");
    EXPECT_EQ(err.str(), "");
}

TEST(SessionLogging, CopySharesSinksAndKeepsItsOwnLists) {
    Tarvel original;
    original.ClearPrintStream();
    g_log.clear();
    ASSERT_EQ(original.SetPrintStream(record, ERR), 0);

    Tarvel copy(original);
    copy.Printf_err("c;");
    EXPECT_EQ(g_log, "c;");
    // The copy got no default sinks of its own: ERR still has room for four.
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(copy.SetPrintStream(recordOther, ERR), 0);
    }
    EXPECT_EQ(copy.SetPrintStream(recordOther, ERR), -2);
    copy.ClearPrintStream(record);
    g_log.clear();
    original.Printf_err("o;");
    EXPECT_EQ(g_log, "o;");
}

TEST(SessionLogging, AssignmentTakesOverSinks) {
    Tarvel source;
    Tarvel target;
    source.ClearPrintStream();
    target.ClearPrintStream();
    g_log.clear();
    ASSERT_EQ(source.SetPrintStream(record, INF), 0);
    ASSERT_EQ(target.SetPrintStream(recordOther, INF), 0);
    target = source;
    target.Printf_inf("t;");
    EXPECT_EQ(g_log, "t;");

    Tarvel& alias = target;
    target = alias;
    target.Printf_inf("u;");
    EXPECT_EQ(g_log, "t;u;");
}
