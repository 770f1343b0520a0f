// The typed forms of trace parameters. Every form that follows a pointer asks
// the kernel first whether the memory can be read, and prints a form with a
// question mark if not. Nothing here allocates: texts are measured in place
// and wide texts converted in small buffers on the stack.
#include <tvbase/trace/func_log.h>

#include <cinttypes>
#include <cstdio>

#include <tvbase/platform/code_page.h>
#include <tvbase/platform/ole_time.h>
#include <tvbase/platform/readable_memory.h>
#include <tvbase/trace/thread_state.h>

// An address as the "%p" forms show it: capital hex digits, 8 of them where
// pointers have 32 bits, 16 where they have 64.
#if UINTPTR_MAX > 0xFFFFFFFFu
#define kPointer "%016" PRIXPTR
#else
#define kPointer "%08" PRIXPTR
#endif

namespace {

constexpr std::size_t kWhole = 150;  // a text up to this long is shown whole
constexpr std::size_t kHead = 100;   // else its first and last characters
constexpr std::size_t kTail = 50;
// UTF-8 of up to kWhole wide units, three bytes each at most, and a zero.
constexpr std::size_t kNarrowBuffer = kWhole * 3 + 1;

std::uintptr_t address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

void note(TvLogThreadState& s, const void* p, std::size_t size, bool text) {
  if (s.precheckCount < TvLogThreadState::kPrechecks) {
    s.prechecks[s.precheckCount++] = {p, static_cast<std::uint32_t>(size), text, false};
  }
}

// Whether `size` bytes at `p` can be read. While an enter line's questions
// are gathered, the question is noted and the answer is no, so that the form
// reads nothing further; afterwards a noted answer serves, else the kernel is
// asked.
bool readable(TvLogThreadState* s, const void* p, std::size_t size) {
  if (s != nullptr && s->collecting) {
    if (size != 0 && p != nullptr) note(*s, p, size, false);
    return false;
  }
  if (s != nullptr) {
    for (int i = 0; i < s->precheckCount; ++i) {
      const TvLogThreadState::precheck& c = s->prechecks[i];
      if (!c.text && c.address == p && c.size == size) return c.readable;
    }
  }
  return platform::is_readable(p, size);
}

// The same for a text through to its zero, whose length goes to `length`. A
// text is asked about up to the end of its first page in advance; a zero
// beyond that is sought page by page as usual.
template <typename Char>
bool readable_text(TvLogThreadState* s, const Char* text, std::size_t& length) {
  const bool aligned = address(text) % alignof(Char) == 0;
  if (s != nullptr && s->collecting) {
    if (text != nullptr && aligned) note(*s, text, platform::bytes_to_page_end(text), true);
    return false;
  }
  for (int i = 0; s != nullptr && i < s->precheckCount; ++i) {
    const TvLogThreadState::precheck& c = s->prechecks[i];
    if (!c.text || c.address != text) continue;
    if (!c.readable) return false;
    const std::size_t units = c.size / sizeof(Char);
    for (std::size_t n = 0; n < units; ++n) {
      if (text[n] == Char{}) {
        length = n;
        return true;
      }
    }
    std::size_t rest = 0;
    if (!platform::is_readable_text(text + units, rest)) return false;
    length = units + rest;
    return true;
  }
  return platform::is_readable_text(text, length);
}

// Wide units as zero-ended UTF-8 in `out`, "*" for what can't be shown.
void narrow(const wchar_t* text, std::size_t length, char (&out)[kNarrowBuffer]) {
  out[platform::wide_to_default({text, length}, "*", out, kNarrowBuffer - 1)] = '\0';
}

// The "%.2f" form within ±limit, both included, else "%g"; a value that is no
// number takes the "%g" form too.
const TvFuncLog& append_real(const TvFuncLog& log, const char* name, double value, double limit) {
  if (value >= -limit && value <= limit) return log.WriteAppendFormat("%s(%.2f)", name, value);
  return log.WriteAppendFormat("%s(%g)", name, value);
}

constexpr double kFloatLimit = 9999.99;
constexpr double kDoubleLimit = 9999999999999.99;

const TvFuncLog& append_date(const TvFuncLog& log, const char* name, double date) {
  platform::calendar_time t{};
  if (!platform::variant_time_to_calendar(date, t)) return log.WriteAppendFormat("%s(?)", name);
  return log.WriteAppendFormat("%s(%02d/%02d/%04d %02d:%02d:%02d)", name, t.day, t.month, t.year,
                               t.hour, t.minute, t.second);
}

// A readable wide text of `length` units in the form `prefix"..."suffix`:
// whole up to 150 units, else its first 100 and last 50, converted apart.
const TvFuncLog& append_wide(const TvFuncLog& log, const char* prefix, const wchar_t* text,
                             std::size_t length, const char* suffix) {
  char head[kNarrowBuffer];
  if (length <= kWhole) {
    narrow(text, length, head);
    return log.WriteAppendFormat("%s\"%s\"%s", prefix, head, suffix);
  }
  char tail[kNarrowBuffer];
  narrow(text, kHead, head);
  narrow(text + length - kTail, kTail, tail);
  return log.WriteAppendFormat("%s\"%s...%s\"%s", prefix, head, tail, suffix);
}

const TvFuncLog& append_variant(const TvFuncLog& log, const win::VARIANT& v) {
  const unsigned vt = v.vt;
  if (vt & 0x2000) return log.WriteAppend("VT_ARRAY(?)");
  if (vt & 0x4000) return log.WriteAppend("VT_BYREF(?)");
  switch (vt) {
    case 0: return log.WriteAppend("VT_EMPTY()");
    case 1: return log.WriteAppend("VT_NULL()");
    case 2: return log.WriteAppendFormat("VT_I2(%d)", v.iVal);
    case 3: return log.WriteAppendFormat("VT_I4(%d)", static_cast<int>(v.lVal));
    case 4: return append_real(log, "VT_R4", v.fltVal, kFloatLimit);
    case 5: return append_real(log, "VT_R8", v.dblVal, kDoubleLimit);
    case 6: {
      // Ten-thousandths: the quotient truncated toward zero, then the
      // remainder's magnitude.
      const long long count = v.cyVal.int64;
      const long long rest = count % 10000;
      return log.WriteAppendFormat("VT_CY(%lld.%04u)", count / 10000,
                                   static_cast<unsigned>(rest < 0 ? -rest : rest));
    }
    case 7: return append_date(log, "VT_DATE", v.date);
    case 8: {
      std::size_t length = 0;
      if (v.bstrVal == nullptr) return log.WriteAppend("V_BSTR(null)");
      if (!platform::is_readable_text(v.bstrVal, length)) {
        return log.WriteAppendFormat("V_BSTR(p" kPointer ")", address(v.bstrVal));
      }
      return append_wide(log, "V_BSTR(", v.bstrVal, length, ")");
    }
    case 9: return log.WriteAppendFormat("VT_DISPATCH(p" kPointer ")", address(v.pdispVal));
    case 10: return log.WriteAppendFormat("VT_ERROR(%d)", static_cast<int>(v.scode));
    case 11: return log.WriteAppendFormat("VT_BOOL(%s)", v.boolVal != 0 ? "true" : "false");
    case 13:
      return log.WriteAppendFormat("VT_UNKNOWN(%" PRIdPTR ")",
                                   static_cast<std::intptr_t>(address(v.punkVal)));
    case 16:
      return log.WriteAppendFormat("VT_I1(%d)", static_cast<int>(static_cast<signed char>(v.cVal)));
    case 17: return log.WriteAppendFormat("VT_UI1(%u)", static_cast<unsigned>(v.bVal));
    case 18: return log.WriteAppendFormat("VT_UI2(%u)", static_cast<unsigned>(v.uiVal));
    case 19: return log.WriteAppendFormat("VT_UI4(%u)", static_cast<unsigned>(v.ulVal));
    case 20: return log.WriteAppendFormat("VT_I8(%lld)", static_cast<long long>(v.llVal));
    case 21:
      return log.WriteAppendFormat("VT_UI8(%llu)", static_cast<unsigned long long>(v.ullVal));
    default: return log.WriteAppendFormat("VT_?%d?", static_cast<int>(vt));
  }
}

// The pointer prefix, then the value's own form or the question-mark text.
template <typename T>
const TvFuncLog& append_pointed(const TvFuncLog& log, const T* p, const char* unreadable) {
  if (log.WriteAppendPtr(p, sizeof(T))) return log << *p;
  return log.WriteAppend(unreadable);
}

}  // namespace

