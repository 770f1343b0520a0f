// Test code may use the system directly: these are the test suite's own
// needs on Windows, which has no fork(): forked children and a second user
// are not offered there (tests that need them skip and say why), programs
// are started with CreateProcess and end through TerminateProcess.
#include <tvbase/testing/processes.h>

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <psapi.h>
#include <sys/stat.h>
#include <winternl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace testing_support {
namespace {

HANDLE as_handle(long value) { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(value)); }

// One command line from words, quoted as the C run-time splits it again.
std::string command_line(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    if (!word.empty() && word.find_first_of(" \t\"") == std::string::npos) {
      line += word;
      continue;
    }
    line += '"';
    std::size_t backslashes = 0;
    for (const char c : word) {
      if (c == '\\') {
        ++backslashes;
        continue;
      }
      line.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
      backslashes = 0;
      line += c;
    }
    line.append(2 * backslashes, '\\');
    line += '"';
  }
  return line;
}

// This process's environment with `extra` set, as CreateProcess takes it.
std::string environment_block(const std::vector<std::pair<std::string, std::string>>& extra) {
  std::string block;
  char* own = ::GetEnvironmentStringsA();
  for (const char* p = own; p != nullptr && *p != '\0'; p += std::strlen(p) + 1) {
    const std::string entry = p;
    bool replaced = false;
    for (const auto& [name, value] : extra)
      replaced = replaced || _strnicmp(entry.c_str(), (name + "=").c_str(), name.size() + 1) == 0;
    if (!replaced) block.append(entry).push_back('\0');
  }
  if (own != nullptr) ::FreeEnvironmentStringsA(own);
  for (const auto& [name, value] : extra) block.append(name + "=" + value).push_back('\0');
  block.push_back('\0');
  return block;
}

bool start(const std::vector<std::string>& words,
           const std::vector<std::pair<std::string, std::string>>& environment, HANDLE in,
           HANDLE out, HANDLE err, PROCESS_INFORMATION& process) {
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = in;
  startup.hStdOutput = out;
  startup.hStdError = err;
  std::string line = command_line(words);
  std::string block = environment_block(environment);
  return ::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, block.data(), nullptr,
                          &startup, &process) != 0;
}

// Programs write their standard streams in text mode here, with CR LF line
// ends; the tests read them as on POSIX.
void to_lf(std::string& text) {
  std::size_t to = 0;
  for (std::size_t from = 0; from < text.size(); ++from) {
    if (text[from] == '\r' && from + 1 < text.size() && text[from + 1] == '\n') continue;
    text[to++] = text[from];
  }
  text.resize(to);
}

void drain(long& pipe, std::string& text) {
  if (pipe == -1) return;
  char buffer[4096];
  DWORD n = 0;
  while (::ReadFile(as_handle(pipe), buffer, sizeof buffer, &n, nullptr) && n > 0)
    text.append(buffer, n);
  to_lf(text);
  ::CloseHandle(as_handle(pipe));
  pipe = -1;
}

}  // namespace

// No fork(): the child never starts (started() is false) and waiting gives
// exit code -1. Tests check can_fork first.
forked_child::forked_child(const std::function<int()>&) {}

forked_child::~forked_child() = default;

void forked_child::kill() {}

exit_status forked_child::wait() { return status_; }

exit_status forked_child::wait(int) { return status_; }

// Nothing to replace: there is no forked child to run the program in.
int exec_program(const std::vector<std::string>&, const std::string&) { return 127; }

// Windows tests have one user: there is no second account to become.
bool become_other_user() { return false; }

int in_child(const std::function<int()>&) { return -1; }

std::optional<std::string> as_other_user(const std::function<std::string()>&) {
  return std::nullopt;
}

