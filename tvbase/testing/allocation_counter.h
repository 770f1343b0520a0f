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

namespace testing_support {

// Allocations through any form of operator new so far, on all threads.
long allocations();

// False where the counting operator new is itself replaced, as valgrind does;
// tests that count then skip.
bool allocations_counted();

}  // namespace testing_support

#endif  // TVBASE_TESTING_ALLOCATION_COUNTER_H
