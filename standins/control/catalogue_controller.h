// The controller over the catalogue.
#pragma once

#include "catalogue.h"
#include "controller.h"

#include <mutex>

namespace standins {

class CatalogueController final : public Controller {
public:
    // With the lock of the static operations.
    BrivonControlErrorCode getInstance(IBrivonController** controller) override {
        ++instances_;
        *controller = this;
        return BrivonControlErrorCode_Success;
    }
    void releaseInstance() override { --instances_; }
    BrivonControlErrorCode setConfig(const char*, const char*) override { return BrivonControlErrorCode_Success; }
    BrivonControlErrorCode setConfigEx(const char** attributes) override {
        std::string folder;
        for (const char** pair = attributes; pair[0] != nullptr && pair[1] != nullptr; pair += 2) {
            if (std::string(pair[0]) == kesta::brivon::api5::IConfigAttribute::KESTA_ZORP_DIR)
                folder = pair[1];
        }
        const std::lock_guard lock(mutex_);
        folder_ = folder;
        return BrivonControlErrorCode_Success;
    }
    bool isInUse() const { return instances_ != 0; }

    // The contract's slots; any thread.
    bool LaunchApp(const char* targetSpecifier, bool, const char* cmdLineArgs) override {
        const std::optional<std::string> path = pathOf(targetSpecifier);
        return path && launch(*path, cmdLineArgs);
    }
    bool IsAppInstalled(const char* targetSpecifier) override { return pathOf(targetSpecifier).has_value(); }
    bool IsAppRunning(const char* targetSpecifier) override { return GetProcessId(targetSpecifier) != 0; }
    bool IsAppRunningByName(const char* name) override { return isNameRunning(name); }
    std::int32_t GetProcessId(const char* targetSpecifier) override {
        const std::optional<std::string> path = pathOf(targetSpecifier);
        return path ? processRunning(*path) : 0;
    }

private:
    std::optional<std::string> pathOf(const std::string& name) override { return pathOfProgram(folder(), name); }
    std::vector<std::string> specifiers() override { return programsIn(folder()); }
    std::string folder() {
        const std::lock_guard lock(mutex_);
        return folder_;
    }

    int instances_ = 0; // with the lock of the static operations
    std::mutex mutex_;  // guards what follows
    std::string folder_;
};

} // namespace standins