program::program(std::vector<std::string> words,
                 const std::vector<std::pair<std::string, std::string>>& environment) {
  if (words.empty()) return;
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE out_read, out_write, err_read, err_write;
  if (!::CreatePipe(&out_read, &out_write, &inherit, 0)) return;
  if (!::CreatePipe(&err_read, &err_write, &inherit, 0)) {
    ::CloseHandle(out_read);
    ::CloseHandle(out_write);
    return;
  }
  ::SetHandleInformation(out_read, HANDLE_FLAG_INHERIT, 0);
  ::SetHandleInformation(err_read, HANDLE_FLAG_INHERIT, 0);
  PROCESS_INFORMATION process{};
  const bool started =
      start(words, environment, ::GetStdHandle(STD_INPUT_HANDLE), out_write, err_write, process);
  ::CloseHandle(out_write);
  ::CloseHandle(err_write);
  out_ = static_cast<int>(reinterpret_cast<std::intptr_t>(out_read));
  err_ = static_cast<int>(reinterpret_cast<std::intptr_t>(err_read));
  if (!started) {
    status_ = 127;
    return;
  }
  ::CloseHandle(process.hThread);
  pid_ = static_cast<long>(reinterpret_cast<std::intptr_t>(process.hProcess));
}

bool program::wait_for_stderr(const std::string& text, int seconds) {
  return wait_for(err_, err_text_, text, seconds);
}

bool program::wait_for_stdout(const std::string& text, int seconds) {
  return wait_for(out_, out_text_, text, seconds);
}

// Signals don't exist here: the program is ended with 128 + `signal` as its
// exit code, which finish() then gives as on POSIX.
void program::signal(int signal) {
  if (pid_ > 0) ::TerminateProcess(as_handle(pid_), 128 + static_cast<UINT>(signal));
}

int program::finish() {
  if (pid_ <= 0) {
    long out = out_, err = err_;
    drain(out, out_text_);
    drain(err, err_text_);
    out_ = err_ = -1;
    return status_;
  }
  long out = out_, err = err_;
  drain(out, out_text_);
  drain(err, err_text_);
  out_ = err_ = -1;
  ::WaitForSingleObject(as_handle(pid_), INFINITE);
  DWORD code = 0;
  ::GetExitCodeProcess(as_handle(pid_), &code);
  ::CloseHandle(as_handle(pid_));
  pid_ = 0;
  status_ = static_cast<int>(code);
  return status_;
}

// A program still running after `seconds` is ended first, with the exit code
// a SIGKILL would give on POSIX, which closes its ends of the pipes.
int program::finish(int seconds) {
  if (pid_ > 0 &&
      ::WaitForSingleObject(as_handle(pid_), static_cast<DWORD>(seconds) * 1000) == WAIT_TIMEOUT) {
    ::TerminateProcess(as_handle(pid_), 128 + SIGKILL);
  }
  return finish();
}

bool program::wait_for(int fd, std::string& read, const std::string& text, int seconds) {
  const ULONGLONG deadline = ::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
  char buffer[512];
  while (read.find(text) == std::string::npos) {
    DWORD ready = 0;
    if (!::PeekNamedPipe(as_handle(fd), nullptr, 0, nullptr, &ready, nullptr)) return false;
    if (ready == 0) {
      if (::GetTickCount64() >= deadline) {
        if (pid_ > 0) ::TerminateProcess(as_handle(pid_), 128 + 9);
        return false;
      }
      ::Sleep(5);
      continue;
    }
    DWORD n = 0;
    if (!::ReadFile(as_handle(fd), buffer, sizeof buffer, &n, nullptr) || n == 0) return false;
    read.append(buffer, n);
    to_lf(read);
  }
  return true;
}

bool run_quietly(const std::vector<std::string>& words) {
  if (words.empty()) return false;
  PROCESS_INFORMATION process{};
  if (!start(words, {}, ::GetStdHandle(STD_INPUT_HANDLE), ::GetStdHandle(STD_OUTPUT_HANDLE),
             ::GetStdHandle(STD_ERROR_HANDLE), process)) {
    return false;
  }
  ::CloseHandle(process.hThread);
  ::WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 1;
  ::GetExitCodeProcess(process.hProcess, &code);
  ::CloseHandle(process.hProcess);
  return code == 0;
}

