// Signal registration and extraction from reports the receiver filed.
#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "tarvelsim/Wire.h"

using namespace scripted;

namespace {

class SignalReading : public SimSession {
protected:
    void SetUp() override {
        SimSession::SetUp();
        ASSERT_EQ(0, tarvel.StartReceiver());
    }

    // Files a report on channel 0 for the message whose low id bits are `handler`;
    // returns the request key that reaches it.
    int report(uint16_t handler, const Bytes& data) {
        Bytes body{static_cast<uint8_t>(handler >> 8), static_cast<uint8_t>(handler),
                   tarvelsim::lengthToDlc(data.size())};
        body.insert(body.end(), data.begin(), data.end());
        sim().sendPacket({0, Tarvel::ASYNC_MESSAGE, body});
        return 0x10000 | handler;
    }

    // Polls until the signal reads something other than "no report yet".
    template <typename T> int readWhenPresent(unsigned short signal, T& value, unsigned int* age = nullptr) {
        int r = -1;
        eventually([&] { return (r = tarvel.SignalReadValue(signal, value, age, true)) != -1; });
        return r;
    }

    unsigned short signal(int key, unsigned short start, unsigned short stop) {
        const int h = tarvel.RequestSignal(key, start, stop);
        EXPECT_GT(h, 0) << err.str();
        return static_cast<unsigned short>(h);
    }
};

TEST_F(SignalReading, RegistrationNumbersAndSpanChecks) {
    EXPECT_EQ(1, tarvel.RequestSignal(0x10001, 0, 63));
    EXPECT_EQ(-1, tarvel.RequestSignal(0x10001, 10, 9));
    EXPECT_EQ("Tarvel::RequestSignal: Invalid input: StartSymbol > StopSymbol (10 > 9)\n", err.str());
    err.str("");
    EXPECT_EQ(-1, tarvel.RequestSignal(0x10001, 0, 64));
    EXPECT_EQ("Tarvel::RequestSignal: Length of signal exceed maximal 64 bits.\n", err.str());
    EXPECT_EQ(2, tarvel.RequestSignal(-5, 0, 0)) << "keys are not validated";
}

TEST_F(SignalReading, RefusalsLeaveValueAndAgeAlone) {
    unsigned int value = 77, age = 88;
    for (int i = 1; i <= 3; ++i)
        ASSERT_EQ(i, tarvel.RequestSignal(0x10001, 0, 7));
    EXPECT_EQ(-1000, tarvel.SignalReadValue(9, value, &age, false));
    EXPECT_EQ("", err.str());
    EXPECT_EQ(-4, tarvel.SignalReadValue(5, value, &age, true));
    EXPECT_EQ("Requested signal is not registered! Signal handler: 5\n", err.str());
    EXPECT_EQ(-1, tarvel.SignalReadValue(0, value, &age, true)) << "the placeholder finds no report";
    EXPECT_EQ(-1, tarvel.SignalReadValue(1, value, &age, true)) << "no report yet";
    tarvel.StopReceiver();
    EXPECT_EQ(-3, tarvel.SignalReadValue(1, value, &age, true));
    EXPECT_EQ(77u, value);
    EXPECT_EQ(88u, age);
}

TEST_F(SignalReading, ExtractsAcrossByteBoundaries) {
    const auto s = signal(report(0x0101, {0xAB, 0xCD}), 4, 11);
    unsigned int value = 0, age = 0xFFFFFFFF;
    ASSERT_EQ(0, readWhenPresent(s, value, &age));
    EXPECT_EQ(0xDAu, value);
    EXPECT_LT(age, 5000u);
    // Reading does not consume the report.
    EXPECT_EQ(0, tarvel.SignalReadValue(s, value, nullptr, true));
    EXPECT_EQ(0xDAu, value);
}

TEST_F(SignalReading, BothWidthsOnEightBytes) {
    const int key = report(0x0102, {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88});
    const auto all = signal(key, 0, 63), low40 = signal(key, 0, 39), high = signal(key, 60, 64);
    unsigned long long wide = 0;
    ASSERT_EQ(0, readWhenPresent(all, wide));
    EXPECT_EQ(0x8807060504030201ULL, wide);
    unsigned int narrow = 0;
    EXPECT_EQ(0, tarvel.SignalReadValue(all, narrow, nullptr, true));
    EXPECT_EQ(0x04030201u, narrow);
    EXPECT_EQ(0, tarvel.SignalReadValue(low40, narrow, nullptr, true));
    EXPECT_EQ(0x04030201u, narrow) << "the low 32 bits of a 40-bit signal";
    EXPECT_EQ(0, tarvel.SignalReadValue(low40, wide, nullptr, true));
    EXPECT_EQ(0x0504030201ULL, wide);

    err.str("");
    EXPECT_EQ(-2, tarvel.SignalReadValue(high, wide, nullptr, true));
    EXPECT_EQ("Requested stop bit exceeds real length of received message! (64/64)\n", err.str());
}

TEST_F(SignalReading, UnalignedSixtyFourBitSignalLosesItsTopBits) {
    Bytes data(12, 0);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(0x11 * (i + 1));
    const auto s = signal(report(0x0103, data), 4, 67);
    unsigned long long wide = 0;
    CaptureStderr capture;
    ASSERT_EQ(0, readWhenPresent(s, wide));
    EXPECT_EQ(0x0887766554433221ULL, wide) << "bits 4..63 of the data";
    EXPECT_EQ("Data may be lost. Size of Bytevector: 9 vs output integer size: 8", capture.text());
    unsigned int narrow = 0;
    EXPECT_EQ(0, tarvel.SignalReadValue(s, narrow, nullptr, true));
    EXPECT_EQ(0x04433221u, narrow) << "the 32-bit accumulator holds bytes 0..3 only";
    EXPECT_EQ("Data may be lost. Size of Bytevector: 9 vs output integer size: 8", capture.stop())
        << "only the 64-bit reader warns";
}

} // namespace
