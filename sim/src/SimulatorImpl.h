// The simulator's insides, shared by the public face (Simulator.cpp) and the
// serving thread (ServingThread.cpp).
#ifndef TARVELSIM_SIMULATOR_IMPL_H
#define TARVELSIM_SIMULATOR_IMPL_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BusLog.h"
#include "DeviceModel.h"
#include "Mailbox.h"
#include "OutgoingLine.h"
#include "Terminal.h"
#include "TerminalLink.h"
#include "tarvelsim/Simulator.h"

namespace tarvelsim {

struct Simulator::Impl {
    explicit Impl(Options o);

    Options options;

    // Guarded state, read by the peek functions.
    mutable std::mutex stateMutex;
    DeviceModel model;
    TimePoint bootEnd{};
    std::string error;

    std::mutex hookMutex;
    std::shared_ptr<Responder> responder;
    std::shared_ptr<BusObserver> busObserver;

    mutable std::mutex logMutex;
    mutable std::condition_variable logCv;
    std::vector<HostPacket> log;

    std::thread thread;
    Mailbox mailbox;

    // Serving thread only (the terminal last: its reset touches the others).
    SlipDecoder decoder{512};
    OutgoingLine line;
    Terminal terminal;
    TerminalLink link;
    BusLog busLog;

    void setError(const std::string& e);

    // The serving thread (ServingThread.cpp).
    void run();
    // Puts frames on the virtual bus: the bus log and observer see them,
    // requests that match report them.
    void putOnBus(const std::vector<BusFrame>& bus, TimePoint now, const Faults& f);

private:
    bool canReport(TimePoint now, const Faults& f) const;
    void flood(TimePoint now, const Faults& f);
    void logPacket(HostPacket packet);
    void onBadFrame(uint8_t responseId, TimePoint now);
    void onFrame(const Bytes& frame, TimePoint now);
    void readInput(TimePoint now);
    int timeout(TimePoint now, const Faults& f);
};

} // namespace tarvelsim

#endif
