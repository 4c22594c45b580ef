// The emulated device's answers and tables, spoken to over its terminal.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <filesystem>

#include "SimFixture.h"

using namespace simtest;

using SimDevice = SimFixture;

TEST_F(SimDevice, AnswersPingsAndFaultyPackets) {
    EXPECT_EQ((Bytes{0x03, 0x05, 0x80, 0x00, 0x00, 0x00, 0x88}), line->exchange(5, cmd::PING).raw);
    EXPECT_EQ(0, line->exchange(kUntrackedId, cmd::PING).id) << "an untracked ping is answered with id 0";
    struct Case {
        Bytes wire;
        uint8_t id, response;
    };
    const Case cases[] = {
        {{0xC0, 0x01, 0x07, 0x09, 0x00, 0x00, 0xC0}, 7, response::PACKET_ERROR},            // checksum
        {{0xC0, 0x02, 0x08, 0x09, 0x00, 0x13, 0xC0}, 8, response::PACKET_ERROR},            // length byte
        {{0xC0, 0xDB, 0x01, 0xC0}, 0, response::SLIP_PROTO_ERROR},                          // escape
        {slipEncode(buildPacket(9, 0x07, {})), 9, response::COMMAND_FAILED},                // unknown command
        {slipEncode(buildPacket(10, cmd::SET_TIME, {0x01})), 10, response::COMMAND_FAILED}, // short payload
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(line->write(c.wire));
        const Answer a = line->next();
        EXPECT_EQ(c.id, a.id);
        EXPECT_EQ(c.response, a.response);
    }
    // Only the sound packets are logged; the line still works.
    EXPECT_EQ(0, status(cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(5, 5000));
    EXPECT_EQ(5u, sim->hostPacketCount());
}

TEST_F(SimDevice, RestartGoesDeafAndClearsTables) {
    Options o;
    o.bootTimeMs = 1500; // long enough that a packet sent right after the restart arrives while deaf
    ASSERT_TRUE(open(o));
    ASSERT_EQ(1, status(cmd::ADD_MESSAGE, message(0, 0x100, 0, 0, false, {})));
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(1, 0x100)));
    EXPECT_EQ(0, status(cmd::REBOOT, {3})); // version query: no restart
    EXPECT_FALSE(sim->booting());

    EXPECT_EQ(0, status(cmd::REBOOT, {2}));
    EXPECT_EQ(0u, sim->messageCount());
    EXPECT_EQ(0u, sim->requestCount());
    sim->clearLog();
    ASSERT_TRUE(line->send(100, cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(1, 5000));
    EXPECT_TRUE(sim->booting()) << "the boot time of the test is too short for this machine";

    ASSERT_TRUE(eventually([&] { return !sim->booting(); }));
    // The ping sent while booting was never answered: the first answer is the next one's.
    EXPECT_EQ(101, line->exchange(101, cmd::PING).id);
    EXPECT_EQ(1, status(cmd::ADD_MESSAGE, message(0, 0x100, 0, 0, false, {}))); // handlers start again at 1
    EXPECT_EQ(response::COMMAND_FAILED, ask(cmd::REBOOT, {4}).response);        // no such mode
}

TEST_F(SimDevice, EepromBlocksOutliveTheDeviceInTheirFile) {
    const auto file = std::filesystem::temp_directory_path() / ("tarvelsim-eeprom-" + std::to_string(::getpid()));
    std::filesystem::remove(file);
    Options o;
    o.eepromFile = file.string();
    ASSERT_TRUE(open(o));
    EXPECT_EQ(0, status(cmd::WRITE_EEPROM, {0x12, 0x34, 0xC0, 0xDB, 0x07}));
    const Answer a = ask(cmd::READ_EEPROM, {0x12, 0x33, 5});
    EXPECT_EQ(response::DATA_RESPONSE_A, a.response);
    EXPECT_EQ((Bytes{0xFF, 0xC0, 0xDB, 0x07, 0xFF}), a.data);
    EXPECT_EQ(0, status(cmd::WRITE_EEPROM, {0xFF, 0xFF, 0x01})); // the last byte
    EXPECT_EQ(response::COMMAND_FAILED, ask(cmd::READ_EEPROM, {0xFF, 0xFF, 2}).response);

    ASSERT_TRUE(open(o));
    EXPECT_EQ(65536u, std::filesystem::file_size(file));
    EXPECT_EQ((Bytes{0xC0, 0xDB, 0x07}), sim->eeprom(0x1234, 3));
    EXPECT_EQ((Bytes{0x01}), sim->eeprom(0xFFFF, 1));
    std::filesystem::remove(file);
}

