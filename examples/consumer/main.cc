// A program outside the library's tree: it includes every installed header of
// TvBase, uses something from each, and checks what it gets back. It writes
// no file and reads only the root folder.
#include <tvbase/css_processor/processor.h>
#include <tvbase/export.h>
#include <tvbase/form/distinct_value.h>
#include <tvbase/form/multipart_form_data.h>
#include <tvbase/html_parser/parser.h>
#include <tvbase/json/object.h>
#include <tvbase/platform/win_types.h>
#include <tvbase/system/dir_walk.h>
#include <tvbase/system/gdi.h>
#include <tvbase/system/version.h>
#include <tvbase/text/convert.h>
#include <tvbase/text/replace_engine.h>
#include <tvbase/text/string_stash.h>
#include <tvbase/text/utf8.h>
#include <tvbase/trace/crc.h>
#include <tvbase/trace/func_log.h>

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#if !defined(TVBASE_EXPORT)
#error "<tvbase/export.h> defines TVBASE_EXPORT"
#endif

#if !defined(_WIN32)
// A program's own types of the Windows names: the library's stand-ins live in
// namespace win, so these don't collide with them.
struct GUID {
  int mine;
};
struct VARIANT {
  int mine;
};
static_assert(!std::is_same_v<GUID, win::GUID>);
static_assert(!std::is_same_v<VARIANT, win::VARIANT>);
#endif

namespace {

int failures = 0;

void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "consumer: %s failed\n", what);
    ++failures;
  }
}

void text_tools() {
  check(convert::url_encode(std::string_view("a b"), 0) == "a+b", "url_encode");
  check(TvxIsValidUtf8("caf\xC3\xA9") && !TvxIsValidUtf8("\xC3"), "TvxIsValidUtf8");
  const std::string text = "hello world";
  replace_engine::engine<char> edits{text};
  check(edits.replace(std::string_view(text).substr(0, 5), "bye"), "replace");
  check(edits.apply() == "bye world", "apply");
  base::string_stash names;
  const base::basic_zstring_view<char> alpha = names.store("alpha");
  names.store(std::string(2000, 'x'));  // a page of its own: alpha stays put
  check(std::string_view(alpha) == "alpha" && alpha.c_str()[5] == '\0', "string_stash");
}

