#include "attempts.h"

#include <algorithm>
#include <vector>

namespace standins {

namespace {

constexpr std::uint64_t firstPauseMs = 10;
constexpr std::uint64_t nsPerMs = 1'000'000;

} // namespace

void Attempts::open(uv_loop_t* loop) {
    timer_.data = this;
    uv_timer_init(loop, &timer_);
}

void Attempts::close() {
    if (timer_.loop != nullptr)
        uv_close(reinterpret_cast<uv_handle_t*>(&timer_), nullptr);
}

void Attempts::failed(const std::string& id) {
    const auto [known, isFirst] = pauses_.try_emplace(id);
    if (isFirst) {
        tryAgain_(id);
        return;
    }
    Pause& pause = known->second;
    pause.ms = pause.ms == 0 ? firstPauseMs : std::min(2 * pause.ms, longestPauseMs);
    pause.end = uv_hrtime() + pause.ms * nsPerMs;
    setTimer();
}

void Attempts::forget(const std::string& id) {
    pauses_.erase(id);
}

bool Attempts::isPausing(const std::string& id) const {
    const auto found = pauses_.find(id);
    return found != pauses_.end() && found->second.end != 0;
}

void Attempts::setTimer() {
    std::uint64_t first = 0;
    for (const auto& [id, pause] : pauses_) {
        if (pause.end != 0 && (first == 0 || pause.end < first))
            first = pause.end;
    }
    if (first == 0)
        return;
    const std::uint64_t now = uv_hrtime();
    const auto tryDueOf = [](uv_timer_t* timer) { static_cast<Attempts*>(timer->data)->tryDue(); };
    uv_timer_start(&timer_, tryDueOf, first > now ? (first - now) / nsPerMs + 1 : 0, 0);
}

void Attempts::tryDue() {
    const std::uint64_t now = uv_hrtime();
    std::vector<std::string> due;
    for (auto& [id, pause] : pauses_) {
        if (pause.end == 0 || pause.end > now)
            continue;
        pause.end = 0;
        due.push_back(id);
    }
    for (const std::string& id : due)
        tryAgain_(id);
    setTimer();
}

} // namespace standins
