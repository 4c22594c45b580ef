// C entry points: device control and EEPROM.
#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::guarded;

namespace {
// How long RebootTarvel waits for the device to answer a ping again.
constexpr unsigned int kRebootWaitMs = 5000;
} // namespace

extern "C" {

TARVEL_API int TARVEL_CALL ResetTarvel(Tarvel* tarvel) {
    return guarded([&] { return tarvel->Reset(); });
}

TARVEL_API int TARVEL_CALL RebootTarvel(Tarvel* tarvel, bool mode) {
    return guarded([&] { return tarvel->Reboot(mode, kRebootWaitMs); });
}

TARVEL_API int TARVEL_CALL BootloaderTarvel(Tarvel* tarvel) {
    return guarded([&] { return tarvel->Bootloader(); });
}

TARVEL_API int TARVEL_CALL GetVersionTarvel(Tarvel* tarvel) {
    return guarded([&] { return tarvel->GetVersion(); });
}

TARVEL_API int TARVEL_CALL GetTimeTarvel(Tarvel* tarvel, long long* time) {
    return guarded([&] { return tarvel->GetTime(time); });
}

TARVEL_API int TARVEL_CALL SetTimeTarvel(Tarvel* tarvel, long long time) {
    return guarded([&] { return tarvel->SetTime(time); });
}

TARVEL_API int TARVEL_CALL ReadEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                            unsigned char* data) {
    return guarded([&] { return tarvel->ReadEeprom(address, length, data); });
}

TARVEL_API int TARVEL_CALL WriteEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                             const unsigned char* data) {
    return guarded([&] { return tarvel->WriteEeprom(address, length, data); });
}

} // extern "C"
