#include "script.h"

namespace standins {

std::optional<Value> Script::call(const char* operation, List arguments, bool onLibraryThread) {
    const std::lock_guard lock(mutex_);
    calls_.push_back({operation, std::move(arguments), onLibraryThread});
    const auto found = answers_.find(operation);
    if (found == answers_.end() || found->second.empty())
        return std::nullopt;
    Answer& next = found->second.front();
    const Value value = next.value;
    if (next.times != always && --next.times == 0)
        found->second.pop_front();
    const Value& throws = value["throws"];
    if (!throws.isNull())
        throw std::runtime_error(throws.toText("throws"));
    return value;
}

void Script::answer(const std::string& operation, const Value& answer, unsigned times) {
    if (times == 0)
        return;
    const std::lock_guard lock(mutex_);
    answers_[operation].push_back({answer, times});
}

std::vector<Call> Script::takeCalls() {
    const std::lock_guard lock(mutex_);
    return std::move(calls_);
}

void Script::reset() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
    answers_.clear();
}

} // namespace standins
