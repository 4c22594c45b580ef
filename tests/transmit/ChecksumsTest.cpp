// Checksum configurations, gateway identifier and blob removal.
#include <cstdlib>

#include "../device/ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class Checksums : public SimSession {};

TEST_F(Checksums, PayloadsAsTheDeviceReceivesThem) {
    sim().setResponder([](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        return std::vector<DevicePacket>{ok(p, 0)};
    });
    unsigned char block[16];
    for (int i = 0; i < 16; ++i) block[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(0, tarvel.AddCrc(block));
    EXPECT_EQ(0, tarvel.ChangeCrc(0x0007, block));
    EXPECT_EQ(0, tarvel.DisableCrc(0x0102));
    EXPECT_EQ(0, tarvel.GatewayID(2, 0x80000123));
    EXPECT_EQ(0, tarvel.BlobRemove());
    const auto log = sent(5);
    const Bytes blockBytes(block, block + 16);
    EXPECT_EQ(Tarvel::ADD_CRC, log[0].command);
    EXPECT_EQ(blockBytes, log[0].payload);
    Bytes change{0x00, 0x07};
    change.insert(change.end(), block, block + 16);
    EXPECT_EQ(change, log[1].payload);
    EXPECT_EQ((Bytes{0x01, 0x02}), log[2].payload);
    EXPECT_EQ((Bytes{0x02, 0x23, 0x01, 0x00, 0x80}), log[3].payload);
    EXPECT_EQ(Bytes{0x00}, log[4].payload);
}

TEST_F(Checksums, ChangeCrcWithoutBlockSendsRandBytes) {
    std::srand(42);
    Bytes expected{0x00, 0x07};
    for (int i = 0; i < 16; ++i) expected.push_back(static_cast<uint8_t>(std::rand() % 256));
    std::srand(42);
    sim().setResponder(answer(Tarvel::CHANGE_CRC, 0));
    EXPECT_EQ(0, tarvel.ChangeCrc(0x0007, nullptr));
    EXPECT_EQ(expected, sent(1)[0].payload);
}

TEST_F(Checksums, AnswerMappings) {
    const std::pair<uint16_t, int> crcCases[] = {{1, -21}, {2, -22}, {3, -23}, {0xFFFF, -21}, {0, 0}, {4, 4}};
    unsigned char block[16] = {};
    for (const auto& c : crcCases) {
        sim().setResponder(answer(Tarvel::CHANGE_CRC, c.first));
        EXPECT_EQ(c.second, tarvel.ChangeCrc(1, block)) << c.first;
        sim().setResponder(answer(Tarvel::DISABLE_CRC, c.first));
        EXPECT_EQ(c.second, tarvel.DisableCrc(1)) << c.first;
    }
    for (auto cmd : {Tarvel::ADD_CRC, Tarvel::GATEWAY_ID, Tarvel::BLOB_REMOVE}) {
        sim().setResponder(answer(cmd, 0xFFFF));
        EXPECT_EQ(-21, cmd == Tarvel::ADD_CRC ? tarvel.AddCrc(block)
                       : cmd == Tarvel::GATEWAY_ID ? tarvel.GatewayID(0, 0)
                                                   : tarvel.BlobRemove());
        sim().setResponder(answer(cmd, 1));
        EXPECT_EQ(1, cmd == Tarvel::ADD_CRC ? tarvel.AddCrc(block)
                     : cmd == Tarvel::GATEWAY_ID ? tarvel.GatewayID(0, 0)
                                                 : tarvel.BlobRemove());
    }
    sim().setResponder(ignore(Tarvel::BLOB_REMOVE));
    EXPECT_EQ(-14, tarvel.BlobRemove());
}

TEST_F(Checksums, AddCrcWithNullBlockSendsNothing) {
    EXPECT_EQ(-2, tarvel.AddCrc(nullptr));
    EXPECT_EQ("Tarvel::AddCrc: Checksum block pointer is NULL!\n", err.str());
    expectOnlyPingFollows(tarvel, sim());
}

} // namespace
