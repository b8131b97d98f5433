// Where Node.js enters the module: the registration record, the pointer through which the file registers itself while
// it is being loaded, and the exports object.
#include "BrivonJS.h"

#include "brivonadapter.h"
#include "brivoncontroladapter.h"

namespace {

Napi::Object Init(Napi::Env env, Napi::Object exports) {
    BrivonAdapter::Init(env, exports);
    BrivonControlAdapter::Init(env, exports);
    return exports;
}

napi_value registerModule(napi_env env, napi_value exports) {
    return Napi::RegisterModule(env, exports, Init);
}

const napi_module moduleRecord = {
    1, // nm_version
    0, // nm_flags
    __FILE__, registerModule, "BrivonJS", nullptr, {nullptr, nullptr, nullptr, nullptr},
};

// Runs on the loading thread among the file's static initialisers. The runtime only reads the record, though its
// signature does not say so.
void _register_BrivonJS() {
    napi_module_register(const_cast<napi_module*>(&moduleRecord));
}

// Raises the failure of the N-API call just made as a plain Error. node-addon-api would make a TypeError of some
// statuses; this module's callers are promised an Error for all of them.
[[noreturn]] void throwFailedCall(Napi::Env env) {
    const napi_extended_error_info* info = nullptr;
    if (napi_get_last_error_info(env, &info) != napi_ok)
        Napi::Error::Fatal("Error::New", "napi_get_last_error_info");
    if (info->error_code == napi_pending_exception)
        throw Napi::Error::New(env);
    const std::string message = info->error_message != nullptr ? info->error_message : "Error in native callback";
    throw Napi::Error::New(env, message);
}

std::size_t utf8Length(const Napi::Value& value) {
    std::size_t length = 0;
    if (napi_get_value_string_utf8(value.Env(), value, nullptr, 0, &length) != napi_ok)
        throwFailedCall(value.Env());
    return length;
}

// Runs when an environment ends, before Node.js frees that environment's references.
void abandonConstructor(void* data) {
    auto& slot = *static_cast<Napi::FunctionReference*>(data);
    Napi::FunctionReference abandoned = std::move(slot);
    abandoned.SuppressDestruct();
}

} // namespace

extern "C" {
#if defined(_MSC_VER)
#pragma section(".CRT$XCU", read)
__declspec(dllexport, allocate(".CRT$XCU")) void (*_register_BrivonJS_)() = _register_BrivonJS;
#elif defined(_WIN32)
__attribute__((dllexport, section(".CRT$XCU"), used)) void (*_register_BrivonJS_)() = _register_BrivonJS;
#else
__attribute__((visibility("default"), section(".init_array"), used)) void (*_register_BrivonJS_)() = _register_BrivonJS;
#endif
}

Napi::Value refuse(Napi::Env env, const char* message) {
    Napi::TypeError::New(env, message).ThrowAsJavaScriptException();
    return env.Null();
}

Utf8Text::Utf8Text(const Napi::Value& value, std::string_view prefix)
    : length_(prefix.size() + utf8Length(value))
    , buffer_(length_ + 1) {
    prefix.copy(buffer_.data(), prefix.size());
    const std::size_t room = length_ + 1 - prefix.size();
    if (napi_get_value_string_utf8(value.Env(), value, buffer_.data() + prefix.size(), room, nullptr) != napi_ok)
        throwFailedCall(value.Env());
}

Utf8Text::Utf8Text()
    : length_(0)
    , buffer_(1) {
    buffer_.data()[0] = '\0';
}

std::string toUtf8(const Napi::Value& value) {
    return std::string(Utf8Text(value).view());
}

void keepConstructor(Napi::FunctionReference& slot, const Napi::Function& constructor) {
    const napi_env env = constructor.Env();
    if (slot.Env() != env)
        abandonConstructor(&slot);
    slot = Napi::Persistent(constructor);
    slot.SuppressDestruct();
    // Only one registration per environment and slot is allowed; an absent one may be removed.
    napi_remove_env_cleanup_hook(env, abandonConstructor, &slot);
    napi_add_env_cleanup_hook(env, abandonConstructor, &slot);
}
