// The mode byte of the REBOOT command: what the device does with it.
#ifndef TARVEL_PROTOCOL_REBOOT_MODE_H
#define TARVEL_PROTOCOL_REBOOT_MODE_H

namespace tarvel {

enum RebootMode : unsigned char {
    kRebootMode0 = 0,     // Reboot(false)
    kRebootMode1 = 1,     // Reboot(true)
    kRebootReset = 2,     // Reset
    kVersionQuery = 3,    // answer the version, don't restart (Connect, GetVersion)
    kRebootBootloader = 5 // Bootloader
};

// The device feature level a version-query result stands for: 100 for a
// device that accepts the query (status 0), 0 for any other status (0xFFFF,
// mapped to -21, included); negative results stay as they are.
inline int versionFromQuery(int result) {
    if (result == -21) return 0;
    if (result < 0) return result;
    return result == 0 ? 100 : 0;
}

} // namespace tarvel

#endif
