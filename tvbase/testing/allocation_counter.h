#ifndef TVBASE_TESTING_ALLOCATION_COUNTER_H
#define TVBASE_TESTING_ALLOCATION_COUNTER_H

// Every test program replaces the global operator new and delete with
// versions that count allocations, so that a test can show where code
// allocates and where it does not:
//
//   if (!testing_support::allocations_counted()) GTEST_SKIP() << "...";
//   const long before = testing_support::allocations();
//   stash.store("x");
//   EXPECT_EQ(testing_support::allocations(), before);
//
// They also keep the bytes that are live, as malloc_usable_size() gives
// them, and the highest count since the last reset_peak_bytes(), so that a
// test can bound the memory of a call by the size of its input:
//
//   const std::size_t held = testing_support::peak_bytes_during([&] { run(input); });
//   EXPECT_LE(held, 4 * input.size());

#include <cstddef>

namespace testing_support {

// Allocations through any form of operator new so far, on all threads.
long allocations();

// Bytes held by the plain forms of operator new that are not yet deleted,
// counted as the usable size of each block (at least what was asked for).
// The aligned forms are not counted.
std::size_t live_bytes();

// The highest live_bytes() since the program started or since the last
// reset_peak_bytes(), which sets it to the current live_bytes().
std::size_t peak_bytes();
void reset_peak_bytes();

// The most bytes that `run()` held at once beyond those live before it.
template <class Run>
std::size_t peak_bytes_during(Run&& run) {
  reset_peak_bytes();
  const std::size_t before = live_bytes();
  run();
  return peak_bytes() - before;
}

// False where the counting operator new is itself replaced, as valgrind does;
// tests that count then skip.
bool allocations_counted();

}  // namespace testing_support

#endif  // TVBASE_TESTING_ALLOCATION_COUNTER_H
