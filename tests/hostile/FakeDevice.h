// A device played by the test on the master side of a pseudo-terminal. It
// answers every host packet as a sound device would until it is told to
// misbehave; then a reply function decides the bytes that go back, and a
// chatter function what goes out every millisecond besides.
//
//   FakeDevice device;                          // serving on its own thread
//   tarvel.Connect(device.path(), 300, 1000);   // the version query is answered
//   device.misbehave([](const HostPacket& p) { return Bytes{}; });   // silent
//   device.behave();
//   device.die();                               // the host sees the line go away
#ifndef TARVEL_TEST_FAKE_DEVICE_H
#define TARVEL_TEST_FAKE_DEVICE_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Pty.h"
#include "tarvelsim/Wire.h"

using tarvelsim::Bytes;
using tarvelsim::HostPacket;

class FakeDevice {
public:
    // Raw bytes sent for a host packet (framing included, faults and all).
    using Reply = std::function<Bytes(const HostPacket&)>;
    // Raw bytes sent every millisecond while set.
    using Chatter = std::function<Bytes()>;

    FakeDevice();
    ~FakeDevice();
    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;

    const std::string& path() const { return m_pty.slavePath(); }

    void misbehave(Reply reply, Chatter chatter = nullptr);
    void behave() { misbehave(nullptr); }
    // Sound host packets read so far.
    std::size_t packetsSeen() const { return m_seen.load(); }
    // Stops serving and closes the master side.
    void die();

    // A sound device's answer, framed: the version query and every other
    // command status 0, READ_EEPROM its block (byte i of address a is
    // (a + i) & 0xFF), an untracked command an untraced OK.
    static Bytes soundAnswer(const HostPacket& p);
    // A framed packet, length and checksum right.
    static Bytes frame(uint8_t messageId, uint8_t code, const Bytes& data);

private:
    void serve();

    Pty m_pty;
    std::mutex m_mutex;
    Reply m_reply;
    Chatter m_chatter;
    std::atomic<bool> m_stop{false};
    std::atomic<std::size_t> m_seen{0};
    std::thread m_thread;
};

#endif
