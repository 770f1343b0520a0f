// Linked into every test program in place of the machine-wide name of the
// shared block: each test process gets a block of its own, named after its
// process number, and hands the name on to the processes it starts through
// the environment, so that they join the same block. The library itself
// reads no environment variable; only this test-only definition does.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/process.h>

namespace frame {

const char* shared_block_name() noexcept {
  // No destructor: the library's unload asks for the name after the
  // program's static objects are gone.
  static char name[64];
  if (name[0] == 0) {
    constexpr const char* kVariable = "TVBASE_TEST_SHARED_BLOCK";
    const char* inherited = std::getenv(kVariable);
    if (inherited != nullptr && inherited[0] == '/' && std::strlen(inherited) < sizeof name) {
      std::strcpy(name, inherited);
    } else {
      std::snprintf(name, sizeof name, "/tvbase-test-%lu", platform::process_id());
#if defined(_WIN32)
      ::_putenv_s(kVariable, name);
#else
      ::setenv(kVariable, name, 1);
#endif
    }
  }
  return name;
}

}  // namespace frame
