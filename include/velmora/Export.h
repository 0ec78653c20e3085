/// @file Export.h
/// Symbol visibility of the library's public surface.
///
/// @namespace Velmora
/// The client library for the cloud simulation service: `Velmora::CloudAPI`, its arguments and its results.
#ifndef VELMORA_EXPORT_H
#define VELMORA_EXPORT_H

#if defined(VELMORA_STATIC)
#define VELMORA_EXPORT
#elif defined(_WIN32)
#if defined(VELMORA_BUILDING)
#define VELMORA_EXPORT __declspec(dllexport)
#else
#define VELMORA_EXPORT __declspec(dllimport)
#endif
#else
#define VELMORA_EXPORT __attribute__((visibility("default")))
#endif

#endif
