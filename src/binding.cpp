#include "binding.h"

#include <cstddef>

namespace {

// Raises the failure of the N-API call just made as a plain Error. node-addon-api would make a TypeError of some
// statuses; here every failed call is an Error.
[[noreturn]] void throwFailedCall(Napi::Env env) {
    const napi_extended_error_info* info = nullptr;
    if (napi_get_last_error_info(env, &info) != napi_ok)
        Napi::Error::Fatal("Error::New", "napi_get_last_error_info");
    if (info->error_code == napi_pending_exception)
        throw Napi::Error::New(env);
    const std::string message = info->error_message != nullptr ? info->error_message : "Error in native callback";
    throw Napi::Error::New(env, message);
}

// Runs when an environment ends, before Node.js frees that environment's references.
void abandonConstructor(void* slot) {
    static_cast<ClassWide<Napi::FunctionReference>*>(slot)->exchange({});
}

} // namespace

Napi::Value refuse(Napi::Env env, const char* message) {
    Napi::TypeError::New(env, message).ThrowAsJavaScriptException();
    return env.Null();
}

std::string toUtf8(const Napi::Value& value) {
    const napi_env env = value.Env();
    std::size_t length = 0;
    if (napi_get_value_string_utf8(env, value, nullptr, 0, &length) != napi_ok)
        throwFailedCall(env);
    std::string text(length, '\0');
    // The terminator has its place behind the last character.
    if (napi_get_value_string_utf8(env, value, text.data(), length + 1, nullptr) != napi_ok)
        throwFailedCall(env);
    return text;
}

void keepConstructor(ClassWide<Napi::FunctionReference>& slot, const Napi::Function& constructor) {
    const Napi::Env env = constructor.Env();
    Napi::FunctionReference earlier = slot.exchange({});
    if (earlier.Env() == env)
        earlier.Reset();
    Napi::FunctionReference own = Napi::Persistent(constructor);
    own.SuppressDestruct();
    slot.exchange(std::move(own));
    // Only one registration per environment and slot is allowed; an absent one may be removed.
    napi_remove_env_cleanup_hook(env, abandonConstructor, &slot);
    napi_add_env_cleanup_hook(env, abandonConstructor, &slot);
}
