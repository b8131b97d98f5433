#include "script.h"

#include <stdexcept>
#include <utility>

namespace standins {

Value Script::call(const char* operation, List arguments, bool onLibraryThread) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(Object{{"operation", operation},
                            {"arguments", std::move(arguments)},
                            {"thread", onLibraryThread ? "library" : "caller"}});
    std::deque<Answer>& answers = answers_[operation];
    if (answers.empty())
        return {};
    Value value = answers.front().value;
    if (--answers.front().times < 1)
        answers.pop_front();
    if (!value["throws"].isNull())
        throw std::runtime_error(value["throws"].toText());
    return value;
}

Value Script::request(const std::string& verb, const List& arguments) {
    const std::lock_guard lock(mutex_);
    if (verb == "takeCalls")
        return std::exchange(calls_, {});
    if (verb == "answer") {
        answers_[arguments.at(0).toText()].push_back({arguments.at(1), arguments.at(2).as<double>()});
    } else if (verb == "reset") {
        calls_.clear();
        answers_.clear();
    }
    return {};
}

} // namespace standins
