// The script of a stand-in: it records every call that a program makes of the library and gives the answers set for it.
#ifndef STANDINS_SCRIPT_H
#define STANDINS_SCRIPT_H

#include "value.h"

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

// What an operation of a library may answer. Each library has one table of these, which is all there is to know of it.
struct Operation {
    const char* name;
    // Throws std::invalid_argument for an answer that the operation cannot give. Null: it gives none.
    void (*check)(const Value& answer);
    bool mayThrow;
};

// Any thread may call any operation.
class Script {
public:
    static constexpr unsigned always = std::numeric_limits<unsigned>::max();

    Script(std::string library, std::vector<Operation> operations);

    // Records the call and takes the next answer set for the operation, or nothing where the library's usual answer
    // stands. An answer {throws: text} is thrown as a std::runtime_error.
    std::optional<Value> call(const char* operation, List arguments, bool onLibraryThread);
    // Sets the next answers of an operation. Throws std::invalid_argument for what the table does not allow.
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

    void check(const std::string& operation, const Value& answer) const;

    const std::string library_;
    const std::vector<Operation> operations_;
    std::mutex mutex_; // guards what follows
    std::vector<Call> calls_;
    std::map<std::string, std::deque<Answer>> answers_;
};

// What each stand-in shows to the addon. Any thread but the library's.
class ScriptFace {
public:
    virtual std::vector<Call> takeCalls() = 0;
    virtual void answer(const std::string& operation, const Value& answer, unsigned times) = 0;
    // Forgets calls, answers and everything else that was set.
    virtual void reset() = 0;

protected:
    ~ScriptFace() = default;
};

} // namespace standins

#endif
