#ifndef TVBASE_FRAME_THREAD_SLOT_H
#define TVBASE_FRAME_THREAD_SLOT_H

// The thread slot: one value per thread, for the one owner that the library
// gives it (the call trace keeps its per-thread state there). The slot
// stores and hands back the value and knows nothing of what it means: null
// is "nothing yet", any other value is the owner's. When a thread ends with
// a value that is not null, the owner's hook runs on that thread with the
// value, after the slot was set back to null; at unload the unloading thread
// releases its own value the same way. Values of threads still alive at
// unload are left alone.
//
//   frame::build_thread_slot(on_thread_end);      // load, before any use
//   if (frame::thread_slot_value() == nullptr) frame::set_thread_slot_value(state);
//   frame::release_thread_slot_value();           // unload, this thread's value
//   frame::take_down_thread_slot();               // unload, after every user

namespace frame {

// Runs on an ending thread with its value, which is never null.
using thread_end_hook = void (*)(void* value);

// Load and unload. The slot is built first and taken down last. Building
// only records a failure: on Linux a load can't be refused from the library's
// initialisation, so without a slot the library stays loaded and nothing is
// stored per thread. `on_thread_end` is the owner's, fixed for the slot's
// life.
void build_thread_slot(thread_end_hook on_thread_end) noexcept;
void take_down_thread_slot() noexcept;
[[nodiscard]] bool thread_slot_valid() noexcept;

// This thread's value; null if none was stored or there is no slot.
[[nodiscard]] void* thread_slot_value() noexcept;

// Stores this thread's value; does nothing if there is no slot.
void set_thread_slot_value(void* value) noexcept;

// Releases this thread's value: sets it back to null and, if it was not
// null, hands it to the owner's hook, as when the thread ends.
void release_thread_slot_value() noexcept;

}  // namespace frame

#endif  // TVBASE_FRAME_THREAD_SLOT_H
