// The controller over the script: every call is recorded, and answered as the script says.
#ifndef STANDINS_CONTROL_SCRIPTED_CONTROLLER_H
#define STANDINS_CONTROL_SCRIPTED_CONTROLLER_H

#include "control_script.h"
#include "controller_slots.h"
#include "handed_out.h"

#include <condition_variable>
#include <mutex>

namespace standins {

// Any thread may call anything.
class ScriptedController final : public ControllerSlots, public ControlScript {
public:
    ScriptedController();

    // ControllerSlots
    BrivonControlErrorCode getInstance(IBrivonController** controller) override;
    void releaseInstance() override;
    BrivonControlErrorCode setConfig(const char* first, const char* second) override;
    BrivonControlErrorCode setConfigEx(const char** attributes) override;

    // The contract's slots.
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override;
    bool IsAppInstalled(const char* targetSpecifier) override;
    bool IsAppRunning(const char* targetSpecifier) override;
    bool IsAppRunningByName(const char* name) override;
    void GetAppPath(const char* targetSpecifier, char** path) override;
    void ReleaseAppPath(char* path) override;
    void GetSpecifiers(char*** list, std::size_t* count) override;
    void ReleaseSpecifiers(char** list, std::size_t count) override;
    std::int32_t GetProcessId(const char* targetSpecifier) override;

    // ControlScript
    std::vector<Call> takeCalls() override { return script_.takeCalls(); }
    void answer(const std::string& operation, const Value& answer, unsigned times) override;
    void reset() override;
    void releaseLaunches() override;

private:
    Value record(const char* operation, List arguments = {});

    Script script_;
    HandedOut handedOut_;
    std::mutex mutex_; // guards what follows
    unsigned launchReleases_ = 0;
    std::condition_variable launchReleased_;
};

} // namespace standins

#endif
