#include "platform.h"

#include <cerrno>
#include <ctime>

void Sleep(DWORD milliseconds) {
    timespec rest{};
    rest.tv_sec = static_cast<time_t>(milliseconds / 1000);
    rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000;
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}
