#ifndef TVBASE_FORM_TEST_SUPPORT_H
#define TVBASE_FORM_TEST_SUPPORT_H

// The bytes a form body should hold, written out plainly, and a receiver's
// reading of a body, for the form tests and the form's fuzz target.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace form_test {

inline std::string text_of(const std::vector<unsigned char>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

inline const unsigned char* bytes(std::string_view s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

inline std::string field(const std::string& b, const std::string& name, const std::string& value) {
  return "\r\n--" + b + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value;
}

inline std::string file(const std::string& b, const std::string& name, const std::string& filename,
                        const std::string& type, const std::string& data) {
  return "\r\n--" + b + "\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" +
         filename + "\"\r\nContent-Type: " + type + "\r\n\r\n" + data;
}

inline std::string end(const std::string& b) { return "\r\n--" + b + "--"; }

// A name or file name as it goes out: quote, CR and LF percent-escaped.
inline std::string escaped(std::string_view name) {
  std::string out;
  for (const char c : name) {
    out += c == '"' ? "%22" : c == '\r' ? "%0D" : c == '\n' ? "%0A" : std::string(1, c);
  }
  return out;
}

// One part as a receiver reads it.
struct part {
  std::string name;
  std::optional<std::string> filename;
  std::optional<std::string> content_type;
  std::string data;
  bool operator==(const part&) const = default;
};

// A receiver's reading of a body (RFC 2046 and 7578), written from the
// format and not from the builder: the body is cut at every CR LF "--"
// boundary, the close delimiter must end it, each part's headers end at its
// first blank line, and the disposition's quoted strings end at the next
// quote. Empty for a body that doesn't read as a form.
inline std::optional<std::vector<part>> receive(const std::string& body,
                                                const std::string& boundary) {
  const std::string delimiter = "\r\n--" + boundary;
  std::vector<std::size_t> at;
  for (std::size_t p = body.find(delimiter); p != std::string::npos;
       p = body.find(delimiter, p + 1))
    at.push_back(p);
  if (at.empty() || at.front() != 0) return std::nullopt;
  std::vector<part> parts;
  for (std::size_t i = 0; i < at.size(); ++i) {
    const std::size_t p = at[i] + delimiter.size();
    if (body.compare(p, std::string::npos, "--") == 0 && i + 1 == at.size()) return parts;
    if (i + 1 == at.size() || body.compare(p, 2, "\r\n") != 0) return std::nullopt;
    const std::string whole = body.substr(p + 2, at[i + 1] - p - 2);
    const std::size_t blank = whole.find("\r\n\r\n");
    if (blank == std::string::npos) return std::nullopt;
    std::string_view headers = std::string_view(whole).substr(0, blank);
    part got;
    got.data = whole.substr(blank + 4);
    const auto quoted = [&](std::string_view lead, std::string& into) {
      if (!headers.starts_with(lead)) return false;
      headers.remove_prefix(lead.size());
      const std::size_t end = headers.find('"');
      if (end == std::string_view::npos) return false;
      into = headers.substr(0, end);
      headers.remove_prefix(end + 1);
      return true;
    };
    if (!quoted("Content-Disposition: form-data; name=\"", got.name)) return std::nullopt;
    if (headers.starts_with("; filename=\"")) {
      if (!quoted("; filename=\"", got.filename.emplace())) return std::nullopt;
      const std::string_view type_line = "\r\nContent-Type: ";
      if (!headers.starts_with(type_line)) return std::nullopt;
      got.content_type = headers.substr(type_line.size());
      if (got.content_type->find("\r\n") != std::string::npos) return std::nullopt;
    } else if (!headers.empty()) {
      return std::nullopt;
    }
    parts.push_back(std::move(got));
  }
  return std::nullopt;
}

}  // namespace form_test

#endif  // TVBASE_FORM_TEST_SUPPORT_H
