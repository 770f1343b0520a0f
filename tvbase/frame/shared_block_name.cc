// The stem of the shared block's name, kept apart so that no call to it
// is inlined: test programs replace this weak definition with their own.
#include <tvbase/frame/shared_data.h>

namespace frame {

__attribute__((weak)) const char* shared_block_name() noexcept { return "/tvbase-shared-1"; }

}  // namespace frame
