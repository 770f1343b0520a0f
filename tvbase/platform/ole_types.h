#ifndef TVBASE_PLATFORM_OLE_TYPES_H
#define TVBASE_PLATFORM_OLE_TYPES_H

// The Windows structures that the trace can show as typed parameters. On
// Windows they come from the system headers; elsewhere they are declared here
// with the Windows field layout for the build's pointer width, so that an
// application that carries such values can trace them.

#if defined(_WIN32)
#include <windows.h>

#include <oaidl.h>
#else

#include <cstdint>

extern "C" {

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

// Wide text is UTF-16 units in wchar_t elements; a BSTR points at them.
using BSTR = wchar_t*;
using VARTYPE = std::uint16_t;
using DATE = double;

union CY {
  struct {
    std::uint32_t Lo;
    std::int32_t Hi;
  } split;
  std::int64_t int64;
};

struct VARIANT {
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
    struct {
      void* pvRecord;
      void* pRecInfo;
    } brecord;
  };
};

}  // extern "C"

static_assert(sizeof(GUID) == 16);
static_assert(sizeof(VARIANT) == 8 + 2 * sizeof(void*));
static_assert(sizeof(CREATESTRUCTA) == (sizeof(void*) == 8 ? 80 : 48));

#endif

#endif  // TVBASE_PLATFORM_OLE_TYPES_H
