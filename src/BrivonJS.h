// What every function that JavaScript can call in this module shares: refusals of bad arguments, string conversion, and
// the care for a class's constructor reference. All of it runs on the JavaScript thread.
#ifndef BRIVONJS_H
#define BRIVONJS_H

#include "textbuffer.h"

#include <napi.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Texts of the TypeErrors that argument checks raise.
inline constexpr char kWrongNumberOfArguments[] = "Wrong number of arguments";
inline constexpr char kTargetSpecifierNotString[] = "Expected targetSpecifier to be a string";

// Throws a TypeError without a code into JavaScript and answers null, which the refused method returns.
Napi::Value refuse(Napi::Env env, const char* message);

// The whole of a JavaScript string as UTF-8, NUL characters included, behind a prefix; for the duration of a call, in
// place unless it is long. A value that is not a string raises a plain Error (not a TypeError) with the runtime's
// message.
class Utf8Text {
public:
    explicit Utf8Text(const Napi::Value& value, std::string_view prefix = {});
    // The empty text.
    Utf8Text();

    bool empty() const { return length_ == 0; }
    const char* c_str() const { return buffer_.data(); }
    std::string_view view() const { return {c_str(), length_}; }

private:
    std::size_t length_;
    TextBuffer buffer_;
};

// The same, to keep.
std::string toUtf8(const Napi::Value& value);

// Sets an element of an array. Given a Napi::String as such, Array::Set would copy its text out and make it anew.
inline void setElement(Napi::Array& array, std::uint32_t index, const Napi::Value& value) {
    array.Set(index, value);
}

// Keeps a class's constructor function alive until its environment ends, replacing the one that an earlier
// initialisation left in the slot. A reference of another environment belongs to another thread and is left to it.
void keepConstructor(Napi::FunctionReference& slot, const Napi::Function& constructor);

#endif
