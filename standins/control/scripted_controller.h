// The controller over the script: every call is recorded, and answered as the script says.
#pragma once

#include "controller.h"
#include "script.h"

#include <condition_variable>
#include <mutex>

namespace standins {

// Any thread may call anything.
class ScriptedController final : public Controller {
public:
    using Status = BrivonControlErrorCode;

    Status getInstance(IBrivonController** controller) override {
        const Value answer = record("GetInstance");
        const auto status = answer.toInteger<Status>();
        if (status == BrivonControlErrorCode_Success && answer["instance"].as<bool>(true))
            *controller = this;
        return status;
    }
    void releaseInstance() override { record("ReleaseInstance"); }
    Status setConfig(const char* first, const char* second) override {
        return record("SetConfig", {first, second}).toInteger<Status>();
    }
    Status setConfigEx(const char** attributes) override {
        List list;
        for (; *attributes != nullptr; ++attributes)
            list.emplace_back(*attributes);
        return record("SetConfigEx", {list}).toInteger<Status>();
    }

    // The contract's slots.
    // The script holds a launch back until it lets go of all.
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override {
        std::unique_lock lock(mutex_);
        const unsigned releases = launchReleases_;
        lock.unlock();
        const Value answer = script_.call("LaunchApp", {targetSpecifier, setFocus, cmdLineArgs}, true);
        if (!answer["holds"].as<bool>())
            return answer.as<bool>();
        lock.lock();
        launchReleased_.wait(lock, [&] { return launchReleases_ != releases; });
        return answer["launched"].as<bool>(true);
    }
    bool IsAppInstalled(const char* app) override { return record("IsAppInstalled", {app}).as<bool>(); }
    bool IsAppRunning(const char* app) override { return record("IsAppRunning", {app}).as<bool>(); }
    bool IsAppRunningByName(const char* name) override { return record("IsAppRunningByName", {name}).as<bool>(); }
    void ReleaseAppPath(char* path) override {
        record("ReleaseAppPath", {static_cast<const char*>(path)});
        Controller::ReleaseAppPath(path);
    }
    void ReleaseSpecifiers(char** list, std::size_t count) override {
        record("ReleaseSpecifiers", {list != nullptr, static_cast<double>(count)});
        Controller::ReleaseSpecifiers(list, count);
    }
    std::int32_t GetProcessId(const char* app) override { return record("GetProcessId", {app}).toInteger(); }

    // The addon's requests.
    Value request(const std::string& verb, const List& arguments) {
        if (verb != "releaseLaunches")
            return script_.request(verb, arguments);
        const std::lock_guard lock(mutex_);
        ++launchReleases_;
        launchReleased_.notify_all();
        return {};
    }

private:
    // The answer is null where the usual one stands.
    Value record(const char* operation, List arguments = {}) {
        return script_.call(operation, std::move(arguments), false);
    }
    std::optional<std::string> pathOf(const std::string& app) override {
        const Value answer = record("GetAppPath", {app});
        return answer.isNull() ? std::nullopt : std::optional<std::string>(answer.toText());
    }
    std::vector<std::string> specifiers() override {
        std::vector<std::string> names;
        for (const Value& name : record("GetSpecifiers").as<List>())
            names.push_back(name.toText());
        return names;
    }

    Script script_;
    std::mutex mutex_; // guards what follows
    unsigned launchReleases_ = 0;
    std::condition_variable launchReleased_;
};

} // namespace standins
