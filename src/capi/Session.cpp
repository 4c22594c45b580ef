// C entry points: session life, connection and receiver thread.
#include <string>

#include "Guard.h"
#include "Tarvel.h"

using tarvel::capi::onSession;
using tarvel::capi::onSessionVoid;

extern "C" {

TARVEL_API Tarvel* TARVEL_CALL NewTarvel(void) {
    // Allowed to throw: the caller gets no handle, and there is no code to return.
    return new Tarvel();
}

TARVEL_API void TARVEL_CALL DeleteTarvel(Tarvel* tarvel) {
    // A null handle is allowed here and does nothing.
    tarvel::capi::guardedVoid([&] { delete tarvel; });
}

TARVEL_API int TARVEL_CALL ConnectTarvel(Tarvel* tarvel, const char* port, unsigned int readTimeout,
                                         unsigned int writeTimeout) {
    return onSession(tarvel, __func__, [&] {
        // A null name behaves as an empty one: the port cannot be opened.
        const std::string name = port ? std::string(port) : std::string();
        return tarvel->Connect(name, readTimeout, writeTimeout);
    });
}

TARVEL_API int TARVEL_CALL DisconnectTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->Disconnect(); });
}

TARVEL_API int TARVEL_CALL StartReceiverTarvel(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->StartReceiver(); });
}

TARVEL_API void TARVEL_CALL StopReceiverTarvel(Tarvel* tarvel) {
    onSessionVoid(tarvel, __func__, [&] { tarvel->StopReceiver(); });
}

TARVEL_API int TARVEL_CALL GetInternalThreadStatus(Tarvel* tarvel) {
    return onSession(tarvel, __func__, [&] { return tarvel->GetInternalThreadStatus(); });
}

} // extern "C"
