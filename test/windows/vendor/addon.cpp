// Calls the classes of the bridge as the module does, and the plain functions of the second vendor's libraries.
#include "BrivonControl.h"
#include "brivonadapter_readers.h"

#include <napi.h>
#include <windows.h>

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
EndPoint one, other;

// Every function of the contracts, by the name under which the vendor notes it.
const std::map<std::string, std::function<void()>>& calls() {
    static char text[4096];
    static char* path = nullptr;
    static char** list = nullptr;
    static EndPoint* endPoints = nullptr;
    static std::size_t count = 0;
    static const char* attributes[] = {"name", "value", nullptr};
    static const auto& message = *new SuiteMessage("brivon.SuiteMessage.t");
    static const std::map<std::string, std::function<void()>> all = {
        {"BrivonMessage5.dll EndPoint", [] { EndPoint().SetId("1"); }},
        {"BrivonMessage5.dll EndPoint-copy", [] { EndPoint(one).SetId("copy"); }},
        {"BrivonMessage5.dll EndPoint-assign", [] { one = other; }},
        {"BrivonMessage5.dll SetId", [] { one.SetId("1"); }},
        {"BrivonMessage5.dll GetId", [] { one.GetId(text); }},
        {"BrivonMessage5.dll SuiteMessage", [] { SuiteMessage made("t"); }},
        {"BrivonMessage5.dll GetTypeSize", [] { message.GetTypeSize(); }},
        {"BrivonMessage5.dll SetSource", [] { SuiteMessage("t").SetSource(one); }},
        {"BrivonMessage5.dll GetSource", [] { message.GetSource(); }},
        {"BrivonMessage5.dll SetPayload", [] { SuiteMessage("t").SetPayload(""); }},
        {"BrivonMessage5.dll SetDestinations", [] { SuiteMessage("t").SetDestinations(&one, 1); }},
        {"BrivonMessage5.dll GetDestinationCount", [] { message.GetDestinationCount(); }},
        {"BrivonMessage5.dll GetDestinations", [] { message.GetDestinations(nullptr); }},
        {"BrivonMessage5.dll SetConfig", [] { IBrivonMessageDispatcher::SetConfig("", ""); }},
        {"BrivonMessage5.dll GetInstance", [] { IBrivonMessageDispatcher::GetInstance(&dispatcher); }},
        {"BrivonMessage5.dll ReleaseInstance", [] { IBrivonMessageDispatcher::ReleaseInstance(); }},
        {"BrivonMessage5.dll Send", [] { dispatcher->Send(message); }},
        {"BrivonMessage5.dll Listener", [] { dispatcher->AddMessageListener(new Listener); }},
        {"BrivonMessage5.dll AddMessageListener", [] { dispatcher->AddMessageListener(&listener); }},
        {"BrivonMessage5.dll RemoveMessageListener", [] { dispatcher->RemoveMessageListener(&listener); }},
        {"BrivonMessage5.dll AddErrorListener", [] { dispatcher->AddErrorListener(&listener); }},
        {"BrivonMessage5.dll RemoveErrorListener", [] { dispatcher->RemoveErrorListener(&listener); }},
        {"BrivonMessage5.dll RegisterEndPointsCallback",
         [] { dispatcher->RegisterEndPointsCallback(onEndPoints, text); }},
        {"BrivonMessage5.dll UnregisterEndPointsCallback",
         [] { dispatcher->UnregisterEndPointsCallback(onEndPoints, text); }},
        {"BrivonMessage5.dll RefreshEndPoints", [] { dispatcher->RefreshEndPoints(); }},
        {"BrivonMessage5.dll IsRefreshing", [] { dispatcher->IsRefreshing(); }},
        {"BrivonMessage5.dll GetSelfEndPoint", [] { dispatcher->GetSelfEndPoint(); }},
        {"BrivonMessage5.dll IsReady", [] { dispatcher->IsReady(); }},
        {"BrivonMessage5.dll GetEndPoints", [] { dispatcher->GetEndPoints(&endPoints, &count); }},
        {"BrivonMessage5.dll ReleaseEndPoints",
         [] {
             dispatcher->GetEndPoints(&endPoints, &count);
             dispatcher->ReleaseEndPoints(endPoints);
         }},
        {"BrivonControl.dll GetInstance", [] { IBrivonController::GetInstance(&controller); }},
        {"BrivonControl.dll ReleaseInstance", [] { IBrivonController::ReleaseInstance(); }},
        {"BrivonControl.dll SetConfig", [] { IBrivonController::SetConfig("", ""); }},
        {"BrivonControl.dll SetConfigEx:", [] { IBrivonController::SetConfigEx(attributes); }},
        {"BrivonControl.dll LaunchApp", [] { controller->LaunchApp("a", true, ""); }},
        {"BrivonControl.dll IsAppInstalled", [] { controller->IsAppInstalled("a"); }},
        {"BrivonControl.dll IsAppRunning", [] { controller->IsAppRunning("a"); }},
        {"BrivonControl.dll IsAppRunningByName", [] { controller->IsAppRunningByName("a"); }},
        {"BrivonControl.dll GetAppPath", [] { controller->GetAppPath("a", &path); }},
        {"BrivonControl.dll ReleaseAppPath",
         [] {
             controller->GetAppPath("a", &path);
             controller->ReleaseAppPath(path);
         }},
        {"BrivonControl.dll GetSpecifiers", [] { controller->GetSpecifiers(&list, &count); }},
        {"BrivonControl.dll ReleaseSpecifiers",
         [] {
             controller->GetSpecifiers(&list, &count);
             controller->ReleaseSpecifiers(list, count);
         }},
        {"BrivonControl.dll GetProcessId", [] { controller->GetProcessId("a"); }},
    };
    return all;
}

// What a call of the contract throws.
Napi::Value attempt(const Napi::CallbackInfo& info) {
    std::string thrown = "nothing";
    try {
        calls().at(info[0].As<Napi::String>().Utf8Value())();
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
    for (const auto& [name, call] : calls())
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

Napi::Object init(Napi::Env env, Napi::Object exports) {
    exports.Set("attempt", Napi::Function::New(env, attempt));
    exports.Set("names", Napi::Function::New(env, names));
    exports.Set("destinations", Napi::Function::New(env, destinations));
    exports.Set("order", Napi::Function::New(env, order));
    exports.Set("report", Napi::Function::New(env, report));
    return exports;
}

} // namespace

NODE_API_MODULE(vendor, init)
