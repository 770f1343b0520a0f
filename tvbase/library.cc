// The library's load and unload: the steps of the layers beneath, in the
// order that they need. The platform's library entry calls these
// (<tvbase/platform/library_entry.h>).
//
// Load: the shared block is mapped, the thread slot is built, then the log
// sink, whose construction runs the activation decision and creates the log
// file; all of it before the application can call into the library, so the
// configuration is read once per process. Without a thread slot no thread
// can trace: the sink is taken down again at once (the unload steps that
// apply), and load() says so, for an entry that can refuse the load.
//
// Unload runs the steps backwards, after releasing the unloading thread's
// own trace state. States of other threads still alive then are left alone.
#include <tvbase/frame/shared_data.h>
#include <tvbase/frame/thread_slot.h>
#include <tvbase/platform/library_entry.h>
#include <tvbase/trace/log_sink.h>
#include <tvbase/trace/thread_state.h>

namespace library {

bool load() noexcept {
  frame::attach_shared_data();
  frame::build_thread_slot(trace::ThreadStateEnds);
  trace::BuildProcessSink();
  if (frame::thread_slot_valid()) return true;
  trace::TakeDownProcessSink();
  return false;
}

void unload() noexcept {
  frame::release_thread_slot_value();
  trace::TakeDownProcessSink();
  frame::take_down_thread_slot();
  frame::detach_shared_data();
}

}  // namespace library
