#include <tvbase/system/gdi.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/system/icon_test_files.h>
#include <tvbase/testing/hostile_files.h>
#include <tvbase/testing/temp_dir.h>

namespace {

namespace fs = std::filesystem;
using namespace icon_test;

// A temporary folder that the tests write their icon files and modules into.
class temp_dir {
 public:
  temp_dir() : root_(dir_.path()) {
    if (dir_.path().empty()) throw std::runtime_error("no temporary folder");
  }
  std::string write(const std::string& name, const buffer& bytes) const {
    const fs::path p = root_ / name;
    std::ofstream(p, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return p.string();
  }

 private:
  testing_support::temp_dir dir_{"tvbase_gdi_"};
  fs::path root_;
};

// The size an icon reports, "none" for a null icon and "mono" for an icon
// without a colour image.
std::string size_of(TvGdi::HICON icon) {
  if (icon == nullptr) return "none";
  TvGdi::SIZE size{-1, -1};
  if (!TvGdi::GetIconSize(icon, size))
    return size.cx == -1 && size.cy == -1 ? "mono" : "size changed";
  return std::to_string(size.cx) + "x" + std::to_string(size.cy);
}

TEST(TvGdi, LoadsEachSizeFromAnIconFile) {
#if defined(_WIN32)
  GTEST_SKIP() << "rows describe the library's own decoder; LoadImageA scales, and Wine refuses "
                  "the synthetic modules";
#endif
  temp_dir dir;
  const std::string two = dir.write(
      "two.ico", make_ico({{16, 16, 32, make_dib(16, 16, 32)}, {32, 32, 8, make_dib(32, 32, 8)}}));
  // A directory byte of 0 is 256; the image's own header gives its size.
  const std::string png = dir.write(
      "png.ico", make_ico({{0, 0, 32, make_png(256, 256)}, {48, 48, 24, make_dib(48, 48, 24)}}));
  const std::string mono = dir.write("mono.ico", make_ico({{32, 32, 1, make_dib(32, 32, 1)}}));
  const std::string broken = dir.write("broken.ico", make_ico({{16, 16, 32, buffer(10, 7)}}));
  struct row {
    std::string source;
    std::vector<std::string> sizes;  // for requests of 16, 24, 48 and 300
  };
  const row rows[] = {
      {two, {"16x16", "32x32", "32x32", "32x32"}},
      {png, {"48x48", "48x48", "48x48", "256x256"}},
      {mono, {"mono", "mono", "mono", "mono"}},
      {broken, {"none", "none", "none", "none"}},
      {dir.write("empty.ico", {}), {"none", "none", "none", "none"}},
      {dir.write("module.ico", make_pe({})), {"none", "none", "none", "none"}},
      {"/nonexistent/x.ico", {"none", "none", "none", "none"}},
      {"/tmp", {"none", "none", "none", "none"}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.source);
    TvGdi::IconData icons[] = {
        {16, 16, nullptr}, {24, 24, nullptr}, {48, 48, nullptr}, {300, 300, nullptr}};
    TvGdi::LoadIcons(r.source.c_str(), icons, 4);
    std::vector<std::string> got;
    for (const auto& i : icons) got.push_back(size_of(i.icon));
    EXPECT_EQ(got, r.sizes);
    for (const auto& i : icons) TvGdi::DestroyIcon(i.icon);
  }

  const TvGdi::IconPtr icon(TvGdi::LoadIconA(png.c_str(), 256, 256));
  TvGdi::IconPixels pixels{};
  ASSERT_TRUE(TvGdi::GetIconPixels(icon.get(), pixels));
  EXPECT_EQ(pixels.Format, TvGdi::PixelFormat::Png);
  EXPECT_EQ(buffer(pixels.Data, pixels.Data + pixels.Size), make_png(256, 256));
  EXPECT_FALSE(TvGdi::GetIconPixels(nullptr, pixels));
}

TEST(TvGdi, ParsesTheSourceOfAModuleIcon) {
#if defined(_WIN32)
  GTEST_SKIP() << "rows describe the library's own decoder; LoadImageA scales, and Wine refuses "
                  "the synthetic modules";
#endif
  // Each icon group holds one image, whose width tells which group was loaded.
  std::vector<resource> resources;
  const auto group = [&](std::uint16_t id, const std::string& name, int size) {
    const auto image_id = static_cast<std::uint16_t>(100 + resources.size());
    const image i{static_cast<unsigned>(size), static_cast<unsigned>(size), 32,
                  make_dib(size, size, 32)};
    resources.push_back({3, image_id, "", i.bytes});
    resources.push_back({14, id, name, make_group({i}, {image_id})});
  };
  group(5, "", 5);
  group(0, "MAIN", 6);
  group(0, "0", 7);
  group(0, "65536", 8);
  group(0, "5X", 9);
  group(65535, "", 10);
  group(0, "+5", 11);
  temp_dir dir;
  const std::string dll = dir.write("mod.dll", make_pe(resources));
  const std::string dll64 = dir.write("mod64.dll", make_pe(resources, true));
  const std::string ico = dir.write("plain.ico", make_ico({{16, 16, 32, make_dib(16, 16, 32)}}));
  struct row {
    std::string source;
    std::string size;
  };
  const row rows[] = {
      {dll + ";5", "5x5"},
      {dll64 + ";5", "5x5"},
      {dll + ";main", "6x6"},
      {dll + ";Main", "6x6"},
      {" \t" + dll + " \t; \tmain\t ", "6x6"},
      {dll + ";0", "7x7"},
      {dll + ";65536", "8x8"},
      {dll + ";5x", "9x9"},
      {dll + ";65535", "10x10"},
      {dll + ";005", "5x5"},
      {dll + ";+5", "11x11"},
      {dll + ";6", "none"},
      {dll + ";", "none"},
      {dll + "; \t", "none"},
      {dll + ";5;", "none"},  // all behind the first ";" is the resource
      {";", "none"},
      {";5", "none"},
      {dir.write("none.dll", make_pe({})) + ";5", "none"},
      {ico + ";5", "none"},  // not a module
      {"/nonexistent/mod.dll;5", "none"},
      {dll + ";" + std::string(259, 'a'), "none"},
      {dll + ";" + std::string(260, '5'), "none"},
      {std::string(250, ' ') + dll + ";5", "5x5"},  // blanks are stripped before the limit
      {std::string(259 - dll.size(), '/') + dll + ";5", "5x5"},
      {std::string(260 - dll.size(), '/') + dll + ";5", "none"},  // the same file, one '/' too long
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.source.substr(0, 80));
    const TvGdi::IconPtr icon(TvGdi::LoadIconA(r.source.c_str(), 16, 16));
    EXPECT_EQ(size_of(icon.get()), r.size);
  }
}

// A FIFO where an icon file or a module should be: a reader that opened it
// and waited would hang until someone wrote to the pipe. The load runs in a
// child with an alarm, so that a hang fails the test instead of holding it.
TEST(TvGdi, RefusesAFifoAtOnce) {
#if defined(_WIN32)
  GTEST_SKIP()
      << "a FIFO in the file system is POSIX; on Windows icons load through LoadImageA, and named "
         "inputs are refused as pipes in ReadRegularFile.ReadsDiskFilesAndRefusesTheRest";
#else
  testing_support::temp_dir dir{"tvbase_gdi_fifo_"};
  const std::string fifo = dir.path() + "icon.ico";
  ASSERT_TRUE(testing_support::make_fifo(fifo));
  const std::string rows[] = {fifo, fifo + ";1", fifo + ";main"};
  for (const std::string& source : rows) {
    SCOPED_TRACE(source);
    EXPECT_EQ(testing_support::in_child_with_alarm(
                  [&] {
                    TvGdi::IconData icons[] = {{16, 16, nullptr}, {32, 32, nullptr}};
                    TvGdi::LoadIcons(source.c_str(), icons, 2);
                    return icons[0].icon == nullptr && icons[1].icon == nullptr ? 0 : 1;
                  },
                  60),
              0);
  }
#endif
}

TEST(TvGdi, LeavesRecordsAndSizesAloneWhereItMust) {
  TvGdi::IconData none[] = {{16, 16, reinterpret_cast<TvGdi::HICON>(1)}};
  TvGdi::LoadIcons(nullptr, none, 1);
  EXPECT_EQ(none[0].icon, nullptr);
  TvGdi::LoadIcons("/nonexistent;5", nullptr, 3);
  TvGdi::LoadIcons("/nonexistent", none, 0);
  TvGdi::SIZE size{3, 4};
  EXPECT_FALSE(TvGdi::GetIconSize(nullptr, size));
  EXPECT_EQ(size.cx, 3);
  EXPECT_EQ(size.cy, 4);
  TvGdi::DestroyIcon(nullptr);
}

}  // namespace
