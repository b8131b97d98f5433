// The controller over the catalogue.
#ifndef STANDINS_CONTROL_CATALOGUE_CONTROLLER_H
#define STANDINS_CONTROL_CATALOGUE_CONTROLLER_H

#include "catalogue.h"
#include "controller_slots.h"
#include "handed_out.h"

#include <mutex>
#include <optional>
#include <string>

namespace standins {

class CatalogueController final : public ControllerSlots {
public:
    // ControllerSlots
    BrivonControlErrorCode getInstance(IBrivonController** controller) override;
    void releaseInstance() override { --instances_; }
    BrivonControlErrorCode setConfig(const char*, const char*) override { return BrivonControlErrorCode_Success; }
    BrivonControlErrorCode setConfigEx(const char** attributes) override;
    // With the lock of the static operations.
    bool isInUse() const { return instances_ != 0; }

    // The contract's slots; any thread.
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override;
    bool IsAppInstalled(const char* targetSpecifier) override;
    bool IsAppRunning(const char* targetSpecifier) override;
    bool IsAppRunningByName(const char* name) override;
    void GetAppPath(const char* targetSpecifier, char** path) override;
    void ReleaseAppPath(char* path) override;
    void GetSpecifiers(char*** list, std::size_t* count) override;
    void ReleaseSpecifiers(char** list, std::size_t count) override;
    std::int32_t GetProcessId(const char* targetSpecifier) override;

private:
    // Any thread.
    Catalogue catalogue();

    int instances_ = 0; // with the lock of the static operations
    HandedOut handedOut_;
    std::mutex mutex_; // guards what follows
    Catalogue catalogue_;
};

} // namespace standins

#endif
