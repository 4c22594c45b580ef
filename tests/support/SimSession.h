// Test fixture: a session connected to a simulated device over a
// pseudo-terminal.
//
//   class MyTest : public SimSession {};              // default device
//   class Old : public SimSession {                   // other options
//       tarvelsim::Options simOptions() const override { auto o = ...; return o; }
//   };
//
// Members for the tests:
//   sim()     the simulated device (tarvelsim::Simulator&), started in SetUp
//   tarvel    the session, connected with read/write time-outs of 1000 ms and
//             answers waited for 2000 ms with the receiver running; its
//             device-version query is already done and the packet log cleared
//   err, inf  what the session printed on its ERR and INF channels
//   sent(n)   waits up to 5 s until n host packets are logged since the last
//             clearLog and returns the log (fails the test on time-out)
// TearDown stops the receiver, disconnects and stops the device.
// Header-only, so that it needs the simulator only where it is used.
#ifndef TARVEL_TEST_SIM_SESSION_H
#define TARVEL_TEST_SIM_SESSION_H

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "TarvelAPI.h"
#include "tarvelsim/Simulator.h"

class SimSession : public ::testing::Test {
protected:
    void SetUp() override {
        sim_ = std::make_unique<tarvelsim::Simulator>(simOptions());
        ASSERT_TRUE(sim_->start()) << sim_->lastError();
        tarvel.ClearPrintStream();
        tarvel.SetPrintStream(err, ERR);
        tarvel.SetPrintStream(inf, INF);
        ASSERT_EQ(0, tarvel.Connect(sim_->portPath(), 1000, 1000)) << err.str();
        // With the receiver running an answer is waited for 50 ms by default;
        // a loaded machine may take longer.
        ASSERT_EQ(0, tarvel.SetAnswerWait(kAnswerWaitMs));
        sim_->clearLog();
    }

    void TearDown() override {
        tarvel.StopReceiver();
        tarvel.Disconnect();
        if (sim_) sim_->stop();
    }

    static constexpr unsigned kAnswerWaitMs = 2000;

    // Override to run the device with other options (version status, faults).
    virtual tarvelsim::Options simOptions() const { return {}; }

    tarvelsim::Simulator& sim() { return *sim_; }

    std::vector<tarvelsim::HostPacket> sent(std::size_t n) {
        EXPECT_TRUE(sim_->waitForPackets(n, 5000))
            << "device saw " << sim_->hostPacketCount() << " of " << n << " packets";
        return sim_->hostPackets();
    }

    // Declared before the session: its Printer refers to them until it dies.
    std::ostringstream err, inf;
    std::unique_ptr<tarvelsim::Simulator> sim_;
    Tarvel tarvel;
};

#endif
