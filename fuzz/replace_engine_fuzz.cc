// Drives replace_engine::engine with a script of replace/erase/apply/reset
// calls read from the input, and checks every answer and every result against
// a naive engine that applies the rules literally.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tvbase/text/replace_engine.h>
#include <tvbase/text/replace_engine_model.h>

namespace {

using replace_engine::model::naive_engine;

struct reader {
  const std::uint8_t* data;
  std::size_t size;
  std::uint8_t next() {
    if (size == 0) return 0;
    --size;
    return *data++;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  reader in{data, size};
  // The source is kept apart from the model's copy, so that only views into
  // it are accepted by the engine.
  std::string source(in.next() % 64, 'a');
  for (char& c : source) c = static_cast<char>('a' + in.next() % 26);
  naive_engine model{source, {}};
  replace_engine::engine<char> engine{source};
  std::vector<std::string> results;  // texts that reset() may bind to
  while (in.size > 0) {
    const std::uint8_t op = in.next() % 8;
    if (op < 5) {
      const std::size_t at = in.next() % (model.source.size() + 3);
      const std::size_t length = in.next() % 9;
      std::string with(in.next() % 4, static_cast<char>('0' + op));
      const bool inside = at <= model.source.size() && length <= model.source.size() - at;
      const std::string_view& bound = source;
      const bool got = inside ? engine.replace(std::string_view(bound.data() + at, length), with)
                              : engine.replace(std::string_view(with), "x");  // a foreign view
      const bool expected = model.replace({at, length, with});
      if (got != expected) std::abort();
    } else if (op == 5) {
      if (engine.apply() != model.apply()) std::abort();
    } else if (op == 6) {
      const std::size_t count = engine.size();
      if (count != model.edits.size()) std::abort();
    } else {
      source = model.apply();
      engine.reset(source);
      model.source = source;
    }
  }
  if (engine.apply() != model.apply()) std::abort();
  return 0;
}
