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
  TvFuncLog log("Square", TvFuncLog::eLogFilter0, x);
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
  TvFuncLog log("Worker", TvFuncLog::eLogFilter1, id);
  log.WriteLineFormat("worker %d starts", id);
  SumOfSquares(id + 1);
}

// Typed parameters: each is shown with its type, and a pointer that can't be
// read shows a question mark instead of bringing the program down.
void Describe(const char* name, const wchar_t* title, const double* price, const int* stock,
              const win::GUID& id, unsigned flags) {
  TvFuncLog log("Describe", TvFuncLog::eLogFilter0, name, title, price, stock, id,
                TvFuncLog::Flags(flags), TvFuncLog::Hex(flags));
}

}  // namespace

int main() {
  TvFuncLog log("main");
  log.WriteLine("traced_app starts");
  SumOfSquares(2);
  static const double price = 3.5;
  static const win::GUID id{
      0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
  const int* bad_stock = reinterpret_cast<const int*>(16);  // never mapped
  Describe("caf\xC3\xA9 cr\xC3\xA8me", L"Z\u00F6e's \u20AC list", &price, bad_stock, id, 5);
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
