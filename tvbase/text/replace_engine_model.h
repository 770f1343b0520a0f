#ifndef TVBASE_TEXT_REPLACE_ENGINE_MODEL_H
#define TVBASE_TEXT_REPLACE_ENGINE_MODEL_H

// A literal model of replace_engine::engine for tests and fuzzing: edits as
// offsets, the linear collision check, and a stable sort before the rebuild.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace replace_engine::model {

struct edit {
  std::size_t at, length;
  std::string with;
};

struct naive_engine {
  std::string source;
  std::vector<edit> edits;

  bool replace(const edit& e) {
    if (e.at > source.size() || e.length > source.size() - e.at) return false;
    for (const edit& r : edits) {
      if (e.at + e.length > r.at && e.at < r.at + r.length) return false;
    }
    edits.push_back(e);
    return true;
  }

  std::string apply() {
    std::stable_sort(edits.begin(), edits.end(), [](const edit& a, const edit& b) {
      return a.at < b.at || (a.at == b.at && a.length < b.length);
    });
    std::string out;
    std::size_t read = 0;
    for (const edit& e : edits) {
      out.append(source, read, e.at - read).append(e.with);
      read = e.at + e.length;
    }
    out.append(source, read);
    edits.clear();
    return out;
  }
};

}  // namespace replace_engine::model

#endif  // TVBASE_TEXT_REPLACE_ENGINE_MODEL_H
