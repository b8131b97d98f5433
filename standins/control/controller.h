// What the controller over the catalogue and the controller over the script have in common.
#pragma once

#include "BrivonControl.h"

#include <optional>
#include <string>
#include <vector>

namespace standins {

class Controller : public kesta::brivon::api5::IBrivonController {
public:
    // What stands behind the static operations of these names: any thread, one call at a time.
    virtual BrivonControlErrorCode getInstance(IBrivonController** controller) = 0;
    virtual void releaseInstance() = 0;
    virtual BrivonControlErrorCode setConfig(const char* first, const char* second) = 0;
    virtual BrivonControlErrorCode setConfigEx(const char** attributes) = 0;

    // The contract's slots; any thread.
    void Reserved0() final {}
    void GetAppPath(const char* targetSpecifier, char** path) final;
    void ReleaseAppPath(char* path) override { delete[] path; }
    void GetSpecifiers(char*** list, size_t* count) final;
    void ReleaseSpecifiers(char** list, size_t count) override;

protected:
    ~Controller() = default;

private:
    // Any thread.
    virtual std::optional<std::string> pathOf(const std::string& targetSpecifier) = 0;
    virtual std::vector<std::string> specifiers() = 0;
};

} // namespace standins
