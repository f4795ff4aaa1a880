// The operating system's interface as this project uses it.
//
// On Windows these are the system's own headers. Elsewhere (the native test builds) it is a small set of stand-ins with
// the same names, types and meanings, so that the same sources compile and run under the sanitizers.
#ifndef ORVANE_PLATFORM_WINDOWS_API_H
#define ORVANE_PLATFORM_WINDOWS_API_H

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// The order matters: the later headers rely on the earlier ones.
// clang-format off
#include <windows.h>
#include <wincrypt.h>
#include <winscard.h>
#include <bcrypt.h>
#include <psapi.h>
// clang-format on
#else
#include "platform/host/host_windows.h"
#endif

#endif  // ORVANE_PLATFORM_WINDOWS_API_H
