// _assert and abort in place of those of msvcrt.dll. Those show a dialog, and execution goes on after "Ignore", unless
// the host has called that library's __set_app_type(1); a host with another run-time library never does. Linked into
// everything that imports from the host. Other users of msvcrt.dll keep theirs. Any thread.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

extern "C" {

void abort() {
    constexpr UINT exitCode = 3; // as msvcrt.dll's
    TerminateProcess(GetCurrentProcess(), exitCode);
    __builtin_trap();
}

// Writes by one call of the system's, whatever state the streams of msvcrt.dll are in.
[[noreturn]] void _assert(const char* expression, const char* file, unsigned line) {
    char report[1024];
    const int length =
        std::snprintf(report, sizeof report, "Assertion failed: %s, file %s, line %u\n", expression, file, line);
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), report, static_cast<DWORD>(std::min<int>(length, sizeof report - 1)),
              &written, nullptr);
    std::abort();
}

// The name by which code calls it that expects it in a DLL.
extern decltype(&_assert) const __imp__assert;
decltype(&_assert) const __imp__assert = _assert;
}
