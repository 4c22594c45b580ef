// EEPROM blocks: payloads, the host's refusals and the answer checks.
#include <cstring>

#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class Eeprom : public SimSession {};

TEST_F(Eeprom, WriteThenReadRoundTrip) {
    const unsigned char block[4] = {0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(0, tarvel.WriteEeprom(0x0102, 4, block));
    EXPECT_EQ((Bytes{0xDE, 0xAD, 0xBE, 0xEF}), sim().eeprom(0x0102, 4));

    unsigned char back[4] = {};
    EXPECT_EQ(0, tarvel.ReadEeprom(0x0102, 4, back));
    EXPECT_EQ(0, std::memcmp(block, back, 4));
    const auto log = sent(2);
    EXPECT_EQ((Bytes{0x01, 0x02, 0xDE, 0xAD, 0xBE, 0xEF}), log[0].payload);
    EXPECT_EQ((Bytes{0x01, 0x02, 0x04}), log[1].payload);
}

TEST_F(Eeprom, WriteWithoutDataWritesZeros) {
    const unsigned char ones[2] = {0x11, 0x22};
    ASSERT_EQ(0, tarvel.WriteEeprom(0x1234, 2, ones));
    sim().clearLog();
    EXPECT_EQ(0, tarvel.WriteEeprom(0x1234, 2, nullptr));
    EXPECT_EQ((Bytes{0x12, 0x34, 0x00, 0x00}), sent(1)[0].payload);
    EXPECT_EQ((Bytes{0x00, 0x00}), sim().eeprom(0x1234, 2));
}

TEST_F(Eeprom, ReadAnswerOfWrongLengthIsRejected) {
    sim().setResponder(answer(Tarvel::READ_EEPROM, Tarvel::DATA_RESPONSE_A, {1, 2, 3}));
    unsigned char data[4] = {9, 9, 9, 9};
    CaptureStderr capture;
    EXPECT_EQ(-666, tarvel.ReadEeprom(0x0102, 4, data));
    EXPECT_EQ("Tarvel::ReadEeprom: Invalid eeprom block length returned from tarvel. Request: 4 Response 3\n",
              capture.stop());
    EXPECT_EQ(9, data[0]) << "data is not written";
    sim().setResponder(ignore(Tarvel::READ_EEPROM));
    EXPECT_EQ(-14, tarvel.ReadEeprom(0, 4, data)) << "address 0 may be read";
}

TEST_F(Eeprom, WriteAnswersAreMapped) {
    const unsigned char b = 1;
    sim().setResponder(answer(Tarvel::WRITE_EEPROM, 0xFFFF));
    EXPECT_EQ(-21, tarvel.WriteEeprom(30, 1, &b));
    sim().setResponder(answer(Tarvel::WRITE_EEPROM, 3));
    EXPECT_EQ(3, tarvel.WriteEeprom(30, 1, &b));
    EXPECT_EQ((Bytes{0x00, 0x1E, 0x01}), sent(2)[1].payload) << "address 30 is writable";
}

TEST_F(Eeprom, RefusedArgumentsSendNothing) {
    unsigned char data[17] = {};
    CaptureStderr capture;
    EXPECT_EQ(-2, tarvel.ReadEeprom(100, 4, nullptr));
    EXPECT_EQ(-1, tarvel.ReadEeprom(100, 0, data));
    EXPECT_EQ(-1, tarvel.ReadEeprom(100, 17, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(29, 1, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(100, 17, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(5, 0, data));
    EXPECT_EQ("Tarvel::ReadEeprom: Data pointer is NULL!\n"
              "Tarvel::ReadEeprom: Invalid eeprom block length - max 16 bit: 0!\n"
              "Tarvel::ReadEeprom: Invalid eeprom block length - max 16 bit: 17!\n"
              "Tarvel::WriteEeprom: Invalid eeprom address: 29! Must be >= 30!\n"
              "Tarvel::WriteEeprom: Invalid eeprom block length - max 16 bit: 17!\n"
              "Tarvel::WriteEeprom: Invalid eeprom block length - max 16 bit: 0!\n",
              capture.stop())
        << "the length test comes before the address test";
    expectOnlyPingFollows(tarvel, sim());
}

} // namespace