void trace() {
  check(TvCrc().Add("abc").GetCrc() == 0x93CE8FD0, "TvCrc");
  // An inert scope object traces nothing, yet answers what memory is readable.
  const win::GUID id{0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
  const TvFuncLog inert;
  inert << id << TvFuncLog::Hex(42);
  check(!inert.IsEnabled() && inert.WriteAppendPtr(&id, sizeof id), "TvFuncLog");
  // A field too long for the record: refused with error 160, no file written.
  const std::string folder(300, 'f');
  unsigned long error = 0;
  check(!TvFuncLog::SaveLogCfg("/nonexistent/TvLog.cfg", folder.c_str(), false, false, "*", "*", "",
                               true, false, &error) &&
            error == 160,
        "SaveLogCfg");
}

void css() {
  css_processor::processor sheet{std::string("/* c */:root{--a: 1px}p{margin:var(--a)}")};
  const std::optional<std::string> error = sheet.process();
  check(!error && sheet.css() == "p{margin:1px}", "css_processor::process");
  sheet.set(std::string("a{background:url('Logo.PNG')}"));
  check(sheet.images() == std::vector<std::string>{"Logo.PNG"}, "css_processor::images");
  const std::string out = sheet.css();  // moves the text out
  check(out == "a{background:url('Logo.PNG')}" && sheet.css().empty(), "css_processor::css");
}

void json_model() {
  json::object doc;
  check(!doc.parse(LR"({"a":[1,2.5,"x"]})") && doc(L"a")(0).as_int(-1) == 1, "json parse");
  doc[L"b"][1] = true;
  check(doc.to_string() == LR"({"a":[1,2.5,"x"],"b":[null,true]})", "json to_string");
  const std::optional<json::object::error> bad = json::object().parse(L"[1 2]");
  check(bad && bad->line == 1 && bad->column == 4 && bad->message == "expected a ']'",
        "json error");
}

void html() {
  int elements = 0;
  const std::optional<html_parser::parse_error> ok = html_parser::parser::parse(
      "<p class=x>hi</p>", true,
      [&](const html_parser::tag&, const std::optional<std::vector<html_parser::tag>>&) {
        ++elements;
        return true;
      });
  check(!ok && elements == 3, "html parse");
  const std::optional<html_parser::parse_error> bad = html_parser::parser::parse(
      "<div>\n</p>", true,
      [](const html_parser::tag&, const std::optional<std::vector<html_parser::tag>>&) {
        return true;
      });
  check(bad && bad->get_message() ==
                   "html parse error on row 2: mismatched end tag, last start tag=div on row 1.",
        "html parse_error");
}

void form() {
  const unsigned long long first = distinct_value::get();
  check(distinct_value::get() > first && distinct_value::str_hex(255) == "00000000000000FF",
        "distinct_value");
  multipart_form_data builder;
  const unsigned char bytes[] = {'o', 'k'};
  check(builder.add_field("user", "zoe") &&
            builder.add_file("doc", "a.txt", bytes, sizeof bytes, "text/plain") &&
            !builder.add_field("caf\xC3\xA9", "x"),
        "multipart add");
  std::string content_type;
  std::vector<unsigned char> body;
  builder.finish(content_type, body);
  const std::string boundary = content_type.substr(content_type.find('=') + 1);
  const std::string text(body.begin(), body.end());
  check(content_type.rfind("multipart/form-data; boundary=", 0) == 0 &&
            text.rfind("\r\n--" + boundary + "\r\n", 0) == 0 &&
            text.find("zoe") != std::string::npos && text.size() > boundary.size() + 6 &&
            text.compare(text.size() - boundary.size() - 6, std::string::npos,
                         "\r\n--" + boundary + "--") == 0,
        "multipart finish");
}

void system_helpers() {
  const unsigned long version = TvVersion::Parse("12.41b");
  check(version == 0x0C040102 && TvVersion::ToString(version, TvVersion::CompareMinor) == "12.4",
        "TvVersion");

  os::dir_walk walker;
  walker.set_order(os::dir_walk::walk_order::no_descent);
  check(walker.walk(L"/nonexistent/folder", {}, {}) == os::dir_walk::result::list_failed &&
            walker.last_error() != 0,
        "dir_walk list_failed");
  // The current folder's items (a folder that every system has and names
  // alike): the find data's attribute bits agree with is_folder(), and each
  // name turns into bytes and back unchanged.
  int items = 0;
  bool agree = true;
  walker.set_report_folders(os::dir_walk::folder_reports::off);
  const auto look = [&](const os::dir_info& info) {
    const os::find_data& data = info.data();
    agree = agree &&
            info.is_folder() == ((data.dwFileAttributes & os::file_attribute_directory) != 0) &&
            os::wide_path(os::native_path(info.name())) == info.name();
    ++items;
  };
  const auto result = walker.walk(
      L".",
      [&](const os::dir_info& info) {
        look(info);
        return os::dir_walk::file_action_result::go_on;
      },
      [&](const os::dir_info& info) {
        look(info);
        return os::dir_walk::directory_action_result::skip;
      });
  check(result == os::dir_walk::result::finished && items > 0 && agree, "dir_walk");

  TvGdi::SIZE size{0, 0};
  TvGdi::IconData sizes[] = {{16, 16, nullptr}, {32, 32, nullptr}};
  TvGdi::LoadIcons("/nonexistent/app.ico", sizes, 2);
  check(TvGdi::LoadIconA("/nonexistent/app.ico", 16, 16) == nullptr && sizes[0].icon == nullptr &&
            sizes[1].icon == nullptr && !TvGdi::GetIconSize(nullptr, size),
        "TvGdi");
}

}  // namespace

int main() {
  text_tools();
  trace();
  css();
  json_model();
  html();
  form();
  system_helpers();
  if (failures == 0) std::puts("consumer: every public header checked");
  return failures == 0 ? 0 : 1;
}
