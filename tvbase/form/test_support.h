#ifndef TVBASE_FORM_TEST_SUPPORT_H
#define TVBASE_FORM_TEST_SUPPORT_H

// The bytes a form body should hold, written out plainly, for the form tests.

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

}  // namespace form_test

#endif  // TVBASE_FORM_TEST_SUPPORT_H
