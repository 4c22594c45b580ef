// A device that answers with anything but its answer: noise, frames cut off
// or too long, reports where the answer should be, answers to other commands
// without end, floods of reports. Whatever it sends, an exchange ends with
// the right code within a few read time-outs, the session works again once
// the device behaves, and closing it leaves no descriptor or thread behind.
// Each row runs reading directly and with the receiver, for an answer with a
// status (Ping) and one with data (ReadEeprom). Single bad packets (sums,
// lengths) and reports on channels that don't exist: tests/session.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>

#include "FakeDeviceSession.h"
#include "ScriptedAnswers.h"
#include "TarvelAPI.h"
#include "Wait.h"

namespace {

using namespace tarvelsim;

// The port's read time-out, and the answer wait with the receiver.
constexpr unsigned kReadTimeoutMs = 300;
// Far more than the few read time-outs an exchange may take, far less than a hang.
constexpr long long kBoundMs = 4000;
// An id no command of these tests reaches: answers to somebody else.
constexpr uint8_t kOtherId = 250;

Bytes noise(std::mt19937& rng, std::size_t n) {
    static const uint8_t framing[] = {slip::END, slip::ESC, slip::ESC_END, slip::ESC_ESC, slip::ESC_BRK};
    Bytes out(n);
    for (auto& b : out) {
        const uint32_t r = rng();
        b = r % 8 == 0 ? framing[(r >> 8) % 5] : static_cast<uint8_t>(r >> 16);
    }
    return out;
}

Bytes report(uint8_t channel, uint16_t handler, const Bytes& data) {
    Bytes body{static_cast<uint8_t>(handler >> 8), static_cast<uint8_t>(handler), lengthToDlc(data.size())};
    body.insert(body.end(), data.begin(), data.end());
    return FakeDevice::frame(channel, response::ASYNC_MESSAGE, body);
}

Bytes& operator+=(Bytes& a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes operator+(Bytes a, const Bytes& b) {
    return a += b;
}

struct Hostility {
    const char* name;
    // The bytes sent for the command that waits.
    std::function<Bytes(const HostPacket&, std::mt19937&)> reply;
    // Sent every millisecond while the command waits (null: nothing).
    FakeDevice::Chatter chatter;
    int direct, receiver; // the command's result
    // The statistics show that the fault was met (for the mode in use).
    std::function<bool(const TarvelStatistics&, bool receiver)> met;
};

const Hostility kHostilities[] = {
    {"RandomBytes", [](const HostPacket&, std::mt19937& rng) { return noise(rng, 1024); }, nullptr, -14, -15,
     [](const TarvelStatistics& s, bool) { return s.rejectedSlip + s.rejectedLength + s.rejectedChecksum > 0; }},
    // Half a frame, then nothing: the read gives up on it after a read time-out.
    {"CutOff",
     [](const HostPacket& p, std::mt19937&) {
         const Bytes whole = FakeDevice::soundAnswer(p);
         return Bytes(whole.begin(), whole.begin() + whole.size() / 2);
     },
     nullptr, -14, -15, [](const TarvelStatistics& s, bool) { return s.rejectedSlip == 1; }},
    // The receiver skips the frame too long for it and takes the answer
    // behind it; a direct wait ends at the first frame it cannot read.
    {"OversizeThenAnswer",
     [](const HostPacket& p, std::mt19937&) { return slipEncode(Bytes(600, 0x11)) + FakeDevice::soundAnswer(p); },
     nullptr, -14, 0, [](const TarvelStatistics& s, bool) { return s.rejectedSlip == 1; }},
    // A report's message id is its channel: one numbered like the awaited
    // answer must not be taken for it (it would read as 0x1234).
    {"ReportInPlaceOfTheAnswer",
     [](const HostPacket& p, std::mt19937&) {
         return report(p.messageId, 0x1234, {0x12, 0x34});
     },
     nullptr, -14, -15, [](const TarvelStatistics& s, bool receiver) { return !receiver || s.reportsBadChannel == 1; }},
    // Answers to another command, every millisecond, never this one's.
    {"OtherAnswersWithoutEnd", [](const HostPacket&, std::mt19937&) { return Bytes{}; },
     [] {
         return FakeDevice::frame(kOtherId, response::OK, {0, 0});
     },
     -14, -15, [](const TarvelStatistics& s, bool) { return s.framesReceived >= 20; }},
    {"FloodThenAnswer",
     [](const HostPacket& p, std::mt19937&) {
         Bytes out;
         for (uint32_t i = 0; i < 2000; ++i)
             out += report(static_cast<uint8_t>(i % 4), 0x0123,
                           {uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i), 0, 0, 0, 0});
         return out + FakeDevice::soundAnswer(p);
     },
     nullptr, 0, 0,
     [](const TarvelStatistics& s, bool receiver) {
         return receiver ? s.reportsReceived == 2000 && s.reportsDropped == 0 : s.framesReceived == 2001;
     }},
};

void PrintTo(const Hostility& h, std::ostream* os) {
    *os << h.name;
}

// The two kinds of answer: a status, and a block of data (checked).
struct Operation {
    const char* name;
    std::function<int(Tarvel&)> call;
};

constexpr int kWrongData = 1000;

const Operation kOperations[] = {
    {"Ping", [](Tarvel& t) { return t.Ping(); }},
    {"ReadEeprom",
     [](Tarvel& t) {
         unsigned char block[8] = {};
         const int r = t.ReadEeprom(0x0140, sizeof block, block);
         for (unsigned i = 0; r == 0 && i < sizeof block; ++i)
             if (block[i] != uint8_t(0x40 + i)) return kWrongData;
         return r;
     }},
};

class HostileDevice : public ::testing::TestWithParam<std::tuple<Hostility, bool>>, protected FakeDeviceSession {
protected:
    void SetUp() override {
        countBefore();
        device_ = std::make_unique<FakeDevice>();
        connect(receiver(), kReadTimeoutMs, kReadTimeoutMs);
    }
    void TearDown() override { closeAndCount(); }