TEST_F(SimDevice, TransmitTableOfASmallDevice) {
    Options o;
    o.capacity = 2;
    ASSERT_TRUE(open(o));
    EXPECT_EQ(0xFFFE, status(cmd::ADD_MESSAGE, message(0, 0x10, 2, 0, false, {0x01})));
    EXPECT_EQ(0xFFFF, status(cmd::ADD_MESSAGE, message(0, 0x10, 16, 0, false, {})));
    EXPECT_EQ(1, status(cmd::ADD_MESSAGE, message(0, 0x10, 2, 0, false, {0x01, 0x02})));
    EXPECT_EQ(2, status(cmd::ADD_MESSAGE, message(3, 0x80000020, 9, 0, false, Bytes(12, 0x00), 0x40)));
    EXPECT_EQ(0xFFFD, status(cmd::ADD_MESSAGE, message(0, 0x30, 0, 0, false, {})));

    // Key: selectors, identifier with its flag bit, flag bits 7 and 6.
    EXPECT_EQ(2, status(cmd::GET_HANDLER, {3, 0, 0x20, 0x00, 0x00, 0x80, 0x40}));
    EXPECT_EQ(0xFFFF, status(cmd::GET_HANDLER, {3, 0, 0x20, 0x00, 0x00, 0x00, 0x40}));

    for (uint8_t code : {cmd::REMOVE_MESSAGE, cmd::ENABLE_MESSAGE, cmd::DISABLE_MESSAGE})
        EXPECT_EQ(1, status(code, be16(7))) << int(code); // no handler 7
    EXPECT_EQ(0xFFFE, status(cmd::SET_MESSAGE_DATA, cat(be16(1), {0, 0xFF, 0x00})));
    EXPECT_EQ(0, status(cmd::REMOVE_MESSAGE, be16(1)));
    EXPECT_EQ(3, status(cmd::ADD_MESSAGE, message(0, 0x30, 0, 0, false, {}))); // not handler 1 again
    EXPECT_EQ(1, status(cmd::ADD_CRC, Bytes(16, 0x11)));
    EXPECT_EQ(1, status(cmd::DISABLE_CRC, be16(9)));
}

TEST_F(SimDevice, SignalsPlaceValuesAndReportsCarryThem) {
    // Message 1 on channel 1, sent on change; a request for it on channel 1.
    ASSERT_EQ(1, status(cmd::ADD_MESSAGE, message(5, 0x123, 2, 0, false, {0x00, 0x00}, 0x30)));
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(0x02, 0x123)));
    ASSERT_EQ(1, status(cmd::ADD_SIGNAL, {0, 1, 3, 0, 4, 0, 11, 0x00}));      // bits 4..11
    ASSERT_EQ(2, status(cmd::ADD_SIGNAL, {0, 1, 3, 0, 15, 0, 15, 0x00}));     // bit 15
    EXPECT_EQ(0xFFFF, status(cmd::ADD_SIGNAL, {0, 1, 3, 0, 8, 0, 16, 0x00})); // past the data

    // Enabling sends it once: report on channel 1, handler 0x0123, flags and DLC.
    EXPECT_EQ(0, status(cmd::ENABLE_MESSAGE, be16(1)));
    const Answer r = line->next();
    EXPECT_EQ(1, r.id);
    EXPECT_EQ((Bytes{0x01, 0x23, 0x32, 0x00, 0x00}), r.data);

    // Left-aligned 8-bit value 0xAB, applied at once: bits 4..11 little-end first.
    EXPECT_EQ(0, status(cmd::CHANGE_SIGNAL, {0, 1, 0xAB, 0x00, 1}));
    EXPECT_EQ((Bytes{0x01, 0x23, 0x32, 0xB0, 0x0A}), report());
    // Staged: nothing goes out until EXECUTE_SIGNAL_CHANGE.
    EXPECT_EQ(0, status(cmd::CHANGE_SIGNAL, {0, 2, 0x00, 0x01, 0}));
    EXPECT_EQ(0, status(cmd::EXECUTE_SIGNAL_CHANGE));
    EXPECT_EQ((Bytes{0x01, 0x23, 0x32, 0xB0, 0x8A}), report());
    // The group form applies to every signal of the group at once.
    EXPECT_EQ(0, status(cmd::CHANGE_SIGNAL, {3, 0x00, 0x00}));
    EXPECT_EQ((Bytes{0x01, 0x23, 0x32, 0x00, 0x00}), report());
    // Masked data change, then removal of the signal.
    EXPECT_EQ(0, status(cmd::SET_MESSAGE_DATA, cat(be16(1), {0, 0x0F, 0xFF, 0x5A, 0x5A})));
    EXPECT_EQ((Bytes{0x01, 0x23, 0x32, 0x0A, 0x5A}), report());
    EXPECT_EQ(0, status(cmd::REMOVE_SIGNAL, be16(1)));
    EXPECT_EQ(0xFFFF, status(cmd::CHANGE_SIGNAL, {0, 1, 0, 0, 1}));
}

