/// @file Version.h
/// The version of these headers, and of the library that was loaded. Compiles as C11 and as C++17.
///
/// A release that adds raises the second number, one that only fixes the third; the first changes when an
/// application must be built anew.
#ifndef VELMORA_VERSION_H
#define VELMORA_VERSION_H

#include <velmora/Export.h>

#define VELMORA_VERSION_MAJOR 1
#define VELMORA_VERSION_MINOR 0
#define VELMORA_VERSION_PATCH 0
/// The three numbers as text. The build takes the version of the project from here.
#define VELMORA_VERSION "1.0.0"

#ifdef __cplusplus
extern "C" {
#endif

/// The version of the loaded library, which may be newer than the headers that an application was built with.
/// Any thread may call it at any time; no session and no application object is needed.
/// @return text such as "1.0.0", never null, valid as long as the library is loaded
VELMORA_EXPORT const char *velmoraVersion(void);

#ifdef __cplusplus
}
#endif

#endif
