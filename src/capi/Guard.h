// Keeps C++ exceptions on this side of the C entry points: unwinding into a
// C caller's frames is undefined behaviour.
#ifndef TARVEL_CAPI_GUARD_H
#define TARVEL_CAPI_GUARD_H

#include "TarvelAPI.h"

namespace tarvel::capi {

template <class F> int guarded(F&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return TARVEL_ERROR_EXCEPTION;
    }
}

template <class F> void guardedVoid(F&& body) noexcept {
    try {
        body();
    } catch (...) {
        // A void entry point has no way to report it; the session stays usable.
    }
}

} // namespace tarvel::capi

#endif