TEST_F(SimDevice, CumulativeSignalCountsEveryTransmission) {
    // Sent every 5 ms on channel 0; bits 0..3 advance by 3 at each transmission.
    ASSERT_EQ(1, status(cmd::ADD_MESSAGE, message(0, 0x7FF, 1, 5, false, {0x00})));
    ASSERT_EQ(1, status(cmd::ADD_SIGNAL, {0, 1, 0, 0, 0, 0, 3, 0x80}));
    ASSERT_EQ(0, status(cmd::CHANGE_SIGNAL, {0, 1, 0x00, 0x03, 1}));
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(0x01, 0x7FF)));
    ASSERT_EQ(0, status(cmd::ENABLE_MESSAGE, be16(1)));
    std::vector<int> counter;
    while (counter.size() < 8) {
        const Answer r = line->next();
        ASSERT_TRUE(r);
        if (r.response == response::ASYNC_MESSAGE) counter.push_back(r.data.at(3) & 0x0F);
    }
    EXPECT_EQ(3, counter[0]); // the first transmission already counts
    for (std::size_t i = 1; i < counter.size(); ++i)
        EXPECT_EQ((counter[i - 1] + 3) % 16, counter[i]) << i;
}

TEST_F(SimDevice, InjectedFramesMatchEnabledRequests) {
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(0x05, 0x1ABCDEF0)));
    sim->injectFrame({1, 0x1ABCDEF0, 0, {1, 2, 3}}); // channel 1 is not in the mask
    // Bits above the 29-bit identifier don't count; the data is padded to 12 bytes.
    const BusFrame f{2, 0xFABCDEF0, 0x80, {1, 2, 3, 4, 5, 6, 7, 8, 9}};
    sim->injectFrame(f);
    const Answer r = line->next();
    EXPECT_EQ(2, r.id);
    EXPECT_EQ(response::ASYNC_MESSAGE, r.response);
    EXPECT_EQ((Bytes{0xDE, 0xF0, 0x89, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}), r.data);

    // Disabled: no report; the ping's answer is the next thing on the line.
    EXPECT_EQ(0, status(cmd::DISABLE_REQUEST, be16(0xDEF0)));
    sim->injectFrame(f);
    EXPECT_EQ(0, status(cmd::PING));
    EXPECT_EQ(0, status(cmd::ENABLE_REQUEST, be16(0xDEF0)));
    sim->injectFrame(f);
    EXPECT_FALSE(report().empty());
    EXPECT_EQ(0, status(cmd::REMOVE_REQUEST, be16(0xDEF0)));
    EXPECT_EQ(0xFFFF, status(cmd::REMOVE_REQUEST, be16(0xDEF0)));
    EXPECT_EQ(0xFFFF, status(cmd::REQUEST_MESSAGE, request(0x01, 0x10, 16)));
}

#endif
