// Writing to a peer without the library's thread, which saves its wake-up.
#ifndef STANDINS_MESSAGE_DIRECT_WRITE_H
#define STANDINS_MESSAGE_DIRECT_WRITE_H

#include <uv.h>

#include <cstddef>

namespace standins {

// A connected stream that any thread may write to as long as nobody else writes and its owner has not closed it.
class DirectWrite {
public:
    // To nowhere: nothing is ever written.
    DirectWrite() = default;
    // Library thread.
    explicit DirectWrite(const uv_pipe_t& pipe);

    // Writes what goes at once, without waiting, and answers how much that was; 0 after any failure.
    std::size_t write(const char* data, std::size_t size) const;

private:
    int descriptor_ = -1;
};

} // namespace standins

#endif
