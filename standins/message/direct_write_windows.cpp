// A pipe's writes are overlapped and their ends come to the library's loop: no other thread can write.
#include "direct_write.h"

namespace standins {

DirectWrite::DirectWrite(const uv_pipe_t&) {}

std::size_t DirectWrite::write(const char*, std::size_t) const {
    return 0;
}

} // namespace standins
