// The controller: the contract's operations, answered by the catalogue, or by the script once that is switched on.
#ifndef STANDINS_CONTROL_CONTROLLER_H
#define STANDINS_CONTROL_CONTROLLER_H

#include "catalogue.h"
#include "control_script.h"

#include "BrivonControl.h"

#include <condition_variable>
#include <mutex>
#include <set>

namespace standins {

// One per process, never destroyed: a launch may outlive static destruction. Any thread may call anything.
class Controller final : public kesta::brivon::api5::IBrivonController, public ScriptFace {
public:
    static Controller& instance();

    BrivonControlErrorCode getInstance(IBrivonController** controller);
    void releaseInstance();
    BrivonControlErrorCode setConfig(const char* first, const char* second);
    BrivonControlErrorCode setConfigEx(const char** attributes);

    // The contract's slots.
    void Reserved0() override {}
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override;
    bool IsAppInstalled(const char* targetSpecifier) override;
    bool IsAppRunning(const char* targetSpecifier) override;
    bool IsAppRunningByName(const char* name) override;
    void GetAppPath(const char* targetSpecifier, char** path) override;
    void ReleaseAppPath(char* path) override;
    void GetSpecifiers(char*** list, std::size_t* count) override;
    void ReleaseSpecifiers(char** list, std::size_t count) override;
    std::int32_t GetProcessId(const char* targetSpecifier) override;

    // The script's face.
    void switchOn() override;
    std::vector<Call> takeCalls() override { return script_.takeCalls(); }
    void answer(const std::string& operation, const Value& answer, unsigned times) override;
    void perform(const std::string& command, const Value& argument) override;

private:
    Controller() = default;

    std::optional<std::string> pathOf(const char* targetSpecifier);
    bool askScript(const char* operation, const char* specifier);
    char* handOut(const std::string& text);

    Script script_;

    std::mutex mutex_; // guards what follows
    int instances_ = 0;
    Catalogue catalogue_;
    // What has been handed out and not been given back.
    std::set<const void*> handedOut_;
    unsigned launchReleases_ = 0;
    std::condition_variable launchReleased_;
};

} // namespace standins

#endif
