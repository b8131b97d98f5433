// What every function that JavaScript can call in this module shares: refusals of bad arguments, string conversion, and
// the care for a class's constructor reference. All of it runs on the JavaScript thread.
#ifndef BINDING_H
#define BINDING_H

#include <napi.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

// Texts of the TypeErrors that argument checks raise.
inline constexpr char kWrongNumberOfArguments[] = "Wrong number of arguments";
inline constexpr char kTargetSpecifierNotString[] = "Expected targetSpecifier to be a string";

// Throws a TypeError without a code into JavaScript and answers null, which the refused method returns.
Napi::Value refuse(Napi::Env env, const char* message);

// The whole of a JavaScript string as UTF-8, NUL characters included. A value that is not a string raises a plain Error
// (not a TypeError) with the runtime's message.
std::string toUtf8(const Napi::Value& value);

// Sets an element of an array. Given a Napi::String as such, Array::Set would copy its text out and make it anew.
inline void setElement(Napi::Array& array, std::uint32_t index, const Napi::Value& value) {
    array.Set(index, value);
}

// A value that all environments, each on a thread of its own, share. The lock is held for a copy or a swap only.
template <typename T>
class ClassWide {
public:
    T get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }
    // Answers the value that was there before.
    T exchange(T value) {
        const std::lock_guard lock(mutex_);
        std::swap(value_, value);
        return value;
    }

private:
    mutable std::mutex mutex_;
    T value_;
};

// Keeps a class's constructor function alive until its environment ends, replacing the one that an earlier
// initialisation left in the slot. A reference of another environment belongs to another thread and is left to it.
void keepConstructor(ClassWide<Napi::FunctionReference>& slot, const Napi::Function& constructor);

#endif
