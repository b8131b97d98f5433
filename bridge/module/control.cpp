// The classes of the control contract, each on an object of the library's. What the library hands out goes back to it
// as it came.
#include "BrivonControl.h"
#include "crossing.h"
#include "registry.h"

namespace kesta::brivon::api5 {

const char* const IConfigAttribute::KESTA_ZORP_DIR = brivon_ConfigAttribute_KESTA_ZORP_DIR();

namespace {

class Controller final : public IBrivonController {
public:
    explicit Controller(void* library)
        : library_(library) {}
    bool isOf(void* library) const { return library_ == library; }

    void Reserved0() override {}
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override {
        bool answer = false;
        check(brivon_Controller_LaunchApp(library_, targetSpecifier, setFocus, cmdLineArgs, &answer));
        return answer;
    }
    bool IsAppInstalled(const char* targetSpecifier) override {
        bool answer = false;
        check(brivon_Controller_IsAppInstalled(library_, targetSpecifier, &answer));
        return answer;
    }
    bool IsAppRunning(const char* targetSpecifier) override {
        bool answer = false;
        check(brivon_Controller_IsAppRunning(library_, targetSpecifier, &answer));
        return answer;
    }
    bool IsAppRunningByName(const char* name) override {
        bool answer = false;
        check(brivon_Controller_IsAppRunningByName(library_, name, &answer));
        return answer;
    }
    void GetAppPath(const char* targetSpecifier, char** path) override {
        check(brivon_Controller_GetAppPath(library_, targetSpecifier, path));
    }
    void ReleaseAppPath(char* path) override { check(brivon_Controller_ReleaseAppPath(library_, path)); }
    void GetSpecifiers(char*** list, size_t* count) override {
        check(brivon_Controller_GetSpecifiers(library_, list, count));
    }
    void ReleaseSpecifiers(char** list, size_t count) override {
        check(brivon_Controller_ReleaseSpecifiers(library_, list, count));
    }
    int32_t GetProcessId(const char* targetSpecifier) override {
        int32_t answer = 0;
        check(brivon_Controller_GetProcessId(library_, targetSpecifier, &answer));
        return answer;
    }

    Controller* next = nullptr;

private:
    void* library_;
};

Registry<Controller> controllers;

} // namespace

BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** controller) {
    int32_t status = 0;
    void* library = nullptr;
    check(brivon_Controller_GetInstance(&library, &status));
    if (library != nullptr)
        *controller = &controllers.of(library);
    return static_cast<BrivonControlErrorCode>(status);
}
void IBrivonController::ReleaseInstance() {
    check(brivon_Controller_ReleaseInstance());
}
BrivonControlErrorCode IBrivonController::SetConfig(const char* first, const char* second) {
    int32_t status = 0;
    check(brivon_Controller_SetConfig(first, second, &status));
    return static_cast<BrivonControlErrorCode>(status);
}
BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    int32_t status = 0;
    check(brivon_Controller_SetConfigEx(attributes, &status));
    return static_cast<BrivonControlErrorCode>(status);
}

} // namespace kesta::brivon::api5
