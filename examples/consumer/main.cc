// Uses a few exported entry points of an installed TvBase and checks them.
#include <cstdio>
#include <string>
#include <string_view>

#include <tvbase/text/convert.h>
#include <tvbase/text/replace_engine.h>
#include <tvbase/text/utf8.h>

int main() {
  int failures = 0;
  const auto check = [&](bool ok, const char* what) {
    if (!ok) {
      std::fprintf(stderr, "consumer: %s failed\n", what);
      ++failures;
    }
  };
  check(convert::url_encode(std::string_view("a b"), 0) == "a+b", "url_encode");
  check(TvxIsValidUtf8("caf\xC3\xA9") && !TvxIsValidUtf8("\xC3"), "TvxIsValidUtf8");
  const std::string text = "hello world";
  replace_engine::engine<char> edits{text};
  check(edits.replace(std::string_view(text).substr(0, 5), "bye"), "replace");
  check(edits.apply() == "bye world", "apply");
  return failures == 0 ? 0 : 1;
}
