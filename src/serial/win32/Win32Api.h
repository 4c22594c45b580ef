// <windows.h> as the Win32 port layer (and its tests) want it: lean, without
// the min/max macros, and with CancelIoEx declared.
#ifndef TARVEL_SERIAL_WIN32_API_H
#define TARVEL_SERIAL_WIN32_API_H

#ifndef _WIN32_WINNT
#define _WIN32_WINNT 0x0601
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#endif
