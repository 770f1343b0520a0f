#include <tvbase/platform/library_entry.h>

namespace {

// Priority 101, the first that programs may use: the library is loaded
// before, and unloaded after, the static objects of the program and of
// other libraries that may call into it.
__attribute__((constructor(101))) void on_load() { static_cast<void>(library::load()); }

__attribute__((destructor(101))) void on_unload() { library::unload(); }

}  // namespace
