// What has failed and is tried again, after pauses that grow while it fails. Library thread only.
#ifndef STANDINS_MESSAGE_ATTEMPTS_H
#define STANDINS_MESSAGE_ATTEMPTS_H

#include <uv.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace standins {

class Attempts {
public:
    using Try = std::function<void(const std::string& id)>;

    // Whatever has worked for longer than this is forgotten by its owner, and begins anew.
    static constexpr std::uint64_t longestPauseMs = 1000;

    explicit Attempts(Try tryAgain)
        : tryAgain_(std::move(tryAgain)) {}
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;

    void open(uv_loop_t* loop);
    void close();

    // Tries again: at once after the first failure, then after a pause of 10 ms, and each time after twice the last.
    void failed(const std::string& id);
    // It has worked, or is not to be tried any more.
    void forget(const std::string& id);
    bool isPausing(const std::string& id) const;

private:
    struct Pause {
        std::uint64_t ms = 0;
        std::uint64_t end = 0; // its time (of uv_hrtime); 0: the attempt is under way
    };

    void setTimer();
    void tryDue();

    Try tryAgain_;
    uv_timer_t timer_{};
    std::map<std::string, Pause> pauses_;
};

} // namespace standins

#endif
