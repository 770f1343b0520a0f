// The library's load and unload, run from the shared library's own
// initialisation and finalisation (and, in programs that link the objects
// directly, before main and after exit).
//
// Load: the shared block is mapped, the thread slot is built, then the log
// sink, whose construction runs the activation decision and creates the log
// file. Linux can't refuse a load from here: where no thread slot could be
// had, the sink is taken down again at once and the library stays loaded
// with the trace off. Unload runs the steps backwards, after releasing the
// unloading thread's own trace state.
#include <tvbase/frame/shared_data.h>
#include <tvbase/frame/thread_slot.h>
#include <tvbase/trace/log_sink.h>
#include <tvbase/trace/thread_state.h>

namespace {

__attribute__((constructor(101))) void load() {
  frame::attach_shared_data();
  frame::build_thread_slot(trace::ThreadStateEnds);
  trace::BuildProcessSink();
  if (!frame::thread_slot_valid()) trace::TakeDownProcessSink();
}

__attribute__((destructor(101))) void unload() {
  frame::release_thread_slot_value();
  trace::TakeDownProcessSink();
  frame::take_down_thread_slot();
  frame::detach_shared_data();
}

}  // namespace
