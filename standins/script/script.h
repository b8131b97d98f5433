// The script of a stand-in: it records every call that a program makes of the library and gives the answers set for it.
#pragma once

#include "value.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace standins {

// Any thread may call any operation.
class Script {
public:
    // Records the call and takes the next answer set for the operation, or null where the library's usual answer
    // stands. An answer { throws: text } is thrown as a std::runtime_error.
    Value call(const char* operation, List arguments, bool onLibraryThread);

    // What the addon asks of either script: answer(operation, answer, times), takeCalls(), reset().
    Value request(const std::string& verb, const List& arguments);

private:
    struct Answer {
        Value value;
        double times;
    };

    std::mutex mutex_; // guards what follows
    List calls_;
    std::map<std::string, std::deque<Answer>> answers_;
};

} // namespace standins
