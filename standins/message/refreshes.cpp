#include "refreshes.h"

#include <utility>

namespace standins {

bool Refreshes::ask() {
    const std::lock_guard lock(mutex_);
    ++asked_;
    return !std::exchange(isScanDue_, true);
}

bool Refreshes::arePendingFor(std::chrono::milliseconds patience) const {
    std::unique_lock lock(mutex_);
    return !allEnded_.wait_for(lock, patience, [this] { return ended_ == asked_; });
}

void Refreshes::beginScan() {
    const std::lock_guard lock(mutex_);
    isScanDue_ = false;
}

std::size_t Refreshes::asked() const {
    const std::lock_guard lock(mutex_);
    return asked_;
}

void Refreshes::end(std::size_t asked) {
    const std::lock_guard lock(mutex_);
    ended_ = asked;
    allEnded_.notify_all();
}

} // namespace standins
