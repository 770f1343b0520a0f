#ifndef TVBASE_EXPORT_H
#define TVBASE_EXPORT_H

// Marks the classes and functions that the shared library exports. Everything
// else is hidden.
#if defined(_WIN32)
#if defined(TVBASE_BUILDING)
#define TVBASE_EXPORT __declspec(dllexport)
#else
#define TVBASE_EXPORT __declspec(dllimport)
#endif
#else
#define TVBASE_EXPORT __attribute__((visibility("default")))
#endif

#endif  // TVBASE_EXPORT_H
