// The workers that talk to the device itself: control commands and the EEPROM.
#include <array>
#include <random>
#include <set>

#include "Workers.h"

namespace soak {

namespace {

using Block = std::array<uint8_t, 16>;

std::string hex(const Block& b) {
    char text[2 * sizeof(Block) + 1];
    for (std::size_t i = 0; i < b.size(); ++i)
        std::snprintf(text + 2 * i, 3, "%02X", b[i]);
    return text;
}

} // namespace

void deviceWorker(Context& c) {
    long long lastClock = -1;
    for (unsigned i = 0; !c.stop; ++i) {
        timed(c, "Ping", {0, -15}, [&] { return c.tarvel.Ping(); });
        long long clock = 0;
        if (timed(c, "GetTime", {0, -15}, [&] { return c.tarvel.GetTime(&clock); }) == 0) {
            // No restart in a soak: the device's millisecond clock only goes on.
            if (clock < lastClock)
                c.tally.fail("GetTime went back from " + std::to_string(lastClock) + " to " + std::to_string(clock));
            lastClock = clock;
        }
        if (i % 8 == 0) timed(c, "GatewayID", {-15}, [&] { return c.tarvel.GatewayID(1, 0x7E0); });
    }
}

// Each slot's possible contents: a write whose answer was lost may or may not
// have happened; a read that succeeds says which.
void eepromWorker(Context& c, int index) {
    constexpr int kSlots = 8;
    const unsigned short base = static_cast<unsigned short>(0x1000 + 0x100 * index);
    std::mt19937 rng(static_cast<unsigned>(index) * 7919u + 1u);
    std::vector<std::set<Block>> possible(kSlots);
    while (!c.stop) {
        const int slot = static_cast<int>(rng() % kSlots);
        const unsigned short address = static_cast<unsigned short>(base + 16 * slot);
        const bool known = !possible[slot].empty(); // not known yet, or lost track: only read until it is
        const unsigned char length = static_cast<unsigned char>(1 + rng() % 16);
        Block data{};
        std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(rng()); });
        int wrote = -1;
        if (known)
            wrote =
                timed(c, "WriteEeprom", {0, -15}, [&] { return c.tarvel.WriteEeprom(address, length, data.data()); });
        std::set<Block> after;
        for (Block p : possible[slot]) {
            if (wrote != 0) after.insert(p);
            std::copy(data.begin(), data.begin() + length, p.begin());
            after.insert(p);
        }
        Block read{};
        if (timed(c, "ReadEeprom", {0, -15}, [&] { return c.tarvel.ReadEeprom(address, 16, read.data()); }) == 0) {
            if (known && after.count(read) == 0)
                c.tally.fail("EEPROM at " + std::to_string(address) + " read back " + hex(read) + " after writing " +
                             std::to_string(length) + " bytes (" + (wrote == 0 ? "confirmed" : "unconfirmed") + ")");
            after = {read};
        }
        possible[slot] = after.size() <= 64 ? after : std::set<Block>{};
    }
}

} // namespace soak
