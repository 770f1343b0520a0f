#ifndef TVBASE_FORM_MULTIPART_FORM_DATA_H
#define TVBASE_FORM_MULTIPART_FORM_DATA_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tvbase/export.h>

// Builds the body of an HTTP form upload in the multipart/form-data format,
// and the matching Content-Type header value. Fields and files are appended
// to one growing buffer as they are added; finish() closes the form and hands
// the bytes over by move. Nothing is sent and no file is read: the caller
// brings the bytes and does the transfer.
//
//   multipart_form_data form;
//   if (!form.add_field("user", "zoe") ||
//       !form.add_file("doc", "a.txt", bytes, size, "text/plain")) { /* a name refused */ }
//   std::string content_type;
//   std::vector<unsigned char> body;
//   form.finish(content_type, body);   // "multipart/form-data; boundary=..."
//
// Each form has a boundary of its own, "Tarvelo-Client-App-" and 13 base-36
// characters of a distinct_value, never repeated on this machine while the
// library is loaded. Every part starts with CR LF, "--" and the boundary;
// the form ends with CR LF, "--", the boundary and "--". Names, file names and
// content types go out byte for byte, neither quoted further nor escaped; a
// name or file name with a byte of 0x80 or above is refused. Values and file
// bytes may hold anything, the boundary's own text included: the boundary is
// not compared with them.
//
// The buffer grows by a tenth at a time (to the greater of what is needed and
// 110 % of its capacity, rounded up to 1,024 bytes), so a large body stays
// close to its size. If it cannot grow, the standard library's exception
// leaves add_field or add_file with the part half written: drop the builder.
// Copies and moves are member-wise; a moved-from builder is only fit for
// assignment or destruction.
class TVBASE_EXPORT multipart_form_data {
 public:
  multipart_form_data();

  // Appends a text field; false, appending nothing, if `name` is refused.
  [[nodiscard]] bool add_field(std::string_view name, std::string_view value);

  // Appends a file of `size` bytes at `data` (which may be null when size is
  // 0); false, appending nothing, if `name` or `filename` is refused. Without
  // a content type the part says "application/octet-stream".
  [[nodiscard]] bool add_file(std::string_view name, std::string_view filename,
                              const unsigned char* data, unsigned int size,
                              std::optional<std::string_view> content_type);

  // Closes the form: `content_type` becomes "multipart/form-data; boundary="
  // and the boundary, `body` receives the bytes by move (its old content is
  // released), and the builder starts the next form with a new boundary.
  void finish(std::string& content_type, std::vector<unsigned char>& body);

 private:
  void append_data(const unsigned char* data, unsigned int size);
  void append_data(std::string_view text);
  bool is_7bit(std::string_view text);
  void reset();
  void append_head(std::string_view name);

  std::string boundary;
  std::vector<unsigned char> body;
};

#endif  // TVBASE_FORM_MULTIPART_FORM_DATA_H
