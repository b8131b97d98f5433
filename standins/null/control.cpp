// An application control library that does next to nothing. The folder that it is configured with is the number of
// applications that the next controller knows.
#include "BrivonControl.h"

#include <cstdlib>
#include <string>
#include <vector>

using namespace kesta::brivon::api5;

namespace {

std::size_t applications = 0;

// One for each number of applications, until the process ends.
class Controller final : public IBrivonController {
public:
    explicit Controller(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            names_.push_back("application-" + std::to_string(i));
        for (std::string& name : names_)
            specifiers_.push_back(name.data());
    }
    std::size_t count() const { return names_.size(); }

    void Reserved0() override {}
    bool LaunchApp(const char*, bool, const char*) override { return true; }
    bool IsAppInstalled(const char* targetSpecifier) override { return targetSpecifier[0] != '\0'; }
    bool IsAppRunning(const char* targetSpecifier) override { return targetSpecifier[0] != '\0'; }
    bool IsAppRunningByName(const char* name) override { return name[0] != '\0'; }
    void GetAppPath(const char*, char** path) override { *path = path_; }
    void ReleaseAppPath(char*) override {}
    void GetSpecifiers(char*** list, size_t* count) override {
        *list = specifiers_.data();
        *count = specifiers_.size();
    }
    void ReleaseSpecifiers(char**, size_t) override {}
    int32_t GetProcessId(const char*) override { return 1; }

private:
    char path_[32] = "/opt/suite/calendar/calendar";
    std::vector<std::string> names_;
    std::vector<char*> specifiers_;
};

} // namespace

namespace kesta::brivon::api5 {

const char* const IConfigAttribute::KESTA_ZORP_DIR = "folder";

BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** controller) {
    static std::vector<Controller*>& all = *new std::vector<Controller*>;
    for (Controller* known : all) {
        if (known->count() == applications) {
            *controller = known;
            return BrivonControlErrorCode_Success;
        }
    }
    *controller = all.emplace_back(new Controller(applications));
    return BrivonControlErrorCode_Success;
}
void IBrivonController::ReleaseInstance() {}
BrivonControlErrorCode IBrivonController::SetConfig(const char*, const char*) {
    return BrivonControlErrorCode_Success;
}
BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    applications = std::strtoul(attributes[1], nullptr, 10);
    return BrivonControlErrorCode_Success;
}

} // namespace kesta::brivon::api5
