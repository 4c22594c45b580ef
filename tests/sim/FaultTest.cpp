// Faults whose timing the library tests rely on, and the framing faults.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <algorithm>

#include "SimFixture.h"

using namespace simtest;

using SimFaults = SimFixture;

TEST_F(SimFaults, DropAndCorruptCountAnswersFromWhenSet) {
    EXPECT_EQ(0, status(cmd::PING)); // counted before the faults: does not shift them
    Faults f;
    f.dropEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 10; id < 14; ++id)
        ASSERT_TRUE(line->send(id, cmd::PING));
    EXPECT_EQ(10, line->next().id);
    EXPECT_EQ(12, line->next().id);
    ASSERT_TRUE(sim->waitForPackets(5, 5000)); // the last ping is served before the faults change

    f = {};
    f.corruptEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 20; id < 24; ++id) {
        const Answer a = line->exchange(id, cmd::PING);
        EXPECT_EQ(id, a.id);
        EXPECT_EQ(id % 2 == 0, a.sound) << int(id);
    }
}

TEST_F(SimFaults, FramingFaultsStillCarryTheAnswer) {
    Faults f;
    f.garbageBeforeFrames = f.cutFrames = f.hwErrorBeforeAnswer = true;
    sim->setFaults(f);
    Answer a = line->exchange(9, cmd::PING);
    EXPECT_EQ(0, a.id);
    EXPECT_EQ(response::TARVEL_HW_ERROR, a.response);
    a = line->next();
    EXPECT_EQ(9, a.id);
    EXPECT_EQ(0, okValue(a));
    const Bytes& raw = line->rawSeen();
    EXPECT_NE(slip::END, raw.front()); // garbage ahead of the opening END
    const Bytes cut{slip::ESC, slip::ESC_BRK};
    EXPECT_NE(std::search(raw.begin(), raw.end(), cut.begin(), cut.end()), raw.end());
}

#endif
