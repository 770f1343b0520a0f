#include <tvbase/testing/loaded_library.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cinttypes>
#include <cstdio>

namespace testing_support {

loaded_library::loaded_library(const std::string& path) {
  handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* why = ::dlerror();
    error_ = why != nullptr ? why : "dlopen failed";
  }
}

void* loaded_library::symbol(const char* name) const {
  return handle_ != nullptr ? ::dlsym(handle_, name) : nullptr;
}

bool loaded_library::unload() {
  if (handle_ == nullptr) return true;
  void* handle = handle_;
  handle_ = nullptr;
  if (::dlclose(handle) == 0) return true;
  const char* why = ::dlerror();
  error_ = why != nullptr ? why : "dlclose failed";
  return false;
}

bool is_mapped(const std::string& path) {
  struct stat file;
  if (::stat(path.c_str(), &file) != 0) return false;
  std::FILE* maps = std::fopen("/proc/self/maps", "re");
  if (maps == nullptr) return false;
  // Each line: start-end perms offset major:minor inode [path]; the device
  // numbers are in hexadecimal.
  char line[4096];
  bool found = false;
  while (!found && std::fgets(line, sizeof line, maps) != nullptr) {
    unsigned int major_number = 0, minor_number = 0;
    std::uintmax_t inode = 0;
    if (std::sscanf(line, "%*s %*s %*s %x:%x %" SCNuMAX, &major_number, &minor_number, &inode) != 3)
      continue;
    found = inode == file.st_ino && major_number == major(file.st_dev) &&
            minor_number == minor(file.st_dev);
  }
  std::fclose(maps);
  return found;
}

}  // namespace testing_support