bool TvFuncLog::WriteAppendPtr(const void* p, unsigned int size) const noexcept {
  const bool answer = readable(state_, p, size);
  if (state_ != nullptr && !state_->collecting) {
    WriteAppendFormat("%08" PRIxPTR "->", address(p));
    state_->glue = true;
  }
  return answer;
}

bool TvFuncLog::BeginPrecheck() const noexcept {
  if (state_ == nullptr) return false;
  state_->collecting = true;
  state_->precheckCount = 0;
  return true;
}

void TvFuncLog::EndPrecheck() const noexcept {
  TvLogThreadState& s = *state_;
  s.collecting = false;
  platform::readable_range ranges[TvLogThreadState::kPrechecks];
  for (int i = 0; i < s.precheckCount; ++i)
    ranges[i] = {s.prechecks[i].address, s.prechecks[i].size, false};
  platform::check_readable(ranges, static_cast<std::size_t>(s.precheckCount));
  for (int i = 0; i < s.precheckCount; ++i) s.prechecks[i].readable = ranges[i].readable;
}

const TvFuncLog& TvFuncLog::operator<<(char value) const noexcept {
  return WriteAppendFormat("'%c'", value);
}
const TvFuncLog& TvFuncLog::operator<<(unsigned char value) const noexcept {
  return WriteAppendFormat("byte(%u)", static_cast<unsigned>(value));
}
const TvFuncLog& TvFuncLog::operator<<(short value) const noexcept {
  return WriteAppendFormat("short(%d)", value);
}
const TvFuncLog& TvFuncLog::operator<<(unsigned short value) const noexcept {
  return WriteAppendFormat("word(%u)", static_cast<unsigned>(value));
}
const TvFuncLog& TvFuncLog::operator<<(int value) const noexcept {
  return WriteAppendFormat("int(%d)", value);
}
const TvFuncLog& TvFuncLog::operator<<(unsigned int value) const noexcept {
  return WriteAppendFormat("dword(%u)", value);
}
const TvFuncLog& TvFuncLog::operator<<(long value) const noexcept {
  return WriteAppendFormat("long(%ld)", value);
}
const TvFuncLog& TvFuncLog::operator<<(unsigned long value) const noexcept {
  return WriteAppendFormat("ulong(%lu)", value);
}
const TvFuncLog& TvFuncLog::operator<<(long long value) const noexcept {
  return WriteAppendFormat("int64(%lld)", value);
}
const TvFuncLog& TvFuncLog::operator<<(unsigned long long value) const noexcept {
  return WriteAppendFormat("uint64(%llu)", value);
}
const TvFuncLog& TvFuncLog::operator<<(bool value) const noexcept {
  return WriteAppend(value ? "true" : "false");
}
const TvFuncLog& TvFuncLog::operator<<(const float& value) const noexcept {
  return append_real(*this, "float", value, kFloatLimit);
}
const TvFuncLog& TvFuncLog::operator<<(double value) const noexcept {
  return append_real(*this, "double", value, kDoubleLimit);
}
const TvFuncLog& TvFuncLog::operator<<(wchar_t value) const noexcept {
  char narrowed[kNarrowBuffer];
  narrow(&value, 1, narrowed);
  return WriteAppendFormat("L'%s'", narrowed);
}

