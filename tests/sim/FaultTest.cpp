// The framing faults (the counted ones, dropped and corrupted answers, are
// relied on exactly by the library tests: tests/session, tests/tools).
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <algorithm>

#include "SimFixture.h"

using namespace simtest;

using SimFaults = SimFixture;

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
    ASSERT_FALSE(raw.empty());
    EXPECT_NE(slip::END, raw.front()); // garbage ahead of the opening END
    const Bytes cut{slip::ESC, slip::ESC_BRK};
    EXPECT_NE(std::search(raw.begin(), raw.end(), cut.begin(), cut.end()), raw.end());
}

#endif
