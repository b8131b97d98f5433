// The control library's objects behind the plain functions.
#include "BrivonControl.h"
#include "crossing.h"

using namespace kesta::brivon::api5;

namespace {

IBrivonController& controller(void* object) {
    return *static_cast<IBrivonController*>(object);
}

} // namespace

extern "C" {

const char* brivon_ConfigAttribute_KESTA_ZORP_DIR() {
    return IConfigAttribute::KESTA_ZORP_DIR;
}

// The controller counts whatever the status says.
BrivonThrown* brivon_Controller_GetInstance(void** result, int32_t* status) {
    return guarded([&] {
        IBrivonController* instance = nullptr;
        *status = IBrivonController::GetInstance(&instance);
        *result = instance;
    });
}
BrivonThrown* brivon_Controller_ReleaseInstance() {
    return guarded([] { IBrivonController::ReleaseInstance(); });
}
BrivonThrown* brivon_Controller_SetConfig(const char* first, const char* second, int32_t* status) {
    return guarded([&] { *status = IBrivonController::SetConfig(first, second); });
}
BrivonThrown* brivon_Controller_SetConfigEx(const char** attributes, int32_t* status) {
    return guarded([&] { *status = IBrivonController::SetConfigEx(attributes); });
}

// A thread of the runtime's pool.
BrivonThrown* brivon_Controller_LaunchApp(void* object, const char* targetSpecifier, bool setFocus,
                                          const char* cmdLineArgs, bool* answer) {
    return guarded([&] { *answer = controller(object).LaunchApp(targetSpecifier, setFocus, cmdLineArgs); });
}
BrivonThrown* brivon_Controller_IsAppInstalled(void* object, const char* targetSpecifier, bool* answer) {
    return guarded([&] { *answer = controller(object).IsAppInstalled(targetSpecifier); });
}
BrivonThrown* brivon_Controller_IsAppRunning(void* object, const char* targetSpecifier, bool* answer) {
    return guarded([&] { *answer = controller(object).IsAppRunning(targetSpecifier); });
}
BrivonThrown* brivon_Controller_IsAppRunningByName(void* object, const char* name, bool* answer) {
    return guarded([&] { *answer = controller(object).IsAppRunningByName(name); });
}
BrivonThrown* brivon_Controller_GetAppPath(void* object, const char* targetSpecifier, char** path) {
    return guarded([&] { controller(object).GetAppPath(targetSpecifier, path); });
}
BrivonThrown* brivon_Controller_ReleaseAppPath(void* object, char* path) {
    return guarded([&] { controller(object).ReleaseAppPath(path); });
}
BrivonThrown* brivon_Controller_GetSpecifiers(void* object, char*** list, size_t* count) {
    return guarded([&] { controller(object).GetSpecifiers(list, count); });
}
BrivonThrown* brivon_Controller_ReleaseSpecifiers(void* object, char** list, size_t count) {
    return guarded([&] { controller(object).ReleaseSpecifiers(list, count); });
}
BrivonThrown* brivon_Controller_GetProcessId(void* object, const char* targetSpecifier, int32_t* answer) {
    return guarded([&] { *answer = controller(object).GetProcessId(targetSpecifier); });
}

} // extern "C"