const TvFuncLog& TvFuncLog::operator<<(const unsigned char* value) const noexcept {
  return append_pointed(*this, value, "byte(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const short* value) const noexcept {
  return append_pointed(*this, value, "short(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const unsigned short* value) const noexcept {
  return append_pointed(*this, value, "word(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const int* value) const noexcept {
  return append_pointed(*this, value, "int(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const unsigned int* value) const noexcept {
  return append_pointed(*this, value, "dword(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const long* value) const noexcept {
  return append_pointed(*this, value, "long(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const unsigned long* value) const noexcept {
  return append_pointed(*this, value, "ulong(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const long long* value) const noexcept {
  return append_pointed(*this, value, "int64(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const unsigned long long* value) const noexcept {
  return append_pointed(*this, value, "uint64(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const float* value) const noexcept {
  return append_pointed(*this, value, "float(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const double* value) const noexcept {
  return append_pointed(*this, value, "double(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const bool* value) const noexcept {
  return append_pointed(*this, value, "bool(?)");
}
const TvFuncLog& TvFuncLog::operator<<(const void* value) const noexcept {
  static_cast<void>(WriteAppendPtr(value, 0));
  return WriteAppend("void");
}
const TvFuncLog& TvFuncLog::operator<<(std::nullptr_t) const noexcept {
  return *this << static_cast<const void*>(nullptr);
}

const TvFuncLog& TvFuncLog::operator<<(const char* text) const noexcept {
  if (state_ == nullptr) return *this;
  std::size_t length = 0;
  if (!readable_text(state_, text, length))
    return WriteAppendFormat(kPointer "->\"?\"", address(text));
  if (length <= kWhole) return WriteAppendFormat("\"%s\"", text);
  return WriteAppendFormat("\"%-.*s...%s\"", static_cast<int>(kHead), text, text + length - kTail);
}

const TvFuncLog& TvFuncLog::operator<<(const wchar_t* text) const noexcept {
  if (state_ == nullptr) return *this;
  std::size_t length = 0;
  if (!readable_text(state_, text, length))
    return WriteAppendFormat(kPointer "->L\"?\"", address(text));
  return append_wide(*this, "L", text, length, "");
}

const TvFuncLog& TvFuncLog::operator<<(wchar_t* const& bstr) const noexcept {
  if (state_ == nullptr) return *this;
  std::size_t length = 0;
  if (!readable(state_, &bstr, sizeof bstr) ||
      (bstr != nullptr && !platform::is_readable_text(bstr, length))) {
    return WriteAppendFormat("R" kPointer "->BSTR(?)", address(&bstr));
  }
  if (bstr == nullptr) return WriteAppend("BSTR(null)");
  return append_wide(*this, "BSTR(", bstr, length, ")");
}

const TvFuncLog& TvFuncLog::operator<<(wchar_t* const* bstr) const noexcept {
  if (WriteAppendPtr(bstr, sizeof *bstr)) return *this << *bstr;
  return WriteAppend("BSTR(?)");
}

const TvFuncLog& TvFuncLog::operator<<(const win::GUID& g) const noexcept {
  if (!readable(state_, &g, sizeof g)) return WriteAppendFormat("R" kPointer "->{?}", address(&g));
  return WriteAppendFormat("{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                           static_cast<unsigned>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
                           g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
}
const TvFuncLog& TvFuncLog::operator<<(const win::GUID* value) const noexcept {
  return append_pointed(*this, value, "{?}");
}

const TvFuncLog& TvFuncLog::operator<<(const win::CREATESTRUCTA& value) const noexcept {
  if (!readable(state_, &value, sizeof value)) {
    return WriteAppendFormat("R" kPointer "->CREATESTRUCT(?)", address(&value));
  }
  return WriteAppend("CREATESTRUCT()");
}
const TvFuncLog& TvFuncLog::operator<<(const win::CREATESTRUCTA* value) const noexcept {
  return append_pointed(*this, value, "CREATESTRUCT(?)");
}

const TvFuncLog& TvFuncLog::operator<<(const win::VARIANT& value) const noexcept {
  if (!readable(state_, &value, sizeof value))
    return WriteAppendFormat("R" kPointer "->VT_?)", address(&value));
  return append_variant(*this, value);
}
const TvFuncLog& TvFuncLog::operator<<(const win::VARIANT* value) const noexcept {
  return append_pointed(*this, value, "VT_?");
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::CharPtr& value) noexcept {
  if (log.WriteAppendPtr(value.value, 1)) return log << *value.value;
  return log.WriteAppend("'?'");
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::WCharPtr& value) noexcept {
  if (log.WriteAppendPtr(value.value, sizeof(wchar_t))) return log << *value.value;
  return log.WriteAppend("L'?'");
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::Flags& value) noexcept {
  char digits[33];
  char* first = digits + 32;
  *first = '\0';
  std::uint32_t bits = value.value;
  do {
    *--first = static_cast<char>('0' + (bits & 1));
    bits >>= 1;
  } while (bits != 0);
  return log.WriteAppendFormat("bits(%s)", first);
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::Hex& value) noexcept {
  return log.WriteAppendFormat("hex(%08x)", static_cast<unsigned>(value.value));
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::OleDate& value) noexcept {
  return append_date(log, "DATE", value.value);
}

const TvFuncLog& operator<<(const TvFuncLog& log, const TvFuncLog::OleDatePtr& value) noexcept {
  if (log.WriteAppendPtr(value.value, sizeof(double)))
    return append_date(log, "DATE", *value.value);
  return log.WriteAppend("DATE(?)");
}
