#ifndef TVBASE_PLATFORM_WIN_TYPES_H
#define TVBASE_PLATFORM_WIN_TYPES_H

// The Windows types that the library's interfaces take: the icon handle of
// <tvbase/system/gdi.h> (HICON, at the end), the find data of
// <tvbase/system/dir_walk.h> (WIN32_FIND_DATAW, FILETIME) and the structures
// that the trace can show as typed parameters (see <tvbase/trace/func_log.h>).
// They live in namespace `win` on every system:
//
//   - on Windows, win::GUID, win::VARIANT, ... are the system's own types,
//     brought in from <windows.h> and <oaidl.h> by using-declarations, so
//     win::GUID and ::GUID name one type;
//   - elsewhere they are stand-ins declared here, inside namespace `win` only,
//     with the Windows field names and layout for the build's pointer width.
//     Nothing is declared at global scope: a program that has its own GUID or
//     VARIANT keeps it.
//
// Code that spells the types win::GUID compiles on both. On POSIX a user
// names them so, or brings the names into a scope of their own:
//
//   void Open(const win::GUID& id) {
//     TvFuncLog log("Open", TvFuncLog::eLogFilter0, id);  // {00112233-...}
//   }
//   using win::VARIANT;  // in a function or a namespace of the caller's
//
// Wide text here is UTF-16 units, one per wchar_t: a BSTR points at them.

#if defined(_WIN32)
#include <windows.h>

#include <oaidl.h>
#else
#include <cstdint>
#endif

namespace win {

#if defined(_WIN32)

using ::BSTR;
using ::CREATESTRUCTA;
using ::CY;
using ::DATE;
using ::FILETIME;
using ::GUID;
using ::VARIANT;
using ::VARTYPE;
using ::WIN32_FIND_DATAW;

#else

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};

struct CREATESTRUCTA {
  void* lpCreateParams;
  void* hInstance;
  void* hMenu;
  void* hwndParent;
  std::int32_t cy;
  std::int32_t cx;
  std::int32_t y;
  std::int32_t x;
  std::int32_t style;
  const char* lpszName;
  const char* lpszClass;
  std::uint32_t dwExStyle;
};

using BSTR = wchar_t*;
using VARTYPE = std::uint16_t;
using DATE = double;  // days since 30 December 1899, the time as the fraction

union CY {
  struct {
    std::uint32_t Lo;
    std::int32_t Hi;
  } split;
  std::int64_t int64;  // ten-thousandths
};

struct VARIANT {
  // The type of brecord; Windows leaves it unnamed, which standard C++ allows
  // nowhere inside an anonymous union.
  struct record {
    void* pvRecord;
    void* pRecInfo;
  };

  VARTYPE vt;
  std::uint16_t wReserved1;
  std::uint16_t wReserved2;
  std::uint16_t wReserved3;
  union {
    std::int64_t llVal;
    std::int32_t lVal;
    std::uint8_t bVal;
    std::int16_t iVal;
    float fltVal;
    double dblVal;
    std::int16_t boolVal;
    std::int32_t scode;
    CY cyVal;
    DATE date;
    BSTR bstrVal;
    void* punkVal;
    void* pdispVal;
    void* parray;
    char cVal;
    std::uint16_t uiVal;
    std::uint32_t ulVal;
    std::uint64_t ullVal;
    std::int32_t intVal;
    std::uint32_t uintVal;
    void* byref;
    record brecord;
  };
};

// A time as the system's find data keeps it: 100-nanosecond ticks since
// 1 January 1601 (UTC), split into two 32-bit halves.
struct FILETIME {
  std::uint32_t dwLowDateTime;
  std::uint32_t dwHighDateTime;
};

// What a folder listing tells of one item (<tvbase/system/dir_walk.h>).
struct WIN32_FIND_DATAW {
  std::uint32_t dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  std::uint32_t nFileSizeHigh;
  std::uint32_t nFileSizeLow;
  std::uint32_t dwReserved0;
  std::uint32_t dwReserved1;
  wchar_t cFileName[260];
  wchar_t cAlternateFileName[14];
};

static_assert(sizeof(GUID) == 16);
static_assert(sizeof(VARIANT) == 8 + 2 * sizeof(void*));
static_assert(sizeof(CREATESTRUCTA) == (sizeof(void*) == 8 ? 80 : 48));

#endif

// HICON: the icon handle that TvGdi hands out (<tvbase/system/gdi.h>). Where
// the system has icon objects it is the system's own handle; elsewhere it
// points at an object of the library's own that callers never look inside:
// they hold it, compare it with null, pass it back and free it with
// TvGdi::DestroyIcon.
#if defined(_WIN32)
using ::HICON;
#else
struct HICON__;
using HICON = HICON__*;
#endif

}  // namespace win

#endif  // TVBASE_PLATFORM_WIN_TYPES_H
