#include <tvbase/form/multipart_form_data.h>

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/form/test_support.h>
#include <tvbase/testing/exact_buffer.h>

namespace {

using form_test::bytes;
using form_test::end;
using form_test::field;
using form_test::file;
using form_test::text_of;
// Views that the builder reads lie in blocks of exactly their size, so a read
// past the end of one is reported under the address sanitizer.
using testing_support::exact_buffer;

// Finishes a form and gives its boundary, taken from the header value.
struct finished {
  std::string content_type, boundary, body;
  std::size_t capacity;
};

finished finish(multipart_form_data& form) {
  finished f;
  std::vector<unsigned char> body = {'o', 'l', 'd'};
  form.finish(f.content_type, body);
  const std::string prefix = "multipart/form-data; boundary=";
  EXPECT_EQ(f.content_type.substr(0, prefix.size()), prefix);
  f.boundary = f.content_type.substr(prefix.size());
  f.body = text_of(body);
  f.capacity = body.capacity();
  return f;
}

TEST(MultipartFormData, WritesFieldsAndFilesByteForByte) {
  const std::string binary("a\0b\r\n--x", 8);
  struct row {
    const char* what;
    void (*add)(multipart_form_data&, std::string_view data);
    std::string (*expected)(const std::string& boundary, const std::string& data);
  };
  const row rows[] = {
      {"one field",
       [](multipart_form_data& f, std::string_view) { EXPECT_TRUE(f.add_field("a", "b")); },
       [](const std::string& b, const std::string&) { return field(b, "a", "b"); }},
      {"empty name and value",
       [](multipart_form_data& f, std::string_view) { EXPECT_TRUE(f.add_field("", "")); },
       [](const std::string& b, const std::string&) { return field(b, "", ""); }},
      {"file with a type",
       [](multipart_form_data& f, std::string_view d) {
         EXPECT_TRUE(
             f.add_file("doc", "a.txt", bytes(d), static_cast<unsigned>(d.size()), "text/plain"));
       },
       [](const std::string& b, const std::string& d) {
         return file(b, "doc", "a.txt", "text/plain", d);
       }},
      {"file without a type",
       [](multipart_form_data& f, std::string_view d) {
         EXPECT_TRUE(
             f.add_file("doc", "a.bin", bytes(d), static_cast<unsigned>(d.size()), std::nullopt));
       },
       [](const std::string& b, const std::string& d) {
         return file(b, "doc", "a.bin", "application/octet-stream", d);
       }},
      {"empty file",
       [](multipart_form_data& f, std::string_view) {
         EXPECT_TRUE(f.add_file("e", "e", nullptr, 0, "x/y"));
       },
       [](const std::string& b, const std::string&) { return file(b, "e", "e", "x/y", ""); }},
      {"field and file in order",
       [](multipart_form_data& f, std::string_view d) {
         EXPECT_TRUE(f.add_field("k", d));
         EXPECT_TRUE(f.add_file("f", "n", bytes(d), static_cast<unsigned>(d.size()), std::nullopt));
       },
       [](const std::string& b, const std::string& d) {
         return field(b, "k", d) + file(b, "f", "n", "application/octet-stream", d);
       }},
      {"nothing added", [](multipart_form_data&, std::string_view) {},
       [](const std::string&, const std::string&) { return std::string(); }},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    multipart_form_data form;
    const exact_buffer data{binary};
    r.add(form, data.view());
    const finished f = finish(form);
    EXPECT_EQ(f.body, r.expected(f.boundary, binary) + end(f.boundary));
  }
}

TEST(MultipartFormData, BoundaryIsTheFixedTextAndThirteenBase36Characters) {
  multipart_form_data form;
  const finished f = finish(form);
  ASSERT_EQ(f.boundary.size(), 32u);
  EXPECT_EQ(f.boundary.substr(0, 19), "Tarvelo-Client-App-");
  EXPECT_EQ(f.boundary.find_first_not_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ", 19),
            std::string::npos);
}

TEST(MultipartFormData, ValuesMayHoldTheBoundaryItself) {
  multipart_form_data form;
  std::string content_type;
  std::vector<unsigned char> body;
  // The boundary of the next form is unknown, so take this form's from a
  // first finish and put it into the second form's value.
  form.finish(content_type, body);
  const std::string earlier = content_type.substr(30);
  ASSERT_TRUE(form.add_field("x", "--" + earlier + "--"));
  const finished f = finish(form);
  EXPECT_EQ(f.body, field(f.boundary, "x", "--" + earlier + "--") + end(f.boundary));
}

TEST(MultipartFormData, RefusesNamesWithEightBitBytes) {
  multipart_form_data form;
  const exact_buffer cafe{"caf\xC3\xA9"};
  const exact_buffer high{"\x80"};
  const exact_buffer high_last{"f\xFF"};
  const exact_buffer plain{"n"};
  EXPECT_FALSE(form.add_field(cafe.view(), "v"));
  EXPECT_FALSE(form.add_file(high.view(), plain.view(), nullptr, 0, std::nullopt));
  EXPECT_FALSE(form.add_file(plain.view(), high_last.view(), nullptr, 0, std::nullopt));
  EXPECT_FALSE(form.add_field(high_last.view(), plain.view())) << "the last byte counts too";
  EXPECT_TRUE(form.add_field("ok", "caf\xC3\xA9")) << "values are not checked";
  EXPECT_TRUE(form.add_file("t", "f", nullptr, 0, "text/\xC3\xA9")) << "nor are content types";
  const finished f = finish(form);
  EXPECT_EQ(f.body, field(f.boundary, "ok", "caf\xC3\xA9") +
                        file(f.boundary, "t", "f", "text/\xC3\xA9", "") + end(f.boundary));
}

TEST(MultipartFormData, EachFormStartsAfreshWithANewBoundary) {
  multipart_form_data form;
  ASSERT_TRUE(form.add_field("a", "1"));
  const finished first = finish(form);
  ASSERT_TRUE(form.add_field("b", "2"));
  const finished second = finish(form);
  EXPECT_NE(first.boundary, second.boundary);
  EXPECT_EQ(second.body, field(second.boundary, "b", "2") + end(second.boundary));
  multipart_form_data other;
  EXPECT_NE(finish(other).boundary, second.boundary);
}

TEST(MultipartFormData, GrowsByATenthRoundedToKilobytes) {
  const std::size_t head =
      std::string("\r\n--").size() + 32 +
      std::string("\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n").size();
  struct row {
    std::vector<std::size_t> values;  // one field named "a" each
    std::size_t capacity;
  };
  const row rows[] = {
      {{1}, 1024},                     // the first byte rounds up to a kilobyte
      {{2000}, 3072},                  // needed beyond 110 %: the need, rounded up
      {{2000, 900 - 2 * head}, 3072},  // still fits
      {{2000, 1100 - head}, 4096},     // 110 % of 3,072 is 3,379: rounded to 4,096
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.capacity);
    multipart_form_data form;
    for (const std::size_t size : r.values)
      ASSERT_TRUE(form.add_field("a", std::string(size, 'v')));
    EXPECT_EQ(finish(form).capacity, r.capacity);
  }
}

}  // namespace
