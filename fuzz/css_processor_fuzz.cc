// process() and images() on any bytes: no crash, no hang, and only the
// library's messages, or std::length_error for references that would take
// the text, or the sheet and its values together, past the budget. A text
// with nothing the passes look for comes back unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <tvbase/css_processor/processor.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string source(reinterpret_cast<const char*>(data), size);
  css_processor::processor sheet{std::string(source)};
  static_cast<void>(sheet.images());
  std::optional<std::string> error;
  try {
    error = sheet.process();
  } catch (const std::length_error&) {
    return 0;
  }
  if (error) {
    const std::string_view message = *error;
    if (!message.starts_with("Variable ") && !message.starts_with("Error in ") &&
        !message.starts_with("Mismatched parentheses")) {
      std::abort();
    }
  } else if (source.find("/*") == std::string::npos && source.find(":root") == std::string::npos &&
             source.find("var(") == std::string::npos && sheet.css() != source) {
    std::abort();
  }
  static_cast<void>(sheet.images());
  return 0;
}
