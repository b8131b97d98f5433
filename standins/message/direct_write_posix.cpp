#include "direct_write.h"

#include <sys/socket.h>

namespace standins {

DirectWrite::DirectWrite(const uv_pipe_t& pipe) {
    uv_os_fd_t descriptor = -1;
    if (uv_fileno(reinterpret_cast<const uv_handle_t*>(&pipe), &descriptor) == 0)
        descriptor_ = descriptor;
}

std::size_t DirectWrite::write(const char* data, std::size_t size) const {
    if (descriptor_ < 0)
        return 0;
    const ssize_t written = send(descriptor_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return written < 0 ? 0 : static_cast<std::size_t>(written);
}

} // namespace standins
