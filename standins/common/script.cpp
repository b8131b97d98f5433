#include "script.h"

#include <algorithm>
#include <utility>

namespace standins {

Script::Script(std::string library, std::vector<Operation> operations)
    : library_(std::move(library))
    , operations_(std::move(operations)) {}

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
    check(operation, answer);
    if (times == 0)
        return;
    const std::lock_guard lock(mutex_);
    answers_[operation].push_back({answer, times});
}

void Script::check(const std::string& operation, const Value& answer) const {
    const auto found = std::find_if(operations_.begin(), operations_.end(),
                                    [&operation](const Operation& known) { return operation == known.name; });
    if (found == operations_.end())
        throw std::invalid_argument("the " + library_ + " library has no operation " + operation);
    const bool throws = !answer["throws"].isNull();
    if (throws && !found->mayThrow)
        throw std::invalid_argument(operation + " may not throw");
    if (!throws && found->check == nullptr)
        throw std::invalid_argument(operation + " gives no answer" + (found->mayThrow ? "; it can only throw" : ""));
    if (throws)
        answer["throws"].toText("throws");
    else
        found->check(answer);
}

std::vector<Call> Script::takeCalls() {
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
}

void Script::reset() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
    answers_.clear();
}

} // namespace standins
