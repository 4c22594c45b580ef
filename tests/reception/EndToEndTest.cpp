// A user's view: messages and signals configured on the device, reported back
// through requests over the virtual bus and read as signal values.
#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class EndToEnd : public SimSession {
protected:
    // Waits until the signal reads `expected`; the last read's result otherwise.
    template <typename T>
    ::testing::AssertionResult reads(unsigned short signal, T expected, unsigned int* age = nullptr) {
        T value = 0;
        int r = -1;
        if (eventually(
                [&] { return (r = tarvel.SignalReadValue(signal, value, age, true)) == 0 && value == expected; }))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << "last read " << r << " value 0x" << std::hex << value << "; err: " << err.str();
    }

    unsigned short addMessage(uint32_t id) {
        tagCanMessage m{};
        m.dlc = 8;
        m.id = id;
        m.enabled = true;
        m.param1 = 10; // transmitted every 10 ms
        const int h = tarvel.AddMessage(m);
        EXPECT_GT(h, 0) << err.str();
        return static_cast<unsigned short>(h);
    }
};

TEST_F(EndToEnd, ChangedSignalIsReadBackFromTheBus) {
    const auto message = addMessage(0x123);
    const int txSignal = tarvel.AddSignal(message, 0, 8, 15, 0);
    ASSERT_GT(txSignal, 0) << err.str();
    const int key = tarvel.RequestMessage(0x01, 0x123, false, false, 8, false, false, nullptr);
    ASSERT_EQ(0x10123, key);
    ASSERT_EQ(0, tarvel.StartReceiver());
    const int rxSignal = tarvel.RequestSignal(key, 8, 15);
    ASSERT_EQ(1, rxSignal);

    for (unsigned short value : {0x5A, 0xC3}) {
        EXPECT_GE(tarvel.SignalChangeValue(static_cast<unsigned short>(txSignal), value, false, true), 0);
        EXPECT_GE(tarvel.ExecuteSignalChange(true), 0);
        unsigned int age = 0xFFFFFFFF;
        EXPECT_TRUE(reads(1, static_cast<unsigned long long>(value), &age)) << "64-bit read";
        EXPECT_TRUE(reads(1, static_cast<unsigned int>(value), &age)) << "32-bit read";
        EXPECT_LT(age, 5000u);
    }
}

TEST_F(EndToEnd, TablesSurviveAReceiverRestart) {
    const auto message = addMessage(0x321);
    const int key = tarvel.RequestMessage(0x01, 0x321, false, false, 8, false, false, nullptr);
    ASSERT_EQ(0, tarvel.StartReceiver());
    const auto signal = static_cast<unsigned short>(tarvel.RequestSignal(key, 0, 7));
    const unsigned char data[8] = {0x42};
    EXPECT_EQ(0, tarvel.SetMessageData(message, data, nullptr, false, true));
    EXPECT_TRUE(reads(signal, 0x42u));

    tarvel.StopReceiver();
    ASSERT_EQ(0, tarvel.StartReceiver());
    EXPECT_TRUE(reads(signal, 0x42u)) << "registrations and the message table outlive the receiver";
    EXPECT_EQ(0, tarvel.SetMessageData(message, data, nullptr, false, true));
}

} // namespace
