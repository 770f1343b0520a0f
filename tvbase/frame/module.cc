// The library's load and unload, run from the shared library's own
// initialisation and finalisation (and, in programs that link the objects
// directly, before main and after exit).
#include <tvbase/frame/shared_data.h>

namespace {

__attribute__((constructor(101))) void load() { frame::attach_shared_data(); }

__attribute__((destructor(101))) void unload() { frame::detach_shared_data(); }

}  // namespace
