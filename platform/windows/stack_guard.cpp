// What the stack protector compares and calls. The compiler's own library for it would import another library.
#include <windows.h>

#include <cstdint>
#include <initializer_list>

extern "C" {

std::uintptr_t __stack_chk_guard = 0;

// Any thread. Ends the process at once: nothing on its stack can be trusted.
[[noreturn]] void __stack_chk_fail() {
    __asm__ volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
    __builtin_unreachable();
}
}

namespace {

// Loading thread, before the other static initialisers. The lowest byte stays zero, where the end of a text stops.
__attribute__((constructor(101), no_stack_protector)) void chooseGuard() {
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    std::uint64_t mixed = static_cast<std::uint64_t>(ticks.QuadPart) ^ reinterpret_cast<std::uintptr_t>(&ticks);
    for (const DWORD part : {now.dwLowDateTime, now.dwHighDateTime, GetCurrentProcessId(), GetCurrentThreadId()})
        mixed = (mixed ^ part) * 0x9e3779b97f4a7c15;
    __stack_chk_guard = mixed & ~std::uint64_t{0xff};
}

} // namespace
