// The script of a stand-in: it records every call that a program makes of the library and gives the answers set for it.
#ifndef STANDINS_SCRIPT_H
#define STANDINS_SCRIPT_H

#include "value.h"

#include <atomic>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace standins {

struct Call {
    std::string operation;
    List arguments;
    bool onLibraryThread;
};

// Any thread may call any operation.
class Script {
public:
    static constexpr unsigned always = std::numeric_limits<unsigned>::max();

    // A script once switched on stays on: the library then answers from it alone.
    bool isOn() const { return on_.load(std::memory_order_relaxed); }
    void switchOn() { on_ = true; }

    // Records the call and takes the next answer set for the operation, or nothing where the library's usual answer
    // stands. An answer {throws: text} is thrown as a std::runtime_error.
    std::optional<Value> call(const char* operation, List arguments, bool onLibraryThread);
    void answer(const std::string& operation, const Value& answer, unsigned times);
    // The calls recorded since the last time.
    std::vector<Call> takeCalls();
    // Forgets calls and answers.
    void reset();

private:
    struct Answer {
        Value value;
        unsigned times;
    };

    std::atomic<bool> on_{false};
    std::mutex mutex_; // guards what follows
    std::vector<Call> calls_;
    std::map<std::string, std::deque<Answer>> answers_;
};

// What each stand-in shows to the addon. Any thread.
class ScriptFace {
public:
    // Throws std::runtime_error when the library is in use already.
    virtual void switchOn() = 0;
    virtual std::vector<Call> takeCalls() = 0;
    // Sets the next answers of an operation. Throws std::invalid_argument for an unknown operation or an answer that it
    // cannot give.
    virtual void answer(const std::string& operation, const Value& answer, unsigned times) = 0;
    // What this library alone can do, such as pushing a message in. Throws std::invalid_argument for an unknown command
    // or argument and std::runtime_error when it cannot be done now.
    virtual void perform(const std::string& command, const Value& argument) = 0;

protected:
    ~ScriptFace() = default;
};

} // namespace standins

#endif
