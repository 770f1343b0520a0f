// The form builder with 10 MB parts and many small ones. A program of its
// own, apart from the one that CI runs under memcheck.
#include <tvbase/form/multipart_form_data.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/form/test_support.h>
#include <tvbase/testing/allocation_counter.h>

namespace {

using form_test::bytes;
using form_test::end;
using form_test::field;
using form_test::file;
using form_test::text_of;

// Parts of 10 MB, and many small ones: the exact bytes, and at most
// the body twice over (the old and the new buffer while it grows) and a
// tenth more.
TEST(MultipartFormDataLarge, TakesTenMegabytePartsAndManySmallOnes) {
  const std::string big(std::size_t{10} << 20, 'v');
  const std::string name = std::string(big.size() - 1, 'n') + "!";
  const std::string refused = name + "\x80";
  const auto size = static_cast<unsigned>(big.size());
  struct row {
    const char* what;
    std::function<void(multipart_form_data&)> add;
    std::function<std::string(const std::string& boundary)> expected;
  };
  const row rows[] = {
      {"a 10 MB name and value",
       [&](multipart_form_data& f) { EXPECT_TRUE(f.add_field(name, big)); },
       [&](const std::string& b) { return field(b, name, big); }},
      {"a 10 MB file",
       [&](multipart_form_data& f) { EXPECT_TRUE(f.add_file("f", name, bytes(big), size, name)); },
       [&](const std::string& b) { return file(b, "f", name, name, big); }},
      {"a 10 MB name refused at its last byte",
       [&](multipart_form_data& f) {
         EXPECT_FALSE(f.add_field(refused, big));
         EXPECT_FALSE(f.add_file("f", refused, bytes(big), size, std::nullopt));
       },
       [](const std::string&) { return std::string(); }},
      {"many small fields",
       [](multipart_form_data& f) {
         for (int i = 0; i < 200000; ++i) ASSERT_TRUE(f.add_field("k", "v")) << i;
       },
       [](const std::string& b) {
         const std::string one = field(b, "k", "v");
         std::string all;
         all.reserve(one.size() * 200000);
         for (int i = 0; i < 200000; ++i) all += one;
         return all;
       }},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    multipart_form_data form;
    std::string content_type;
    std::vector<unsigned char> body;
    const std::size_t held = testing_support::peak_bytes_during([&] {
      r.add(form);
      form.finish(content_type, body);
    });
    const std::string boundary = content_type.substr(30);
    EXPECT_TRUE(text_of(body) == r.expected(boundary) + end(boundary)) << "body of " << body.size();
    EXPECT_LE(held, 2 * body.size() + body.size() / 10 + 4096);
  }
}

// A body grown from 1 MB parts to 48 MB, whose pages all differ: through
// every move into a larger buffer, each byte ends where it was written.
// Twice, as the allocator hands out the later buffers from elsewhere.
TEST(MultipartFormDataLarge, KeepsEveryByteInPlaceWhileGrowing) {
  constexpr unsigned kParts = 48;
  std::vector<std::string> parts(kParts, std::string(std::size_t{1} << 20, '\0'));
  for (unsigned i = 0; i < kParts; ++i) {
    for (std::size_t j = 0; j < parts[i].size(); ++j)
      parts[i][j] = static_cast<char>(j / 4096 * 31 + i * 7 + j);
  }
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    multipart_form_data form;
    for (unsigned i = 0; i < kParts; ++i) {
      ASSERT_TRUE(form.add_file("p", "p.bin", bytes(parts[i]),
                                static_cast<unsigned>(parts[i].size()), std::nullopt));
      ASSERT_TRUE(form.add_field("n", std::to_string(i)));
    }
    std::string content_type;
    std::vector<unsigned char> body;
    form.finish(content_type, body);
    const std::string boundary = content_type.substr(30);
    std::string expected;
    for (unsigned i = 0; i < kParts; ++i) {
      expected += file(boundary, "p", "p.bin", "application/octet-stream", parts[i]);
      expected += field(boundary, "n", std::to_string(i));
    }
    expected += end(boundary);
    const std::string got = text_of(body);
    ASSERT_EQ(got.size(), expected.size());
    const auto differs = std::mismatch(expected.begin(), expected.end(), got.begin()).first;
    EXPECT_TRUE(differs == expected.end()) << "first difference at " << differs - expected.begin();
  }
}

}  // namespace
