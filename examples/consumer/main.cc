// Uses a few exported entry points of an installed TvBase and checks them.
#include <cstdio>
#include <string>
#include <string_view>

#include <tvbase/system/dir_walk.h>
#include <tvbase/system/version.h>
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
  const unsigned long version = TvVersion::Parse("12.41b");
  check(version == 0x0C040102 && TvVersion::ToString(version, TvVersion::CompareMinor) == "12.4",
        "TvVersion");
  os::dir_walk walker;
  walker.set_order(os::dir_walk::walk_order::no_descent);
  check(walker.walk(L"/nonexistent/folder", {}, {}) == os::dir_walk::result::list_failed,
        "dir_walk");
  return failures == 0 ? 0 : 1;
}
