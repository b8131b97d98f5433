// Another implementation of the control contract, which notes what it is called with and answers the notes as its list
// of specifiers. Its status says failure where the module is to look at the controller alone, and a path that goes back
// to it takes its file along.
#include "BrivonControl.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace kesta::brivon::api5 {
namespace {

std::vector<std::string> notes;

class Controller final : public IBrivonController {
public:
    void Reserved0() override {}
    bool LaunchApp(const char*, bool, const char*) override { return false; }
    bool IsAppInstalled(const char*) override { return false; }
    bool IsAppRunning(const char*) override { return false; }
    bool IsAppRunningByName(const char*) override { return false; }
    void GetAppPath(const char* specifier, char** path) override {
        const std::size_t size = std::strlen(specifier) + 1;
        *path = new char[size];
        std::memcpy(*path, specifier, size);
    }
    void ReleaseAppPath(char* path) override {
        std::remove(path);
        delete[] path;
    }
    void GetSpecifiers(char*** list, size_t* count) override {
        *count = notes.size();
        *list = new char*[notes.size()];
        for (size_t i = 0; i < notes.size(); ++i)
            (*list)[i] = notes[i].data();
    }
    void ReleaseSpecifiers(char** list, size_t) override {
        delete[] list;
        notes.clear();
    }
    int32_t GetProcessId(const char*) override { return 0; }
};

} // namespace

const char* const IConfigAttribute::KESTA_ZORP_DIR = "an attribute of any name";

BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    for (; *attributes != nullptr; ++attributes)
        notes.emplace_back(*attributes);
    return BrivonControlErrorCode_Success;
}
BrivonControlErrorCode IBrivonController::SetConfig(const char*, const char*) {
    return BrivonControlErrorCode_Success;
}
BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** controller) {
    *controller = new Controller;
    return static_cast<BrivonControlErrorCode>(-1);
}
void IBrivonController::ReleaseInstance() {
    notes.emplace_back("ReleaseInstance");
}

} // namespace kesta::brivon::api5
