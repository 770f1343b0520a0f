#include <tvbase/form/multipart_form_data.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/form/test_support.h>
#include <tvbase/testing/exact_buffer.h>

namespace {

using form_test::bytes;
using form_test::end;
using form_test::escaped;
using form_test::field;
using form_test::file;
using form_test::part;
using form_test::receive;
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

// The boundary that the form will end with, read from a copy of it, which
// has the same boundary and leaves the form itself as it was.
std::string boundary_of(const multipart_form_data& form) {
  multipart_form_data copy = form;
  return finish(copy).boundary;
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

TEST(MultipartFormData, EscapesQuotesAndLineBreaksInNames) {
  struct row {
    std::string name;
    std::string sent;
  };
  const row rows[] = {
      {"plain", "plain"},
      {"", ""},
      {"a\"b", "a%22b"},
      {"\"", "%22"},
      {"a\rb", "a%0Db"},
      {"a\nb", "a%0Ab"},
      {"x\"\r\nContent-Type: text/html\r\n\r\n<b>",
       "x%22%0D%0AContent-Type: text/html%0D%0A%0D%0A<b>"},
      {"\"; filename=\"evil.exe", "%22; filename=%22evil.exe"},
      {"100%", "100%"},  // a percent stays as it is
      {"%22", "%22"},    // so this reads back like a quote, as browsers have it
      {std::string("n\0ul", 4), std::string("n\0ul", 4)},
      {"\r\n\r\n", "%0D%0A%0D%0A"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.sent);
    multipart_form_data form;
    const exact_buffer name{r.name};
    ASSERT_TRUE(form.add_field(name.view(), "v"));
    ASSERT_TRUE(form.add_file(name.view(), name.view(), bytes("d"), 1, std::nullopt));
    const finished f = finish(form);
    EXPECT_EQ(f.body, field(f.boundary, r.sent, "v") +
                          file(f.boundary, r.sent, r.sent, "application/octet-stream", "d") +
                          end(f.boundary));
    const auto parts = receive(f.body, f.boundary);
    ASSERT_TRUE(parts);
    EXPECT_EQ(*parts, (std::vector<part>{{r.sent, std::nullopt, std::nullopt, "v"},
                                         {r.sent, r.sent, "application/octet-stream", "d"}}));
  }
}

TEST(MultipartFormData, RefusesContentTypesWithLineBreaks) {
  struct row {
    std::string type;
    bool taken;
  };
  const row rows[] = {
      {"text/plain", true},
      {"", true},
      {"text/plain; charset=\"utf-8\"", true},  // quotes are the type's own business
      {"text/plain\r\nX-Injected: 1", false},
      {"text/plain\r", false},
      {"\ntext/plain", false},
      {"a\nb", false},
      {"\r\n\r\n", false},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.type);
    multipart_form_data form;
    const exact_buffer type{r.type};
    EXPECT_EQ(form.add_file("f", "f.txt", bytes("d"), 1, type.view()), r.taken);
    ASSERT_TRUE(form.add_field("after", "x"));
    const finished f = finish(form);
    const std::string expected = (r.taken ? file(f.boundary, "f", "f.txt", r.type, "d") : "") +
                                 field(f.boundary, "after", "x");
    EXPECT_EQ(f.body, expected + end(f.boundary));
  }
}

// The delimiter of this very form inside a value or a file: refused, with
// nothing appended, wherever it stands. A part of it, or another form's,
// goes through and reads back as one part.
TEST(MultipartFormData, RefusesDataHoldingTheDelimiter) {
  multipart_form_data form;
  const std::string b = boundary_of(form);
  const std::string delimiter = "\r\n--" + b;
  struct row {
    std::string what;
    std::string data;
    bool taken;
  };
  std::vector<row> rows = {
      {"the delimiter alone", delimiter, false},
      {"at the start", delimiter + "\r\nrest", false},
      {"at the end", "head" + delimiter, false},
      {"the close delimiter", "a" + delimiter + "--", false},
      {"dashes and boundary at the start, joined to the blank line", "--" + b + "\r\nx", false},
      {"dashes and boundary alone", "--" + b, false},
      {"twice", delimiter + delimiter, false},
      {"after a lone CR", "\r" + delimiter, false},
      {"the boundary without dashes", "\r\n" + b, true},
      {"one dash", "\r\n-" + b, true},
      {"no CR", "\n--" + b, true},
      {"no LF", "\r--" + b, true},
      {"cut one short", delimiter.substr(0, delimiter.size() - 1), true},
      {"the boundary's prefix", "\r\n--Tarvelo-Client-App-", true},
      {"dashes and boundary not at the start", "x--" + b, true},
      {"the last character changed", delimiter.substr(0, delimiter.size() - 1) + "#", true},
      {"empty", "", true},
      {"the close delimiter's dashes only", "\r\n----", true},
  };
  // The delimiter at every offset of values of 100 bytes, and the same with
  // the boundary's last character changed: in plain text, and in bytes that
  // hold the delimiter's pieces everywhere (CR, CR LF, dashes, the
  // boundary's fixed start, its digits), where the scan's skips are
  // shortest. Whether these are taken is told by a plain search.
  std::string near = delimiter;
  near.back() = near.back() == 'Z' ? 'Y' : 'Z';
  const std::string pieces = "\r\r\n-\r\n--Tarvelo-\r\n--" + b.substr(0, 25) + "\r0\r";
  for (const std::string& filler :
       {std::string(100, 'x'), (pieces + pieces + pieces + pieces).substr(0, 100)}) {
    for (std::size_t at = 0; at <= filler.size(); ++at) {
      const std::string where = (filler[0] == 'x' ? "text, " : "pieces, ") + std::to_string(at);
      rows.push_back({"at " + where, std::string(filler).insert(at, delimiter), false});
      const std::string nearly = std::string(filler).insert(at, near);
      rows.push_back(
          {"nearly, at " + where, nearly, ("\r\n" + nearly).find(delimiter) == std::string::npos});
    }
  }
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    multipart_form_data copy = form;
    const exact_buffer data{r.data};
    const auto size = static_cast<unsigned>(r.data.size());
    EXPECT_EQ(copy.add_field("v", data.view()), r.taken);
    EXPECT_EQ(copy.add_file("f", "f.bin", bytes(data.view()), size, "a/b"), r.taken);
    const finished f = finish(copy);
    ASSERT_EQ(f.boundary, b);
    const std::string expected =
        r.taken ? field(b, "v", r.data) + file(b, "f", "f.bin", "a/b", r.data) : "";
    EXPECT_EQ(f.body, expected + end(b));
    const auto parts = receive(f.body, b);
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->size(), r.taken ? 2u : 0u);
  }
  // The next form has another boundary, and takes the same bytes.
  finish(form);
  EXPECT_TRUE(form.add_field("v", delimiter));
  EXPECT_NE(boundary_of(form), b);
}

