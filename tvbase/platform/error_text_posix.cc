#include <tvbase/platform/error_text.h>

#include <cstring>

namespace platform {

std::string error_text(std::uint32_t code) { return std::strerror(static_cast<int>(code)); }

}  // namespace platform
