// C entry points: device control and EEPROM.
#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::onSession;

namespace {
// How long RebootTarvel waits for the device to answer a ping again.
constexpr unsigned int kRebootWaitMs = 5000;
} // namespace

extern "C" {

TARVEL_API int TARVEL_CALL ResetTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->Reset(); });
}

TARVEL_API int TARVEL_CALL RebootTarvel(Tarvel* tarvel, bool mode) {
    return onSession(tarvel, __func__, [&] { return tarvel->Reboot(mode, kRebootWaitMs); });
}

TARVEL_API int TARVEL_CALL BootloaderTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->Bootloader(); });
}

TARVEL_API int TARVEL_CALL GetVersionTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->GetVersion(); });
}

TARVEL_API int TARVEL_CALL GetTimeTarvel(Tarvel* tarvel, long long* time) {
    return onSession(tarvel, __func__, [&] { return tarvel->GetTime(time); });
}

TARVEL_API int TARVEL_CALL SetTimeTarvel(Tarvel* tarvel, long long time) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetTime(time); });
}

TARVEL_API int TARVEL_CALL ReadEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                            unsigned char* data) {
    return onSession(tarvel, __func__, [&] { return tarvel->ReadEeprom(address, length, data); });
}

TARVEL_API int TARVEL_CALL WriteEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                             const unsigned char* data) {
    return onSession(tarvel, __func__, [&] { return tarvel->WriteEeprom(address, length, data); });
}

} // extern "C"
