// End to end through a COM port with a simulated device on its far side
// (under wine: a pseudo-terminal mapped as COMn, see run-wine-tests.sh).
#include <gtest/gtest.h>

#include "WinTestSupport.h"

#include <sstream>
#include <string>
#include <vector>

#include "CaptureStderr.h"
#include "TarvelAPI.h"
#include "serial/PortDevice.h"

namespace {

const unsigned kMs = 1000; // generous: wine on a loaded machine is slow

// Connects again after a disconnect in the same process. On a pseudo-terminal
// wine can set even parity only once per terminal; the simulator hands out a
// fresh one when the last user has closed it, which it notices a little later.
int reconnect(SerialPort& serial, const std::string& name) {
    int result = serial.Connect(name, 2000000, 8, 0, 2);
    for (int waited = 0; result == -4 && wintest::underWine() && waited < 5000; waited += 50) {
        Sleep(50);
        result = serial.Connect(name, 2000000, 8, 0, 2);
    }
    return result;
}

TEST(ComPortLine, BareNameAndDevicePathReachTheSamePort) {
    TARVEL_REQUIRE_DEVICE_PORT(name);
    SerialPort serial;
    ASSERT_EQ(0, serial.Connect(name, 2000000, 8, 0, 2));
    EXPECT_TRUE(serial.IsActive());
    EXPECT_EQ(1, serial.Connect(name, 2000000, 8, 0, 2));
    EXPECT_EQ(0, serial.Disconnect());
    EXPECT_EQ(0, serial.Disconnect());

    ASSERT_EQ(0, reconnect(serial, "\\\\.\\" + name));
    EXPECT_EQ(0, serial.Disconnect());
}

TEST(ComPortLine, SecondOpenOfAnOpenPortIsRefused) {
    TARVEL_REQUIRE_DEVICE_PORT(name);
    if (wintest::underWine()) GTEST_SKIP() << "wine opens serial devices without exclusion";
    SerialPort first, second;
    ASSERT_EQ(0, first.Connect(name, 2000000, 8, 0, 2));
    CaptureStderr err;
    EXPECT_EQ(-2, second.Connect(name, 2000000, 8, 0, 2));
    const std::string out = err.stop();
    EXPECT_EQ("SerialPort::Connect: CreateFile failed with error: " + tarvel::port::errorText(ERROR_ACCESS_DENIED) +
                  "\n",
              out);
    EXPECT_TRUE(first.IsActive());
}

TEST(ComPortLine, ZeroTimeoutReadWithNothingWaitingReturnsZero) {
    TARVEL_REQUIRE_DEVICE_PORT(name);
    SerialPort serial;
    ASSERT_EQ(0, serial.Connect(name, 2000000, 8, 0, 2));
    ASSERT_EQ(0, serial.SetTimeout(0, 0));
    ASSERT_EQ(0, serial.Flush());
    unsigned char byte = 0;
    EXPECT_EQ(0, serial.ReadByte(&byte, 1, false));
    EXPECT_EQ(0, serial.Disconnect());
}

class ComPortSession : public ::testing::Test {
protected:
    void SetUp() override {
        if (name.empty()) GTEST_SKIP() << "no device port: set TARVEL_TEST_COM (run-wine-tests.sh does)";
    }
    void connect(unsigned readMs) {
        tarvel.ClearPrintStream();
        tarvel.SetPrintStream(err, ERR);
        ASSERT_EQ(0, tarvel.Connect(name, readMs, kMs)) << err.str();
        ASSERT_EQ(0, tarvel.SetAnswerWait(kMs)); // with the receiver: wine on a loaded machine is slow
    }
    void TearDown() override {
        tarvel.StopReceiver();
        tarvel.Disconnect();
    }

    std::string name = wintest::devicePort();
    std::ostringstream err;
    Tarvel tarvel;
};

TEST_F(ComPortSession, CommandsAndEepromWithoutAndWithReceiver) {
    ASSERT_NO_FATAL_FAILURE(connect(kMs));
    EXPECT_EQ(100, tarvel.GetVersion());
    EXPECT_EQ(0, tarvel.Ping());

    // SLIP's special bytes, written without the receiver and read back with it.
    const std::vector<unsigned char> block = {0xC0, 0xDB, 0xDC, 0xDD, 0x00, 0xFF, 0x10, 0x11,
                                              0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0xC0, 0xDB};
    ASSERT_EQ(0, tarvel.WriteEeprom(0x40, 16, block.data()));

    ASSERT_EQ(0, tarvel.StartReceiver());
    EXPECT_EQ(1, tarvel.GetInternalThreadStatus() & 1);
    // Many exchanges in a row: answers arrive while the receiver reads, so
    // bytes pile up in the driver and are fetched in bulk.
    for (int i = 0; i < 100; ++i) {
        std::vector<unsigned char> back(block.size());
        ASSERT_EQ(0, tarvel.ReadEeprom(0x40, 16, back.data())) << "round " << i << ": " << err.str();
        ASSERT_EQ(block, back) << "round " << i;
    }
    tarvel.StopReceiver();
    EXPECT_EQ(0, tarvel.GetInternalThreadStatus() & 1);
    EXPECT_EQ(0, tarvel.Ping()) << "the line still works after the receiver's read was cancelled";
    EXPECT_EQ("", err.str());
}

TEST_F(ComPortSession, StopReceiverWakesAReadWithoutTimeLimit) {
    // With an unlimited read time-out only the cancel can end the
    // receiver's read; a missing wake-up hangs here until ctest gives up.
    ASSERT_NO_FATAL_FAILURE(connect(tarvel::kWaitForever));
    ASSERT_EQ(0, tarvel.StartReceiver());
    EXPECT_EQ(0, tarvel.Ping());
    for (int i = 0; i < 5; ++i) {
        tarvel.StopReceiver();
        EXPECT_EQ(0, tarvel.GetInternalThreadStatus() & 1);
        ASSERT_EQ(0, tarvel.StartReceiver());
    }
    EXPECT_EQ(0, tarvel.Ping());
}

} // namespace
