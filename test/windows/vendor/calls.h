// Calls of the contracts' classes on the second vendor's libraries.
#ifndef CALLS_H
#define CALLS_H

#include "BrivonControl.h"
#include "brivonadapter_readers.h"

#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

using namespace kesta::brivon::api5;

struct Listener final : IBrivonMessageListener {
    void Receive(const BrivonMessage&) override {}
};

inline void onEndPoints(void*) {}

// Every function of a library, by the name under which the vendor notes it.
inline const std::map<std::string, std::function<void()>>& callsOf(const std::string& library) {
    static IBrivonMessageDispatcher* dispatcher = nullptr;
    static IBrivonController* controller = nullptr;
    static EndPoint one, other, two[2];
    static std::deque<Listener> listeners(1);
    static const char* attributes[] = {"name", "value", nullptr};
    static SuiteMessage message("brivon.SuiteMessage.t");
    static const auto list = [] {
        EndPoint* endPoints = nullptr;
        size_t count = 0;
        dispatcher->GetEndPoints(&endPoints, &count);
        dispatcher->ReleaseEndPoints(endPoints);
    };
    static const auto find = [] {
        char* path = nullptr;
        controller->GetAppPath("a", &path);
        controller->ReleaseAppPath(path);
    };
    static const auto specify = [] {
        char** specifiers = nullptr;
        size_t count = 0;
        controller->GetSpecifiers(&specifiers, &count);
        controller->ReleaseSpecifiers(specifiers, count);
    };
    static const std::map<std::string, std::map<std::string, std::function<void()>>> all = {
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
             {"GetId", [] { readId(one); }},
             {"SuiteMessage", [] { SuiteMessage made("t"); }},
             {"GetTypeSize", [] { message.GetTypeSize(); }},
             {"SetSource", [] { SuiteMessage("t").SetSource(one); }},
             {"GetSource", [] { message.GetSource(); }},
             {"SetPayload", [] { SuiteMessage("t").SetPayload(""); }},
             {"SetDestinations", [] { SuiteMessage("t").SetDestinations(two, 2); }},
             {"GetDestinationCount", [] { message.GetDestinationCount(); }},
             {"GetDestinations", [] { message.GetDestinations(two); }},
             {"SetConfig", [] { IBrivonMessageDispatcher::SetConfig("", ""); }},
             {"GetInstance", [] { IBrivonMessageDispatcher::GetInstance(&dispatcher); }},
             {"ReleaseInstance", [] { IBrivonMessageDispatcher::ReleaseInstance(); }},
             {"Send", [] { dispatcher->Send(message); }},
             {"Listener", [] { dispatcher->AddMessageListener(&listeners.emplace_back()); }},
             {"AddMessageListener", [] { dispatcher->AddMessageListener(&listeners.front()); }},
             {"RemoveMessageListener", [] { dispatcher->RemoveMessageListener(&listeners.front()); }},
             {"AddErrorListener", [] { dispatcher->AddErrorListener(&listeners.front()); }},
             {"RemoveErrorListener", [] { dispatcher->RemoveErrorListener(&listeners.front()); }},
             {"RegisterEndPointsCallback", [] { dispatcher->RegisterEndPointsCallback(onEndPoints, &message); }},
             {"UnregisterEndPointsCallback", [] { dispatcher->UnregisterEndPointsCallback(onEndPoints, &message); }},
             {"RefreshEndPoints", [] { dispatcher->RefreshEndPoints(); }},
             {"IsRefreshing", [] { dispatcher->IsRefreshing(); }},
             {"GetSelfEndPoint", [] { dispatcher->GetSelfEndPoint(); }},
             {"IsReady", [] { dispatcher->IsReady(); }},
             {"GetEndPoints", list},
             {"ReleaseEndPoints", list},
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
             {"GetAppPath", find},
             {"ReleaseAppPath", find},
             {"GetSpecifiers", specify},
             {"ReleaseSpecifiers", specify},
             {"GetProcessId", [] { controller->GetProcessId("a"); }},
         }},
    };
    if (dispatcher == nullptr) {
        IBrivonMessageDispatcher::GetInstance(&dispatcher);
        IBrivonController::GetInstance(&controller);
        one.SetId("one");
        other.SetId("other");
    }
    return all.at(library);
}

// What a call throws.
inline std::string attempt(const std::string& library, const std::string& name) {
    try {
        callsOf(library).at(name)();
        return "nothing";
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "something";
    }
}

// The ids of the destinations of a message to these, as the library has them.
inline std::vector<std::string> destinations(const std::vector<EndPoint>& endPoints) {
    SuiteMessage message("t");
    message.SetDestinations(endPoints.data(), endPoints.size());
    std::vector<std::string> ids;
    for (const EndPoint& endPoint : readDestinations(message))
        ids.push_back(readId(endPoint));
    return ids;
}

// To so many of our own.
inline std::vector<std::string> destinations(size_t count) {
    std::vector<EndPoint> endPoints(count);
    for (size_t i = 0; i < count; ++i)
        endPoints[i].SetId(std::to_string(i).c_str());
    return destinations(endPoints);
}

#endif