// Random forms from the pieces that break forms, against the rules written
// out plainly: each call is taken or refused as the rules say, and the
// receiver reads back exactly the parts that were taken.
TEST(MultipartFormData, EveryBodyReadsBackAsThePartsAdded) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    multipart_form_data form;
    const std::string b = boundary_of(form);
    const std::vector<std::string> pieces = {"a",
                                             "%",
                                             "\"",
                                             "\r",
                                             "\n",
                                             "-",
                                             "--",
                                             "\r\n",
                                             "\r\n--",
                                             "\r\n\r\n",
                                             std::string(1, '\0'),
                                             b,
                                             b.substr(0, 19),
                                             b.substr(0, 31),
                                             ";",
                                             "=",
                                             " name=\"x\""};
    const auto text = [&] {
      std::string t;
      for (int n = static_cast<int>(random() % 7); n > 0; --n)
        t += pieces[random() % pieces.size()];
      return t;
    };
    std::vector<part> expected;
    for (int n = static_cast<int>(random() % 6); n > 0; --n) {
      const std::string name = text();
      const std::string data = text();
      const bool delimited = ("\r\n" + data).find("\r\n--" + b) != std::string::npos;
      if (random() % 2 == 0) {
        EXPECT_EQ(form.add_field(name, data), !delimited) << data;
        if (!delimited) expected.push_back({escaped(name), std::nullopt, std::nullopt, data});
      } else {
        const std::string filename = text();
        const std::string type = text();
        const bool broken_type = type.find_first_of("\r\n") != std::string::npos;
        EXPECT_EQ(
            form.add_file(name, filename, bytes(data), static_cast<unsigned>(data.size()), type),
            !delimited && !broken_type)
            << data << type;
        if (!delimited && !broken_type)
          expected.push_back({escaped(name), escaped(filename), type, data});
      }
    }
    const finished f = finish(form);
    const auto parts = receive(f.body, f.boundary);
    ASSERT_TRUE(parts) << f.body;
    EXPECT_EQ(*parts, expected);
  }
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
