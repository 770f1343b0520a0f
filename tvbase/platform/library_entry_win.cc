#include <tvbase/platform/library_entry.h>

#include <windows.h>

#include <tvbase/platform/thread_key.h>

// In tvbase.dll the system calls DllMain with the four events, in its order:
//
//   DLL_PROCESS_ATTACH  after the C++ run-time has built the DLL's static
//                       objects: library::load(); FALSE refuses the load (no
//                       TLS index), and the system then unloads the DLL
//   DLL_THREAD_ATTACH   nothing
//   DLL_THREAD_DETACH   the ending thread's slot value is released
//   DLL_PROCESS_DETACH  library::unload(), which releases the calling
//                       thread's value first and then takes down what load()
//                       built, in the reverse order
//
// Programs that link the library's objects directly (its tests and tools)
// have no DllMain of their own for these objects, so the same steps run from
// a constructor and a destructor of priority 101 (before and after the
// program's other static objects) and the ends of threads come from a TLS
// callback, which the system calls for the program itself. Each path acts in
// one kind of image only.

extern "C" IMAGE_DOS_HEADER __ImageBase;
extern "C" const IMAGE_TLS_DIRECTORY _tls_used;

namespace {

// True when these objects are part of the program rather than of a DLL.
bool in_program() noexcept {
  return reinterpret_cast<HMODULE>(&__ImageBase) == ::GetModuleHandleW(nullptr);
}

__attribute__((constructor(101))) void on_program_start() {
  if (in_program()) static_cast<void>(library::load());
}

__attribute__((destructor(101))) void on_program_end() {
  if (in_program()) library::unload();
}

void NTAPI on_tls_event(PVOID, DWORD reason, PVOID) {
  if (reason == DLL_THREAD_DETACH && in_program()) platform::thread_key_thread_ends();
}

}  // namespace

// The program's TLS directory lists this callback; the reference to
// _tls_used keeps that directory in the image.
extern "C" __attribute__((section(".CRT$XLF"), used))
const PIMAGE_TLS_CALLBACK tvbase_tls_callback = on_tls_event;
extern "C" __attribute__((used)) const void* const tvbase_tls_directory = &_tls_used;

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  switch (reason) {
    case DLL_PROCESS_ATTACH: return library::load() ? TRUE : FALSE;
    case DLL_THREAD_DETACH: platform::thread_key_thread_ends(); break;
    case DLL_PROCESS_DETACH: library::unload(); break;
    default: break;
  }
  return TRUE;
}
