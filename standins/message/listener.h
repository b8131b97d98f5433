// The socket under whose address an endpoint can be found. Library thread only.
#ifndef STANDINS_MESSAGE_LISTENER_H
#define STANDINS_MESSAGE_LISTENER_H

#include "bus_folder.h"

#include <uv.h>

#include <functional>
#include <string>

namespace standins {

class Listener {
public:
    using Accept = std::function<void(uv_stream_t*)>;

    explicit Listener(Accept accept)
        : accept_(std::move(accept)) {}
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Listens, and publishes the endpoint in the folder, which it opens anew where others have removed it. Throws
    // std::runtime_error; to be closed all the same.
    void open(uv_loop_t* loop, BusFolder& folder, const std::string& id);
    void close();

private:
    bool tryOpen(uv_loop_t* loop, const BusFolder& folder, const std::string& id);

    Accept accept_;
    uv_pipe_t* pipe_ = nullptr; // deletes itself once it has been closed
};

} // namespace standins

#endif
