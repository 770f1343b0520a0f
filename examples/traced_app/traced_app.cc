// A program that traces itself with TvFuncLog. It writes a log only when
// tracing was switched on for it from outside, for example with
//
//   logtune save <folder of traced_app>/TvLog.cfg --folder /tmp/logs/
//           --programs traced_app --users "*" --filter0 --filter1
//
// and runs the same either way.
#include <cstdio>
#include <stdexcept>
#include <thread>

#include <tvbase/trace/func_log.h>

namespace {

int Square(int x) {
  TvFuncLog log("Square");
  log.WriteLineFormat("x = %d", x);
  return x * x;
}

int SumOfSquares(int n) {
  TvFuncLog log("SumOfSquares");
  int sum = 0;
  for (int i = 1; i <= n; ++i) sum += Square(i);
  log.WriteLineFormat("sum of %d squares = %d", n, sum);
  return sum;
}

void Validate(int value) {
  TvFuncLog log("Validate");
  log.WriteLine("checking the value");
  // The return line of this scope is written while the exception is in
  // flight, and carries the mark "!".
  if (value < 0) throw std::invalid_argument("negative value");
}

void Worker(int id) {
  TvFuncLog log("Worker", TvFuncLog::eLogFilter1);
  log.WriteLineFormat("worker %d starts", id);
  SumOfSquares(id + 1);
}

}  // namespace

int main() {
  TvFuncLog log("main");
  log.WriteLine("traced_app starts");
  SumOfSquares(2);
  try {
    Validate(-1);
  } catch (const std::exception& e) {
    log.WriteLineFormat("caught: %s", e.what());
  }
  std::thread first(Worker, 1);
  std::thread second(Worker, 2);
  first.join();
  second.join();
  std::puts("traced_app: done");
  return 0;
}