std::string capture_stderr(const std::string& path, const std::function<void()>& body) {
  std::fflush(stderr);
  const int saved = ::_dup(2);
  const HANDLE saved_handle = ::GetStdHandle(STD_ERROR_HANDLE);
  const int file = ::_open(path.c_str(), _O_CREAT | _O_TRUNC | _O_WRONLY | _O_BINARY, 0600);
  ::_dup2(file, 2);
  ::_close(file);
  ::SetStdHandle(STD_ERROR_HANDLE, reinterpret_cast<HANDLE>(::_get_osfhandle(2)));
  body();
  ::_dup2(saved, 2);
  ::_close(saved);
  ::SetStdHandle(STD_ERROR_HANDLE, saved_handle);
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

namespace {

std::string* g_debug_output = nullptr;

// OutputDebugStringA raises DBG_PRINTEXCEPTION_C with the text's size and
// address, which a debugger would take; unhandled, the call goes on as if
// none listened.
LONG CALLBACK take_debug_output(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2 &&
      g_debug_output != nullptr) {
    const auto size = static_cast<std::size_t>(record.ExceptionInformation[0]);
    const auto* text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    if (size > 0) g_debug_output->append(text, size - 1);  // without the zero
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

std::string capture_debug_output(const std::string&, const std::function<void()>& body) {
  std::string output;
  g_debug_output = &output;
  void* handler = ::AddVectoredExceptionHandler(1, take_debug_output);
  body();
  ::RemoveVectoredExceptionHandler(handler);
  g_debug_output = nullptr;
  return output;
}

guarded_page::guarded_page() {
  SYSTEM_INFO info{};
  ::GetSystemInfo(&info);
  size_ = info.dwPageSize;
  base_ = static_cast<char*>(
      ::VirtualAlloc(nullptr, 2 * size_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  DWORD old = 0;
  if (base_ == nullptr || !::VirtualProtect(base_ + size_, size_, PAGE_NOACCESS, &old))
    std::abort();
}

guarded_page::~guarded_page() { ::VirtualFree(base_, 0, MEM_RELEASE); }

// Wine names a Windows path's file on Linux through an export of its
// kernel32 that Windows lacks.
std::string host_path(const std::string& path) {
  using unix_name = char*(__stdcall*)(const wchar_t*);
  const HMODULE kernel = ::GetModuleHandleA("kernel32.dll");
  const auto to_unix = reinterpret_cast<unix_name>(
      reinterpret_cast<void*>(::GetProcAddress(kernel, "wine_get_unix_file_name")));
  if (to_unix == nullptr) return {};
  const int units = ::MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, nullptr, 0);
  if (units <= 0) return {};
  std::wstring wide(static_cast<std::size_t>(units), L'\0');
  ::MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, wide.data(), units);
  char* name = to_unix(wide.c_str());
  if (name == nullptr) return {};
  std::string out = name;
  ::HeapFree(::GetProcessHeap(), 0, name);
  return out;
}

// The system's table of every process's handles, counted for this one.
// (GetProcessHandleCount would do on Windows, but Wine's always says 0.)
long open_handle_count() {
  constexpr NTSTATUS kTooSmall = static_cast<NTSTATUS>(0xC0000004);
  std::vector<unsigned char> table(1 << 16);
  NTSTATUS status;
  ULONG needed = 0;
  while ((status = ::NtQuerySystemInformation(SystemHandleInformation, table.data(),
                                              static_cast<ULONG>(table.size()), &needed)) ==
         kTooSmall) {
    if (table.size() > (1u << 28)) return -1;
    table.resize(std::max<std::size_t>(2 * table.size(), needed));
  }
  if (status < 0) return -1;
  const auto* info = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(table.data());
  const ULONG self = ::GetCurrentProcessId();
  long count = 0;
  for (ULONG i = 0; i < info->Count; ++i) count += info->Handle[i].OwnerPid == self;
  return count;
}

unsigned set_umask(unsigned mask) {
  return static_cast<unsigned>(::_umask(static_cast<int>(mask)));
}

int file_mode(const std::string& path) {
  struct _stat info {};
  if (::_stat(path.c_str(), &info) != 0) return -1;
  return static_cast<int>(info.st_mode & 0777);
}

// Windows has no limit on the size of a process's files.
bool limit_file_size(unsigned long long) { return false; }

long long peak_resident_bytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  if (!::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters)) return 0;
  return static_cast<long long>(counters.PeakWorkingSetSize);
}

long cheapest_system_call() { return static_cast<long>(::SwitchToThread()); }

void set_environment(const char* name, const char* value) {
  ::_putenv_s(name, value);
  ::SetEnvironmentVariableA(name, value);
}

void kill_this_process() { ::TerminateProcess(::GetCurrentProcess(), 128 + SIGKILL); }

}  // namespace testing_support
