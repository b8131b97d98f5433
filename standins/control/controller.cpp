// The library's static operations, and the one choice between the catalogue and the script.
#include "catalogue_controller.h"
#include "scripted_controller.h"

#include <mutex>
#include <stdexcept>

namespace standins {

namespace {

// Neither is ever destroyed: a launch may outlive static destruction.
CatalogueController& catalogueController() {
    static CatalogueController& only = *new CatalogueController;
    return only;
}
ScriptedController& scriptedController() {
    static ScriptedController& only = *new ScriptedController;
    return only;
}

std::mutex configuring;            // serialises the static operations
ControllerSlots* chosen = nullptr; // with that lock; the catalogue until the script is switched on

ControllerSlots& controller() {
    return chosen == nullptr ? catalogueController() : *chosen;
}

} // namespace

ControlScript& switchOnControlScript() {
    const std::lock_guard lock(configuring);
    if (catalogueController().isInUse())
        throw std::runtime_error("a control adapter of this process uses the real catalogue already");
    chosen = &scriptedController();
    return scriptedController();
}

} // namespace standins

namespace kesta::brivon::api5 {

using standins::configuring;
using standins::controller;

const char* const IConfigAttribute::KESTA_ZORP_DIR = "KESTA_ZORP_DIR";

BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** instance) {
    const std::lock_guard lock(configuring);
    return controller().getInstance(instance);
}

void IBrivonController::ReleaseInstance() {
    const std::lock_guard lock(configuring);
    controller().releaseInstance();
}

BrivonControlErrorCode IBrivonController::SetConfig(const char* first, const char* second) {
    const std::lock_guard lock(configuring);
    return controller().setConfig(first, second);
}

BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    const std::lock_guard lock(configuring);
    return controller().setConfigEx(attributes);
}

} // namespace kesta::brivon::api5