    const Hostility& hostility() const { return std::get<0>(GetParam()); }
    bool receiver() const { return std::get<1>(GetParam()); }

    // The session works again within a few exchanges (noise may still cost the
    // first; a receiver it ended is started again, as an application would).
    bool recovers() {
        for (int attempt = 0; attempt < 30; ++attempt) {
            if (receiver() && (tarvel_->GetInternalThreadStatus() & 1) == 0) tarvel_->StartReceiver();
            if (tarvel_->Ping() == 0) return true;
        }
        return false;
    }
};

TEST_P(HostileDevice, TheExchangeEndsInTimeWithItsCodeAndTheSessionRecovers) {
    const Hostility& h = hostility();
    // The device's thread may still be answering when the test ends: the
    // generator lives as long as the reply that uses it.
    const auto rng = std::make_shared<std::mt19937>(20240611);
    for (const Operation& op : kOperations) {
        SCOPED_TRACE(op.name);
        tarvel_->ResetStatistics();
        auto reply = h.reply;
        device_->misbehave([rng, reply](const HostPacket& p) { return reply(p, *rng); }, h.chatter);

        const auto start = std::chrono::steady_clock::now();
        const int result = within(
            std::chrono::seconds(20), [&] { return op.call(*tarvel_); }, [&] { device_->die(); });
        // Noise may end the receiver before the exchange begins to wait: then it reads directly.
        const bool direct = !receiver() || (result == h.direct && tarvel_->GetStatistics().receiverEnded > 0);
        EXPECT_EQ(direct ? h.direct : h.receiver, result) << err_.str();
        EXPECT_LT(msSince(start), kBoundMs) << "read time-out " << kReadTimeoutMs << " ms";
        EXPECT_TRUE(eventually([&] { return h.met(tarvel_->GetStatistics(), receiver()); }))
            << "the fault did not reach the session as expected";
        if (result < 0) {
            EXPECT_GE(tarvel_->GetStatistics().exchangesTimedOut, 1u);
        }

        device_->behave();
        EXPECT_TRUE(recovers()) << err_.str();
    }
    EXPECT_EQ(0, tarvel_->Disconnect());
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileDevice, ::testing::Combine(::testing::ValuesIn(kHostilities), ::testing::Bool()),
                         [](const ::testing::TestParamInfo<std::tuple<Hostility, bool>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_Receiver" : "_Direct");
                         });

} // namespace
