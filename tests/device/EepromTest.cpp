// EEPROM blocks: payloads and answer checks; the host's refusals of device commands.
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
    EXPECT_EQ(Bytes(block, block + 4), Bytes(back, back + 4));
    EXPECT_EQ(0, tarvel.WriteEeprom(0x0102, 2, nullptr)) << "no data writes zeros";
    EXPECT_EQ((Bytes{0x00, 0x00, 0xBE, 0xEF}), sim().eeprom(0x0102, 4));
    const auto log = sent(3);
    EXPECT_EQ((Bytes{0x01, 0x02, 0xDE, 0xAD, 0xBE, 0xEF}), log[0].payload);
    EXPECT_EQ((Bytes{0x01, 0x02, 0x04}), log[1].payload);
    EXPECT_EQ((Bytes{0x01, 0x02, 0x00, 0x00}), log[2].payload);

    sim().setResponder(answer(Tarvel::READ_EEPROM, Tarvel::DATA_RESPONSE_A, {1, 2, 3}));
    CaptureStderr capture;
    EXPECT_EQ(-666, tarvel.ReadEeprom(0x0102, 4, back));
    EXPECT_EQ("Tarvel::ReadEeprom: Invalid eeprom block length returned from tarvel. Request: 4 Response 3\n",
              capture.stop());
    EXPECT_EQ(0xDE, back[0]) << "data is not written";
}

TEST_F(Eeprom, RefusedArgumentsSendNothing) {
    unsigned char data[17] = {};
    CaptureStderr capture;
    EXPECT_EQ(-2, tarvel.GetTime(nullptr));
    EXPECT_EQ(-2, tarvel.ReadEeprom(100, 4, nullptr));
    EXPECT_EQ(-1, tarvel.ReadEeprom(100, 0, data));
    EXPECT_EQ(-1, tarvel.ReadEeprom(100, 17, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(29, 1, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(100, 17, data));
    EXPECT_EQ(-1, tarvel.WriteEeprom(5, 0, data));
    EXPECT_EQ("Tarvel::GetTime: Time pointer is NULL!\n"
              "Tarvel::ReadEeprom: Data pointer is NULL!\n"
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
