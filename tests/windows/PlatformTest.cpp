// The Win32 platform layer where no device is needed: open failures and
// their reports, device paths, system error texts, named events.
#include <gtest/gtest.h>

#include "WinTestSupport.h"

#include <string>

#include "CaptureStderr.h"
#include "TarvelAPI.h"
#include "serial/PortDevice.h"

namespace port = tarvel::port;
namespace event = tarvel::event;

namespace {

TEST(Win32SystemText, KeepsTheSystemLineEnd) {
    const std::string text = port::errorText(ERROR_FILE_NOT_FOUND);
    ASSERT_GT(text.size(), 2u);
    EXPECT_EQ("\r\n", text.substr(text.size() - 2)) << text;
    EXPECT_NE(text, port::errorText(ERROR_ACCESS_DENIED));
}

TEST(Win32Open, MissingPortIsReportedWithTheSystemText) {
    SerialPort serial;
    CaptureStderr err;
    EXPECT_EQ(-2, serial.Connect("COM219", 2000000, 8, 0, 2));
    const std::string out = err.stop();
    EXPECT_FALSE(serial.IsActive());
    EXPECT_EQ("SerialPort::Connect: CreateFile failed with error: " + port::errorText(ERROR_FILE_NOT_FOUND) + "\n",
              out);

    unsigned long error = 0;
    EXPECT_EQ(nullptr, port::open("\\\\.\\COM219", error));
    EXPECT_EQ(static_cast<unsigned long>(ERROR_FILE_NOT_FOUND), error);
}

TEST(Win32Open, NameWithPathSeparatorIsOpenedAsGiven) {
    // A regular file opens but has no line settings: proof that the name
    // reached CreateFileA without the device prefix.
    char dir[MAX_PATH];
    char path[MAX_PATH];
    ASSERT_NE(0u, GetTempPathA(MAX_PATH, dir));
    ASSERT_NE(0u, GetTempFileNameA(dir, "tvl", 0, path));

    unsigned long error = 0;
    tarvel::PortDevice* device = port::open(path, error);
    ASSERT_NE(nullptr, device) << "error " << error;
    LineSettings settings;
    EXPECT_FALSE(port::getLineSettings(device, settings, error));
    EXPECT_TRUE(port::close(device, error));
    DeleteFileA(path);
}

TEST(Win32Open, FlushOfAClosedPortReportsTheInvalidHandle) {
    SerialPort serial;
    CaptureStderr err;
    EXPECT_EQ(-1, serial.Flush());
    const std::string out = err.stop();
    EXPECT_EQ("SerialPort::Flush: Clearing RX and TX buffers failed." + port::errorText(ERROR_INVALID_HANDLE) + "\n",
              out);
}

TEST(Win32Event, NamedEventsAreSharedAndManualReset) {
    tarvel::PortEvent* a = event::create("SerialDataReady");
    tarvel::PortEvent* b = event::create("SerialDataReady");
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(event::kTimeout, event::wait(b, 0));
    ASSERT_TRUE(event::set(a));
    EXPECT_EQ(event::kSignalled, event::wait(b, 0));
    EXPECT_EQ(event::kSignalled, event::wait(b, 0)) << "a manual-reset event stays signalled";
    ASSERT_TRUE(event::reset(b));
    EXPECT_EQ(event::kTimeout, event::wait(a, 0));
    event::close(a);
    event::close(b);
}

} // namespace
