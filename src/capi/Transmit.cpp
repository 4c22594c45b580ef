// C entry points: transmit messages, signals, checksums.
#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::onSession;

extern "C" {

TARVEL_API int TARVEL_CALL AddMessageTarvel(Tarvel* tarvel, const tagCanMessage* msg, const unsigned char* data) {
    return onSession(tarvel, __func__, [&](const char* entryPoint) {
        if (tarvel::capi::nullArgument(tarvel, msg == nullptr, entryPoint, "msg")) return TARVEL_ERROR_NULL_POINTER;
        if (!data) return tarvel->AddMessage(*msg); // zero data; its own DLC check answers
        if (msg->dlc > 15) {
            tarvel->Printf_err("Tarvel::AddMessageTarvel: Invalid DLC value: %u.\n", static_cast<unsigned>(msg->dlc));
            return -21;
        }
        const ByteVector bytes(data, data + Tarvel::kDlcToLength[msg->dlc]);
        return tarvel->AddMessage(*msg, bytes);
    });
}

TARVEL_API int TARVEL_CALL RemoveMessageTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->RemoveMessage(handler); });
}

TARVEL_API int TARVEL_CALL EnableMessageTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->EnableMessage(handler); });
}

TARVEL_API int TARVEL_CALL DisableMessageTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->DisableMessage(handler); });
}

TARVEL_API int TARVEL_CALL SetMessageDataTarvel(Tarvel* tarvel, unsigned short handler, const unsigned char* data,
                                                const unsigned char* mask, bool flag, bool tracked) {
    return onSession(tarvel, __func__, [&] { return tarvel->SetMessageData(handler, data, mask, flag, tracked); });
}

TARVEL_API int TARVEL_CALL GetHandlerTarvel(Tarvel* tarvel, unsigned char selector1, unsigned char selector2,
                                            unsigned int id, bool idFlag, bool fastSlowSend, bool flag6) {
    return onSession(tarvel, __func__,
                     [&] { return tarvel->GetHandler(selector1, selector2, id, idFlag, fastSlowSend, flag6); });
}

TARVEL_API int TARVEL_CALL AddSignalTarvel(Tarvel* tarvel, unsigned short messageHandler, unsigned char group,
                                           unsigned short startSymbol, unsigned short stopSymbol, unsigned char flags) {
    return onSession(tarvel, __func__,
                     [&] { return tarvel->AddSignal(messageHandler, group, startSymbol, stopSymbol, flags); });
}

TARVEL_API int TARVEL_CALL RemoveSignalTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->RemoveSignal(handler); });
}

TARVEL_API int TARVEL_CALL SignalChangeValueTarvel(Tarvel* tarvel, unsigned short handler, unsigned short value,
                                                   bool flag, bool tracked) {
    return onSession(tarvel, __func__, [&] { return tarvel->SignalChangeValue(handler, value, flag, tracked); });
}

TARVEL_API int TARVEL_CALL ChangeSignalSgroupTarvel(Tarvel* tarvel, unsigned char group, unsigned short value) {
    return onSession(tarvel, __func__, [&] { return tarvel->ChangeSignalSgroup(group, value); });
}

TARVEL_API int TARVEL_CALL ExecuteSignalChangeTarvel(Tarvel* tarvel, bool tracked) {
    return onSession(tarvel, __func__, [&] { return tarvel->ExecuteSignalChange(tracked); });
}

TARVEL_API int TARVEL_CALL SetSignalControlTarvel(Tarvel* tarvel, unsigned short handler, unsigned char controlMode,
                                                  unsigned int arg1, unsigned int arg2, unsigned int arg3) {
    return onSession(tarvel, __func__,
                     [&] { return tarvel->SetSignalControl(handler, controlMode, arg1, arg2, arg3); });
}

TARVEL_API int TARVEL_CALL AddCrcTarvel(Tarvel* tarvel, const unsigned char* crcBlock) {
    return onSession(tarvel, __func__, [&] { return tarvel->AddCrc(crcBlock); });
}

TARVEL_API int TARVEL_CALL ChangeCrcTarvel(Tarvel* tarvel, unsigned short handler, unsigned char* crcBlock) {
    return onSession(tarvel, __func__, [&] { return tarvel->ChangeCrc(handler, crcBlock); });
}

TARVEL_API int TARVEL_CALL DisableCrcTarvel(Tarvel* tarvel, unsigned short handler) {
    return onSession(tarvel, __func__, [&] { return tarvel->DisableCrc(handler); });
}

TARVEL_API int TARVEL_CALL BlobRemoveTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->BlobRemove(); });
}

} // extern "C"
