#ifndef TVBASE_TESTING_HOSTILE_FILES_H
#define TVBASE_TESTING_HOSTILE_FILES_H

// What a hostile user puts where the library reads a path: FIFOs that never
// answer, folders swapped for symbolic links while they are walked, trees
// deeper than one path can name, and a process short of descriptors. Test
// code only; nothing here throws, and a call that fails says so.
//
//   ASSERT_TRUE(testing_support::make_fifo(dir.path() + "icon.ico"));
//   EXPECT_EQ(testing_support::in_child_with_alarm([&] { return load(...) ? 1 : 0; }, 60), 0);

#include <functional>
#include <string>

namespace testing_support {

// Makes a FIFO at `path` (mode 0666 before the umask); false on failure.
bool make_fifo(const std::string& path);

// Swaps what the names `a` and `b` stand for in one step (renameat2 with
// RENAME_EXCHANGE); false on failure.
bool exchange_names(const std::string& a, const std::string& b);

// Makes `depth` folders called `name`, each inside the one before, the first
// inside `folder`, and an empty file `leaf` in the last one. Each is made
// relative to its parent, so the whole path may be far longer than a path
// can be. False on failure.
bool make_folder_chain(const std::string& folder, const std::string& name, int depth,
                       const std::string& leaf);

// Removes a chain that make_folder_chain made under `folder` (which stays),
// however deep, with one descriptor at a time; false on failure.
bool remove_folder_chain(const std::string& folder, const std::string& name,
                         const std::string& leaf);

// The number of descriptors this process has open.
int open_descriptor_count();

// Lowers this process's limit of open descriptors to `count`; false if the
// system refused. For forked children: it cannot be raised again.
bool limit_open_descriptors(int count);

// Makes the openat2 system call fail with ENOSYS in this process from now
// on, as it does on kernels before 5.6 and under container filters that
// refuse calls they don't know, so that the code paths for such systems run
// here too. For forked children: it cannot be undone. False if the system
// refused the filter.
bool refuse_openat2();

// Whether a child has the openat2 system call, or runs as on a system
// without it (refuse_openat2).
enum class openat2 { available, refused };

// Runs `body` in a forked child that the alarm signal ends after `seconds`,
// so that a body that hangs cannot hold the test: gives its exit code, or -1
// if it didn't exit normally (the alarm, a crash), or 199 if openat2 could
// not be refused.
int in_child_with_alarm(const std::function<int()>& body, unsigned seconds,
                        openat2 calls = openat2::available);

}  // namespace testing_support

#endif  // TVBASE_TESTING_HOSTILE_FILES_H
