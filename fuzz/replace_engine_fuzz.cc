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

namespace {

struct edit {
  std::size_t at, length;
  std::string with;
};

struct naive {
  std::string source;
  std::vector<edit> edits;

  bool replace(std::size_t at, std::size_t length, std::string with) {
    if (at > source.size() || length > source.size() - at) return false;
    for (const edit& e : edits) {
      if (at + length > e.at && at < e.at + e.length) return false;
    }
    edits.push_back({at, length, std::move(with)});
    return true;
  }
  std::string apply() {
    std::stable_sort(edits.begin(), edits.end(), [](const edit& a, const edit& b) {
      return a.at < b.at || (a.at == b.at && a.length < b.length);
    });
    std::string out;
    std::size_t read = 0;
    for (const edit& e : edits) {
      out += source.substr(read, e.at - read) + e.with;
      read = e.at + e.length;
    }
    out += source.substr(read);
    edits.clear();
    return out;
  }
};

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
  naive model{source, {}};
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
      const bool expected = model.replace(at, length, with);
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
