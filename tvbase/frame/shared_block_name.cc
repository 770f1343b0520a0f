// The machine-wide name of the shared block, kept apart so that no call to it
// is inlined: test programs replace this weak definition with their own.
#include <tvbase/frame/shared_data.h>

namespace frame {

__attribute__((weak)) const char* shared_block_name() noexcept { return "/tvbase-shared-1"; }

}  // namespace frame
