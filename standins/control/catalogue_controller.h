// The controller over the catalogue.
#ifndef STANDINS_CONTROL_CATALOGUE_CONTROLLER_H
#define STANDINS_CONTROL_CATALOGUE_CONTROLLER_H

#include "catalogue.h"
#include "controller.h"

#include <mutex>

namespace standins {

class CatalogueController final : public Controller {
public:
    // With the lock of the static operations.
    BrivonControlErrorCode getInstance(IBrivonController** controller) override;
    void releaseInstance() override { --instances_; }
    BrivonControlErrorCode setConfig(const char*, const char*) override { return BrivonControlErrorCode_Success; }
    BrivonControlErrorCode setConfigEx(const char** attributes) override;
    bool isInUse() const { return instances_ != 0; }

    // The contract's slots; any thread.
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override;
    bool IsAppInstalled(const char* targetSpecifier) override { return pathOf(targetSpecifier).has_value(); }
    bool IsAppRunning(const char* targetSpecifier) override { return GetProcessId(targetSpecifier) != 0; }
    bool IsAppRunningByName(const char* name) override { return isNameRunning(name); }
    std::int32_t GetProcessId(const char* targetSpecifier) override;

private:
    std::optional<std::string> pathOf(const std::string& name) override { return catalogue().pathOf(name); }
    std::vector<std::string> specifiers() override { return catalogue().names(); }
    Catalogue catalogue();

    int instances_ = 0; // with the lock of the static operations
    std::mutex mutex_;  // guards what follows
    Catalogue catalogue_;
};

} // namespace standins

#endif
