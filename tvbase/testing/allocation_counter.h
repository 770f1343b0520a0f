#ifndef TVBASE_TESTING_ALLOCATION_COUNTER_H
#define TVBASE_TESTING_ALLOCATION_COUNTER_H

// Every test program replaces the global operator new and delete with
// versions that count allocations, so that a test can show where code
// allocates and where it does not:
//
//   const long before = testing_support::allocations();
//   stash.store("x");
//   EXPECT_EQ(testing_support::allocations(), before);

namespace testing_support {

// Allocations through any form of operator new so far, on all threads.
long allocations();

}  // namespace testing_support

#endif  // TVBASE_TESTING_ALLOCATION_COUNTER_H
