#include "FakeDevice.h"

#include <poll.h>
#include <unistd.h>

namespace {

constexpr std::size_t kHostFrameLimit = 4096;

} // namespace

FakeDevice::FakeDevice() : m_thread([this] { serve(); }) {}

FakeDevice::~FakeDevice() {
    die();
}

void FakeDevice::misbehave(Reply reply, Chatter chatter) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_reply = std::move(reply);
    m_chatter = std::move(chatter);
}

void FakeDevice::die() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    m_pty.closeMaster();
}

Bytes FakeDevice::frame(uint8_t messageId, uint8_t code, const Bytes& data) {
    return tarvelsim::slipEncode(tarvelsim::buildPacket(messageId, code, data));
}

Bytes FakeDevice::soundAnswer(const HostPacket& p) {
    using namespace tarvelsim;
    if (p.messageId == kUntrackedId) return frame(0, response::OK, {0, 0});
    if (p.command == cmd::READ_EEPROM && p.payload.size() == 3) {
        const unsigned address = unsigned(p.payload[0]) << 8 | p.payload[1];
        Bytes block(p.payload[2]);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<uint8_t>(address + i);
        return frame(p.messageId, response::DATA_RESPONSE_A, block);
    }
    return frame(p.messageId, response::OK, {0, 0});
}

void FakeDevice::serve() {
    tarvelsim::SlipDecoder decoder(kHostFrameLimit);
    const int fd = m_pty.masterFd();
    while (!m_stop) {
        Chatter chatter;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            chatter = m_chatter;
        }
        pollfd p{fd, POLLIN, 0};
        ::poll(&p, 1, chatter ? 1 : 10);
        if (chatter) m_pty.write(chatter(), 1000);

        uint8_t chunk[4096];
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        for (ssize_t i = 0; i < n; ++i) {
            if (decoder.feed(chunk[i]) != tarvelsim::SlipDecoder::Event::Frame) continue;
            const Bytes& f = decoder.frame();
            if (tarvelsim::checkPacket(f) != tarvelsim::PacketCheck::Ok) continue;
            HostPacket packet;
            packet.messageId = f[1];
            packet.command = f[2];
            packet.payload.assign(f.begin() + 3, f.end() - 2);
            packet.raw = f;
            ++m_seen;
            Reply reply;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                reply = m_reply;
            }
            m_pty.write(reply ? reply(packet) : soundAnswer(packet), 5000);
        }
    }
}
