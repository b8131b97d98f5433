// Calls the classes of the bridge as the module does, and the plain functions of the second vendor's libraries.
#include "BrivonControl.h"
#include "brivonadapter_readers.h"
#include "module/frame_handlers.h"

#include <napi.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

using namespace kesta::brivon::api5;

namespace {

struct Listener final : IBrivonMessageListener {
    void Receive(const BrivonMessage&) override {}
} listener;

void onEndPoints(void*) {}

IBrivonMessageDispatcher* dispatcher = nullptr;
IBrivonController* controller = nullptr;
EndPoint one, other, two[2];

using Calls = std::map<std::string, std::function<void()>>;

// Every function of a library, by the name under which the vendor notes it.
const Calls& callsOf(const Napi::CallbackInfo& info) {
    static char text[4096];
    static char* path = nullptr;
    static char** list = nullptr;
    static EndPoint* endPoints = nullptr;
    static std::size_t count = 0;
    static const char* attributes[] = {"name", "value", nullptr};
    static const auto& message = *new SuiteMessage("brivon.SuiteMessage.t");
    static const std::map<std::string, Calls> all = {
        {"BrivonMessage5.dll",
         {
             {"EndPoint",
              [] {
                  SuiteMessage sent("t");
                  sent.SetDestinations(two, 2);
                  sent.GetDestinations(two);
              }},
             {"EndPoint-copy", [] { EndPoint(one).SetId("copy"); }},
             {"EndPoint-assign", [] { one = other; }},
             {"SetId", [] { one.SetId("1"); }},
             {"GetId", [] { one.GetId(text); }},
             {"SuiteMessage", [] { SuiteMessage made("t"); }},
             {"GetTypeSize", [] { message.GetTypeSize(); }},
             {"SetSource", [] { SuiteMessage("t").SetSource(one); }},
             {"GetSource", [] { message.GetSource(); }},
             {"SetPayload", [] { SuiteMessage("t").SetPayload(""); }},
             {"SetDestinations", [] { SuiteMessage("t").SetDestinations(two, 2); }},
             {"GetDestinationCount", [] { message.GetDestinationCount(); }},
             {"GetDestinations", [] { message.GetDestinations(nullptr); }},
             {"SetConfig", [] { IBrivonMessageDispatcher::SetConfig("", ""); }},
             {"GetInstance", [] { IBrivonMessageDispatcher::GetInstance(&dispatcher); }},
             {"ReleaseInstance", [] { IBrivonMessageDispatcher::ReleaseInstance(); }},
             {"Send", [] { dispatcher->Send(message); }},
             {"Listener", [] { dispatcher->AddMessageListener(new Listener); }},
             {"AddMessageListener", [] { dispatcher->AddMessageListener(&listener); }},
             {"RemoveMessageListener", [] { dispatcher->RemoveMessageListener(&listener); }},
             {"AddErrorListener", [] { dispatcher->AddErrorListener(&listener); }},
             {"RemoveErrorListener", [] { dispatcher->RemoveErrorListener(&listener); }},
             {"RegisterEndPointsCallback", [] { dispatcher->RegisterEndPointsCallback(onEndPoints, text); }},
             {"UnregisterEndPointsCallback", [] { dispatcher->UnregisterEndPointsCallback(onEndPoints, text); }},
             {"RefreshEndPoints", [] { dispatcher->RefreshEndPoints(); }},
             {"IsRefreshing", [] { dispatcher->IsRefreshing(); }},
             {"GetSelfEndPoint", [] { dispatcher->GetSelfEndPoint(); }},
             {"IsReady", [] { dispatcher->IsReady(); }},
             {"GetEndPoints", [] { dispatcher->GetEndPoints(&endPoints, &count); }},
             {"ReleaseEndPoints",
              [] {
                  dispatcher->GetEndPoints(&endPoints, &count);
                  dispatcher->ReleaseEndPoints(endPoints);
              }},
         }},
        {"BrivonControl.dll",
         {
             {"GetInstance", [] { IBrivonController::GetInstance(&controller); }},
             {"ReleaseInstance", [] { IBrivonController::ReleaseInstance(); }},
             {"SetConfig", [] { IBrivonController::SetConfig("", ""); }},
             {"SetConfigEx", [] { IBrivonController::SetConfigEx(attributes); }},
             {"LaunchApp", [] { controller->LaunchApp("a", true, ""); }},
             {"IsAppInstalled", [] { controller->IsAppInstalled("a"); }},
             {"IsAppRunning", [] { controller->IsAppRunning("a"); }},
             {"IsAppRunningByName", [] { controller->IsAppRunningByName("a"); }},
             {"GetAppPath", [] { controller->GetAppPath("a", &path); }},
             {"ReleaseAppPath",
              [] {
                  controller->GetAppPath("a", &path);
                  controller->ReleaseAppPath(path);
              }},
             {"GetSpecifiers", [] { controller->GetSpecifiers(&list, &count); }},
             {"ReleaseSpecifiers",
              [] {
                  controller->GetSpecifiers(&list, &count);
                  controller->ReleaseSpecifiers(list, count);
              }},
             {"GetProcessId", [] { controller->GetProcessId("a"); }},
         }},
    };
    return all.at(info[0].As<Napi::String>());
}

// What a call of the contract throws.
Napi::Value attempt(const Napi::CallbackInfo& info) {
    std::string thrown = "nothing";
    try {
        callsOf(info).at(info[1].As<Napi::String>())();
    } catch (const std::exception& exception) {
        thrown = exception.what();
    } catch (...) {
        thrown = "something";
    }
    return Napi::String::New(info.Env(), thrown);
}

Napi::Value names(const Napi::CallbackInfo& info) {
    IBrivonMessageDispatcher::GetInstance(&dispatcher);
    IBrivonController::GetInstance(&controller);
    one.SetId("one");
    other.SetId("other");
    const Napi::Array array = Napi::Array::New(info.Env());
    for (const auto& [name, call] : callsOf(info))
        array.Set(array.Length(), name);
    return array;
}

// The ids of that many destinations of one message.
Napi::Value destinations(const Napi::CallbackInfo& info) {
    std::vector<EndPoint> list(info[0].As<Napi::Number>().Uint32Value());
    for (std::size_t i = 0; i < list.size(); ++i)
        list[i].SetId(std::to_string(i).c_str());
    SuiteMessage message("t");
    message.SetDestinations(list.data(), list.size());
    const Napi::Array ids = Napi::Array::New(info.Env());
    for (const EndPoint& endPoint : readDestinations(message))
        ids.Set(ids.Length(), readId(endPoint));
    return ids;
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
