// Helpers for the Windows test programs: wine detection and the COM port
// that run-wine-tests.sh (or a tester on a real machine) provides.
#ifndef TARVEL_TEST_WIN_SUPPORT_H
#define TARVEL_TEST_WIN_SUPPORT_H

#include "serial/win32/Win32Api.h"

#include <cstdlib>
#include <string>

namespace wintest {

// Wine's ntdll exports wine_get_version; Windows' does not.
inline bool underWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// The port a simulated (or real) device answers on, e.g. "COM5"; empty when
// none was given in TARVEL_TEST_COM.
inline std::string devicePort() {
    const char* name = std::getenv("TARVEL_TEST_COM");
    return name != nullptr ? std::string(name) : std::string();
}

} // namespace wintest

#define TARVEL_REQUIRE_DEVICE_PORT(var)                                                                                \
    const std::string var = wintest::devicePort();                                                                     \
    if (var.empty()) GTEST_SKIP() << "no device port: set TARVEL_TEST_COM (tests/windows/run-wine-tests.sh does)"

#endif
