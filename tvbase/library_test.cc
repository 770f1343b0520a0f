// The shared library as a plug-in host uses it: loaded by path, called, and
// unloaded again, after which nothing of it may stay mapped. Static data of
// inline functions and templates made GNU-unique symbols, or any other
// reason for the loader to pin the library, would keep it in the process
// for good.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/loaded_library.h>
#include <tvbase/testing/processes.h>

namespace {

// The library built beside this test; TVBASE_LIBRARY names another one (an
// installed copy, or an older build to compare with).
std::string library_path() {
  const char* other = std::getenv("TVBASE_LIBRARY");
  return other != nullptr && other[0] != 0 ? other : TVBASE_SHARED_LIBRARY;
}

template <typename Function>
Function* find(const testing_support::loaded_library& lib, const char* name) {
  return reinterpret_cast<Function*>(lib.symbol(name));
}

TEST(SharedLibrary, UnloadsCompletelyOnTheLastClose) {
  const std::string path = library_path();
  ASSERT_FALSE(testing_support::is_mapped(path)) << "this test links the objects, not " << path;
  struct row {
    const char* what;
    // Calls into the loaded library; 0 if its answers are right.
    std::function<int(const testing_support::loaded_library&)> use;
  };
  const row rows[] = {
      {"loaded and unloaded", [](const testing_support::loaded_library&) { return 0; }},
      {"the counter and its text",
       [](const testing_support::loaded_library& lib) {
         auto get = find<unsigned long long()>(lib, "_ZN14distinct_value3getEv");
         auto b36 = find<std::string()>(lib, "_ZN14distinct_value7str_b36B5cxx11Ev");
         if (get == nullptr || b36 == nullptr) return 10;
         const unsigned long long first = get();
         return first != 0 && get() > first && b36().size() == 13 ? 0 : 11;
       }},
      {"text checks and versions",
       [](const testing_support::loaded_library& lib) {
         auto utf8 = find<bool(const char*)>(lib, "_Z14TvxIsValidUtf8PKc");
         auto parse = find<unsigned long(const char*)>(lib, "_ZN9TvVersion5ParseEPKc");
         if (utf8 == nullptr || parse == nullptr) return 10;
         return utf8("caf\xC3\xA9") && !utf8("\xC3") && parse("12.41b") == 0x0C040102UL ? 0 : 11;
       }},
      {"loaded twice, unloaded twice",
       [&path](const testing_support::loaded_library&) {
         testing_support::loaded_library again(path);
         if (!again.loaded()) return 12;
         // The first reference still holds it.
         return again.unload() && testing_support::is_mapped(path) ? 0 : 13;
       }},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    // In a child of its own, so that each row starts with the library
    // nowhere in the process.
    const int code = testing_support::in_child([&] {
      testing_support::loaded_library lib(path);
      if (!lib.loaded()) {
        std::fprintf(stderr, "%s\n", lib.error().c_str());
        return 1;
      }
      if (!testing_support::is_mapped(path)) return 2;
      if (const int used = r.use(lib); used != 0) return used;
      if (!lib.unload()) return 3;
      return testing_support::is_mapped(path) ? 4 : 0;
    });
    EXPECT_EQ(code, 0) << "1 no load, 2 not mapped while loaded, 1x a call, 3 no unload, "
                          "4 still mapped after the last close";
  }
}

}  // namespace
