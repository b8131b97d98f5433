// Calls the classes of the bridge as the module does, and the plain functions of the second vendor's libraries.
#include "calls.h"
#include "module/frame_handlers.h"

#include <napi.h>

#include <cstdint>

namespace {

Napi::Value attempt(const Napi::CallbackInfo& info) {
    return Napi::String::New(info.Env(), ::attempt(info[0].As<Napi::String>(), info[1].As<Napi::String>()));
}

Napi::Array toJavaScript(Napi::Env env, const std::vector<std::string>& texts) {
    const Napi::Array array = Napi::Array::New(env);
    for (const std::string& text : texts)
        array.Set(array.Length(), text);
    return array;
}

Napi::Value names(const Napi::CallbackInfo& info) {
    std::vector<std::string> names;
    for (const auto& [name, call] : callsOf(info[0].As<Napi::String>()))
        names.push_back(name);
    return toJavaScript(info.Env(), names);
}

Napi::Value destinations(const Napi::CallbackInfo& info) {
    return toJavaScript(info.Env(), ::destinations(info[0].As<Napi::Number>().Uint32Value()));
}

template <typename Function>
Function functionOf(const Napi::CallbackInfo& info, const char* name) {
    return reinterpret_cast<Function>(
        GetProcAddress(GetModuleHandleA(info[0].As<Napi::String>().Utf8Value().c_str()), name));
}

void order(const Napi::CallbackInfo& info) {
    functionOf<void (*)(const char*)>(info, "vendor_order")(info[1].As<Napi::String>().Utf8Value().c_str());
}

Napi::Value report(const Napi::CallbackInfo& info) {
    return Napi::String::New(info.Env(), functionOf<const char* (*)()>(info, "vendor_report")());
}

// Where the bridge finds the handler of a library, which is mapped as data: in "msvcrt.dll", or how far from the
// library's beginning.
Napi::Value frameHandler(const Napi::CallbackInfo& info) {
    HMODULE file =
        LoadLibraryExA(info[0].As<Napi::String>().Utf8Value().c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    constexpr std::uintptr_t marks = 3; // of how it was loaded, in its lowest bits
    const std::uintptr_t image = reinterpret_cast<std::uintptr_t>(file) & ~marks;
    FARPROC handler = frameHandlerOf(reinterpret_cast<HMODULE>(image));
    FreeLibrary(file);
    if (handler == GetProcAddress(GetModuleHandleA("msvcrt.dll"), "__CxxFrameHandler3"))
        return Napi::String::New(info.Env(), "msvcrt.dll");
    return Napi::Number::New(info.Env(), static_cast<double>(reinterpret_cast<std::uintptr_t>(handler) - image));
}

// The host tells msvcrt.dll that it is a desktop program.
void becomeDesktop(const Napi::CallbackInfo&) {
    constexpr int desktop = 2;
    reinterpret_cast<void (*)(int)>(GetProcAddress(GetModuleHandleA("msvcrt.dll"), "__set_app_type"))(desktop);
}

Napi::Object init(Napi::Env env, Napi::Object exports) {
    exports.Set("becomeDesktop", Napi::Function::New(env, becomeDesktop));
    exports.Set("frameHandler", Napi::Function::New(env, frameHandler));
    exports.Set("attempt", Napi::Function::New(env, attempt));
    exports.Set("names", Napi::Function::New(env, names));
    exports.Set("destinations", Napi::Function::New(env, destinations));
    exports.Set("order", Napi::Function::New(env, order));
    exports.Set("report", Napi::Function::New(env, report));
    return exports;
}

} // namespace

NODE_API_MODULE(vendor, init)
