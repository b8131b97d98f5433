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
    OPERATION(bool, IsAppInstalled, (const char* targetSpecifier) override, return targetSpecifier[0] != '\0';)
    OPERATION(bool, IsAppRunning, (const char* targetSpecifier) override, return targetSpecifier[0] != '\0';)
    OPERATION(bool, IsAppRunningByName, (const char* name) override, return name[0] != '\0';)
    OPERATION(void, GetAppPath, (const char* targetSpecifier, char** path) override,
              if (targetSpecifier[0] != '\0') * path = copyText(targetSpecifier);)
    void ReleaseAppPath(char* path) override {
        freeText(path);
        const Call call("ReleaseAppPath");
    }
    OPERATION(
        void, GetSpecifiers, (char*** list, size_t* count) override, ++lists;
        *list = new char* [*count = 2] { copyText("first"), copyText("second") };)
    void ReleaseSpecifiers(char** list, size_t count) override {
        --lists;
        while (count > 0)
            freeText(list[--count]);
        delete[] list;
        const Call call("ReleaseSpecifiers");
    }
    OPERATION(int32_t, GetProcessId, (const char*) override, return -7;)
} controller;

} // namespace

const char* const IConfigAttribute::KESTA_ZORP_DIR = "the vendor's name of it";

BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    const Call call("SetConfigEx", attributes[1]);
    return BrivonControlErrorCode_Success;
}
OPERATION(BrivonControlErrorCode, IBrivonController::SetConfig, (const char*, const char*),
          return BrivonControlErrorCode_Success;)
OPERATION(BrivonControlErrorCode, IBrivonController::GetInstance, (IBrivonController * *result), *result = &controller;
          return static_cast<BrivonControlErrorCode>(1);)
OPERATION(void, IBrivonController::ReleaseInstance, (), )

} // namespace kesta::brivon::api5

void ownOrder(const char*) {}
