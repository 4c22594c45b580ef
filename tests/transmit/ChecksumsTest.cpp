// Checksum configurations, gateway identifier and blob removal.
#include <cstdlib>

#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class Checksums : public SimSession {};

TEST_F(Checksums, PayloadsAsTheDeviceReceivesThem) {
    sim().setResponder(answer(-1, 0));
    unsigned char block[16];
    for (int i = 0; i < 16; ++i)
        block[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(0, tarvel.AddCrc(block));
    EXPECT_EQ(0, tarvel.ChangeCrc(0x0007, block));
    EXPECT_EQ(0, tarvel.DisableCrc(0x0102));
    EXPECT_EQ(0, tarvel.GatewayID(2, 0x80000123));
    EXPECT_EQ(0, tarvel.BlobRemove());
    // Without a block ChangeCrc sends 16 bytes of rand(), unseeded by the library.
    std::srand(42);
    Bytes randomChange{0x00, 0x07};
    for (int i = 0; i < 16; ++i)
        randomChange.push_back(static_cast<uint8_t>(std::rand() % 256));
    std::srand(42);
    EXPECT_EQ(0, tarvel.ChangeCrc(0x0007, nullptr));
    const auto log = sent(6);
    const Bytes blockBytes(block, block + 16);
    EXPECT_EQ(Tarvel::ADD_CRC, log[0].command);
    EXPECT_EQ(blockBytes, log[0].payload);
    Bytes change{0x00, 0x07};
    change.insert(change.end(), block, block + 16);
    EXPECT_EQ(change, log[1].payload);
    EXPECT_EQ((Bytes{0x01, 0x02}), log[2].payload);
    EXPECT_EQ((Bytes{0x02, 0x23, 0x01, 0x00, 0x80}), log[3].payload);
    EXPECT_EQ(Bytes{0x00}, log[4].payload);
    EXPECT_EQ(randomChange, log[5].payload);
}

TEST_F(Checksums, AnswerMappings) {
    unsigned char block[16] = {};
    const std::vector<std::pair<uint16_t, int>> crc = {{1, -21}, {2, -22}, {3, -23}, {0xFFFF, -21}, {0, 0}, {4, 4}};
    const std::vector<std::pair<uint16_t, int>> plain = {{0xFFFF, -21}, {1, 1}};
    expectMappings(sim(), {
                              {[&] { return tarvel.ChangeCrc(1, block); }, Tarvel::CHANGE_CRC, crc},
                              {[&] { return tarvel.DisableCrc(1); }, Tarvel::DISABLE_CRC, crc},
                              {[&] { return tarvel.AddCrc(block); }, Tarvel::ADD_CRC, plain},
                              {[&] { return tarvel.GatewayID(0, 0); }, Tarvel::GATEWAY_ID, plain},
                              {[&] { return tarvel.BlobRemove(); }, Tarvel::BLOB_REMOVE, plain},
                          });
}

TEST_F(Checksums, AddCrcWithNullBlockSendsNothing) {
    EXPECT_EQ(-2, tarvel.AddCrc(nullptr));
    EXPECT_EQ("Tarvel::AddCrc: Checksum block pointer is NULL!\n", err.str());
    expectOnlyPingFollows(tarvel, sim());
}

} // namespace
