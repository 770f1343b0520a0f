#ifndef TVBASE_TESTING_LOADED_LIBRARY_H
#define TVBASE_TESTING_LOADED_LIBRARY_H

// A shared library that a test loads into its own process by path, as a
// plug-in host would, and unloads again; and whether a file is still mapped
// into the process afterwards. Test code only; nothing here throws.
//
//   testing_support::loaded_library lib(path);
//   auto get = reinterpret_cast<unsigned long long (*)()>(lib.symbol("_ZN14distinct_value3getEv"));
//   lib.unload();
//   EXPECT_FALSE(testing_support::is_mapped(path));

#include <string>

namespace testing_support {

class loaded_library {
 public:
  // Loads the library at `path`, resolving every symbol at once, its names
  // visible to no other library. loaded() says whether that worked and
  // error() why not.
  explicit loaded_library(const std::string& path);
  // Unloads the library if it is still loaded.
  ~loaded_library() { unload(); }
  loaded_library(const loaded_library&) = delete;
  loaded_library& operator=(const loaded_library&) = delete;

  bool loaded() const { return handle_ != nullptr; }
  // The address of the exported (mangled) name, or null.
  void* symbol(const char* name) const;
  // Gives the library back to the system; false if the system refused. Once
  // the last reference is gone the system may unmap it, or keep it where the
  // library asks to stay.
  bool unload();
  const std::string& error() const { return error_; }

 private:
  void* handle_ = nullptr;
  std::string error_;
};

// True if some mapping of this process holds the file at `path` (the same
// file by device and inode, whatever name it was loaded by); false if not,
// or if `path` names no file.
bool is_mapped(const std::string& path);

}  // namespace testing_support

#endif  // TVBASE_TESTING_LOADED_LIBRARY_H
