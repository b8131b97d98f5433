#include "handed_out.h"

#include <algorithm>
#include <cstring>

namespace standins {

char* HandedOut::give(const std::string& text) {
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    const std::lock_guard lock(mutex_);
    given_.insert(copy);
    return copy;
}

char** HandedOut::give(const std::vector<std::string>& texts) {
    char** list = new char*[texts.size()];
    std::transform(texts.begin(), texts.end(), list, [this](const std::string& text) { return give(text); });
    const std::lock_guard lock(mutex_);
    given_.insert(list);
    return list;
}

std::optional<std::string> HandedOut::takeBack(char* text) {
    if (!forget(text))
        return std::nullopt;
    std::string value(text);
    delete[] text;
    return value;
}

bool HandedOut::takeBack(char** texts, std::size_t count) {
    if (!forget(texts))
        return false;
    for (std::size_t i = 0; i < count; ++i)
        takeBack(texts[i]);
    delete[] texts;
    return true;
}

bool HandedOut::forget(const void* given) {
    const std::lock_guard lock(mutex_);
    return given_.erase(given) != 0;
}

} // namespace standins
