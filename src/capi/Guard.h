// What every C entry point does before and around its operation: refuse a
// null session handle (and null pointers it needs) before anything else, and
// keep C++ exceptions on this side: unwinding into a C caller's frames is
// undefined behaviour.
#ifndef TARVEL_CAPI_GUARD_H
#define TARVEL_CAPI_GUARD_H

#include <cstdio>
#include <type_traits>
#include <utility>

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

// There is no session to report through: the standard error stream.
inline bool nullSession(const Tarvel* tarvel, const char* entryPoint) {
    if (tarvel != nullptr) return false;
    std::fprintf(stderr, "%s: The session handle is NULL!\n", entryPoint);
    return true;
}

// A pointer the entry point can't do without, reported on the session's error channel.
inline bool nullArgument(Tarvel* tarvel, bool missing, const char* entryPoint, const char* name) {
    if (!missing) return false;
    tarvel->Printf_err("%s: %s is NULL!\n", entryPoint, name);
    return true;
}

// An int entry point on a session: TARVEL_ERROR_NULL_POINTER for a null
// handle, TARVEL_ERROR_EXCEPTION when the operation throws. `body` may take
// the entry point's name, for its own reports.
template <class F> int onSession(Tarvel* tarvel, const char* entryPoint, F&& body) noexcept {
    if (nullSession(tarvel, entryPoint)) return TARVEL_ERROR_NULL_POINTER;
    if constexpr (std::is_invocable_v<F, const char*>)
        return guarded([&] { return body(entryPoint); });
    else
        return guarded(std::forward<F>(body));
}

template <class F> void onSessionVoid(Tarvel* tarvel, const char* entryPoint, F&& body) noexcept {
    if (nullSession(tarvel, entryPoint)) return;
    if constexpr (std::is_invocable_v<F, const char*>)
        guardedVoid([&] { body(entryPoint); });
    else
        guardedVoid(std::forward<F>(body));
}

} // namespace tarvel::capi

#endif
