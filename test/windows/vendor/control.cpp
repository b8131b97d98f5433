// The second vendor's control library, made from the contract alone. It hands out a path for every specifier but "",
// and two specifiers.
#include "BrivonControl.h"
#include "vendor.h"

namespace kesta::brivon::api5 {
namespace {

class Controller final : public IBrivonController {
public:
    void Reserved0() override { __builtin_trap(); }
    bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) override {
        const Call call("LaunchApp", cmdLineArgs);
        return setFocus && targetSpecifier[0] != '\0';
    }
    bool IsAppInstalled(const char* targetSpecifier) override {
        const Call call("IsAppInstalled");
        return targetSpecifier[0] != '\0';
    }
    bool IsAppRunning(const char* targetSpecifier) override {
        const Call call("IsAppRunning");
        return targetSpecifier[0] != '\0';
    }
    bool IsAppRunningByName(const char* name) override {
        const Call call("IsAppRunningByName");
        return name[0] != '\0';
    }
    void GetAppPath(const char* targetSpecifier, char** path) override {
        const Call call("GetAppPath");
        if (targetSpecifier[0] != '\0')
            *path = copyText(targetSpecifier);
    }
    void ReleaseAppPath(char* path) override {
        const Call call("ReleaseAppPath");
        freeText(path);
    }
    void GetSpecifiers(char*** list, size_t* count) override {
        const Call call("GetSpecifiers");
        *count = 2;
        *list = new char* [2] { copyText("first"), copyText("second") };
        ++lists;
    }
    void ReleaseSpecifiers(char** list, size_t count) override {
        const Call call("ReleaseSpecifiers");
        while (count > 0)
            freeText(list[--count]);
        delete[] list;
        --lists;
    }
    int32_t GetProcessId(const char*) override {
        const Call call("GetProcessId");
        return -7;
    }
} controller;

} // namespace

const char* const IConfigAttribute::KESTA_ZORP_DIR = "the vendor's name of it";

BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    const Call call("SetConfigEx:", attributes[1]);
    return BrivonControlErrorCode_Success;
}
BrivonControlErrorCode IBrivonController::SetConfig(const char*, const char*) {
    const Call call("SetConfig");
    return BrivonControlErrorCode_Success;
}
BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** result) {
    const Call call("GetInstance");
    *result = &controller;
    return static_cast<BrivonControlErrorCode>(1);
}
void IBrivonController::ReleaseInstance() {
    const Call call("ReleaseInstance");
}

} // namespace kesta::brivon::api5

void ownOrder(const char*) {}
