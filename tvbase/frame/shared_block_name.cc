// The stem of the shared block's name, kept apart so that no call to it is
// inlined: test programs replace this definition with their own (weak on
// ELF; on Windows a static library of its own, see CMakeLists.txt).
#include <tvbase/frame/shared_data.h>

#if defined(_WIN32)
#define TVBASE_REPLACEABLE
#else
#define TVBASE_REPLACEABLE __attribute__((weak))
#endif

namespace frame {

TVBASE_REPLACEABLE const char* shared_block_name() noexcept { return "/tvbase-shared-1"; }

}  // namespace frame
