// A program for the log reader's tests: it traces itself in the shapes that
// a reader of logs has to follow. Tracing is switched on by the TvLog.cfg
// that the test puts beside it.
//
//   trace_sample calls     nested calls with parameters, a recursion, a call
//                          of a filter class the test leaves off, a throw,
//                          a cut text line, an enter line too long for its
//                          parameters, and two threads, one after the other
//   trace_sample busy N    two threads at once, N calls each
//   trace_sample open      ends the process from deep inside calls, so that
//                          their return lines never come
//   trace_sample context   the activation context changes inside a call
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include <tvbase/platform/process.h>
#include <tvbase/trace/func_log.h>

namespace {

void Leaf() { TvFuncLog log("Leaf"); }

int Inner(int x) {
  TvFuncLog log("Inner", TvFuncLog::eLogFilter0, x);
  log.WriteLineFormat("x = %d", x);
  return x * x;
}

// Of filter class 1: the test switches it off, so only its callees show.
void Hidden() {
  TvFuncLog log("Hidden", TvFuncLog::eLogFilter1);
  Inner(7);
}

int Recurse(int n) {
  TvFuncLog log("Recurse", TvFuncLog::eLogFilter0, n);
  return n == 0 ? 0 : 1 + Recurse(n - 1);
}

void Outer(int a, const char* b) {
  TvFuncLog log("Outer", TvFuncLog::eLogFilter0, a, b);
  log.WriteLine("outer starts");
  Inner(1);
  Inner(2);
  Leaf();
  Hidden();
}

void Thrower(int x) {
  TvFuncLog log("Thrower", TvFuncLog::eLogFilter0, x);
  throw std::runtime_error("thrown");
}

void Risky() {
  TvFuncLog log("Risky");
  Thrower(-1);
}

// Sixty texts of 150 characters do not fit into one line: those that come
// too late are dropped whole, leaving their separators behind.
void Wide(const char* s) {
#define TEN s, s, s, s, s, s, s, s, s, s
  TvFuncLog log("Wide", TvFuncLog::eLogFilter0, TEN, TEN, TEN, TEN, TEN, TEN);
#undef TEN
}

void Worker(int id) {
  TvFuncLog log("Worker", TvFuncLog::eLogFilter0, id);
  for (int i = 0; i < id; ++i) Inner(10 * id + i);
}

void Step(int thread, int i) {
  TvFuncLog log("Step", TvFuncLog::eLogFilter0, thread, i);
  log.WriteLineFormat("step %d", i);
}

void Busy(int thread, int count) {
  TvFuncLog log("Busy", TvFuncLog::eLogFilter0, thread);
  for (int i = 0; i < count; ++i) Step(thread, i);
}

void Bottom() {
  TvFuncLog log("Bottom");
  log.WriteLine("leaving without a return");
  std::exit(0);
}

template <int N>
void Deep() {
  TvFuncLog log("Deep", TvFuncLog::eLogFilter0, N);
  if constexpr (N > 0) {
    Deep<N - 1>();
  } else {
    Bottom();
  }
}

void Switch() {
  TvFuncLog log("Switch");
  platform::set_activation_context_stand_in(0x1234abcd, false);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  TvFuncLog log("main");
  if (mode == "calls") {
    Outer(1, "two words");
    Recurse(2);
    try {
      Risky();
    } catch (const std::exception& e) {
      log.WriteLineFormat("caught: %s", e.what());
    }
    log.WriteLine(std::string(9000, 'x').c_str());
    Wide(std::string(150, 'w').c_str());
    std::thread first(Worker, 1);
    first.join();
    std::thread second(Worker, 2);
    second.join();
    return 0;
  }
  if (mode == "busy" && argc == 3) {
    const int count = std::atoi(argv[2]);
    std::thread first(Busy, 1, count);
    std::thread second(Busy, 2, count);
    first.join();
    second.join();
    return 0;
  }
  if (mode == "open") {
    Deep<3>();
    return 0;
  }
  if (mode == "context") {
    Switch();
    Leaf();
    return 0;
  }
  return 2;
}
