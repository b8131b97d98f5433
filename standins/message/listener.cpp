#include "listener.h"

#include <stdexcept>
#include <utility>

namespace standins {

namespace {

constexpr int backlog = 511;
constexpr int attempts = 100;

void check(int status, const std::string& what) {
    if (status != 0)
        throw std::runtime_error(what + ": " + uv_strerror(status));
}

} // namespace

void Listener::open(uv_loop_t* loop, BusFolder& folder, const std::string& id) {
    for (int attempt = 1; !tryOpen(loop, folder, id); ++attempt) {
        if (attempt == attempts)
            throw std::runtime_error("cannot join the bus: others remove its folder again and again");
        close();
        folder = BusFolder::open();
    }
}

// False: others have removed the folder, as the last to leave does, or what stood in it.
bool Listener::tryOpen(uv_loop_t* loop, const BusFolder& folder, const std::string& id) {
    const std::string address = folder.unpublishedAddress(id);
    pipe_ = new uv_pipe_t{};
    uv_pipe_init(loop, pipe_, 0);
    pipe_->data = this;
    const int status = uv_pipe_bind(pipe_, address.c_str());
    if (status == UV_EACCES)
        return false;
    check(status, "cannot bind " + address);
    check(uv_listen(reinterpret_cast<uv_stream_t*>(pipe_), backlog,
                    [](uv_stream_t* listener, int failure) {
                        if (failure == 0)
                            static_cast<Listener*>(listener->data)->accept_(listener);
                    }),
          "cannot listen on " + address);
    return folder.publish(id);
}

void Listener::close() {
    if (pipe_ != nullptr)
        uv_close(reinterpret_cast<uv_handle_t*>(std::exchange(pipe_, nullptr)),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
}

} // namespace standins
