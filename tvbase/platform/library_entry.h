#ifndef TVBASE_PLATFORM_LIBRARY_ENTRY_H
#define TVBASE_PLATFORM_LIBRARY_ENTRY_H

// The library's entry: the system calls it on the thread that loads the
// library into a process and on the one that unloads it, and the entry
// passes these events on to the two functions below. They are the library's
// own and are defined above this layer (tvbase/library.cc); the entry only
// translates the system's events.
//
// Here the entry is a pair of functions that the dynamic loader runs when
// the shared library is loaded and unloaded (in programs that link the
// library's objects directly: before main and after exit). A load can't be
// refused from there, so the result of load() is not used. Where the
// system's entry also reports the end of each thread, the entry hands that
// to the thread key's hook (<tvbase/platform/thread_key.h>); here the pthread
// key does it by itself.

namespace library {

// Builds what exists once per process. False where the library can't work
// (no thread slot); it then leaves itself inert, and an entry that can
// refuse a load does so.
bool load() noexcept;

// Takes down what load() built, in the reverse order.
void unload() noexcept;

}  // namespace library

#endif  // TVBASE_PLATFORM_LIBRARY_ENTRY_H
