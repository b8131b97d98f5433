// The controller over the script: every call is recorded, and answered as the script says.
#ifndef STANDINS_CONTROL_SCRIPTED_CONTROLLER_H
#define STANDINS_CONTROL_SCRIPTED_CONTROLLER_H

#include "controller.h"
#include "script.h"

#include <condition_variable>
#include <mutex>

namespace standins {

// Any thread may call anything.
class ScriptedController final : public Controller {
public:
    BrivonControlErrorCode getInstance(IBrivonController** controller) override;
    void releaseInstance() override { record("ReleaseInstance"); }
    BrivonControlErrorCode setConfig(const char* first, const char* second) override;
    BrivonControlErrorCode setConfigEx(const char** attributes) override;

    // The contract's slots.
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override;
    bool IsAppInstalled(const char* app) override { return record("IsAppInstalled", {app}).as<bool>(); }
    bool IsAppRunning(const char* app) override { return record("IsAppRunning", {app}).as<bool>(); }
    bool IsAppRunningByName(const char* name) override { return record("IsAppRunningByName", {name}).as<bool>(); }
    void ReleaseAppPath(char* path) override;
    void ReleaseSpecifiers(char** list, std::size_t count) override;
    std::int32_t GetProcessId(const char* app) override { return record("GetProcessId", {app}).toInteger(); }

    // The addon's requests.
    Value request(const std::string& verb, const List& arguments);

private:
    // The answer is null where the usual one stands.
    Value record(const char* operation, List arguments = {});
    std::optional<std::string> pathOf(const std::string& app) override;
    std::vector<std::string> specifiers() override;

    Script script_;
    std::mutex mutex_; // guards what follows
    unsigned launchReleases_ = 0;
    std::condition_variable launchReleased_;
};

} // namespace standins

#endif
