// The texts and lists that the library has handed out and not been given back. Any thread.
#ifndef STANDINS_CONTROL_HANDED_OUT_H
#define STANDINS_CONTROL_HANDED_OUT_H

#include <cstddef>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace standins {

class HandedOut {
public:
    char* give(const std::string& text);
    char** give(const std::vector<std::string>& texts);
    // What is not of this library, or came back before, is left alone: nothing, and false.
    std::optional<std::string> takeBack(char* text);
    bool takeBack(char** texts, std::size_t count);

private:
    bool forget(const void* given);

    std::mutex mutex_; // guards what follows
    std::set<const void*> given_;
};

} // namespace standins

#endif
