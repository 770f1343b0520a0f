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
//       !form.add_file("doc", "a.txt", bytes, size, "text/plain")) { /* refused: see below */ }
//   std::string content_type;
//   std::vector<unsigned char> body;
//   form.finish(content_type, body);   // "multipart/form-data; boundary=..."
//
// Each form has a boundary of its own, "Tarvelo-Client-App-" and 13 base-36
// characters of a distinct_value, never repeated on this machine while the
// library is loaded. Every part starts with CR LF, "--" and the boundary;
// the form ends with CR LF, "--", the boundary and "--".
//
// The body is never ambiguous: a receiver splits it into exactly the parts
// that were added. To that end:
//  - Names and file names are refused if they hold a byte of 0x80 or above.
//    In them each quote becomes %22, each CR %0D and each LF %0A, as browsers
//    write them; nothing else is changed (a '%' stays a '%').
//  - A content type holding a CR or an LF is refused; others go out as given.
//  - A value or file whose bytes hold the form's delimiter, CR LF "--" and
//    the boundary, is refused; so is one that starts with "--" and the
//    boundary, which the blank line in front of it would make a delimiter.
//    The boundary's text in any other place, a part of it, or another form's
//    boundary goes out unchanged. Since the boundary comes from a counter,
//    only bytes made for this very form are refused; the same bytes go into
//    the next form, which has another boundary. The check takes time linear
//    in the bytes: it looks for CR bytes with memchr and passes most of them
//    a window at a time, so on most data it costs about one copy of the
//    bytes, a small part of building the form; bytes made of a CR every
//    other byte, its worst, cost it about twenty copies.
// Apart from that, values and file bytes go out byte for byte.
// A refused call returns false and appends nothing.
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

  // Appends a text field; false, appending nothing, if `name` or `value` is
  // refused (see above).
  [[nodiscard]] bool add_field(std::string_view name, std::string_view value);

  // Appends a file of `size` bytes at `data` (which may be null when size is
  // 0); false, appending nothing, if `name`, `filename`, `content_type` or
  // the bytes are refused (see above). Without a content type the part says
  // "application/octet-stream".
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
  void append_quoted(std::string_view text);

  std::string boundary;
  std::vector<unsigned char> body;
};

#endif  // TVBASE_FORM_MULTIPART_FORM_DATA_H
