// The library's static operations, with the one choice between the catalogue and the script, and what it hands out.
#include "controller.h"

#include "catalogue_controller.h"
#include "requests.h"
#include "scripted_controller.h"

#include <cstring>
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

std::mutex configuring;       // serialises the static operations
Controller* chosen = nullptr; // with that lock; the catalogue until the script is switched on

Controller& controller() {
    return chosen == nullptr ? catalogueController() : *chosen;
}

char* copyOf(const std::string& text) {
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

} // namespace

Value requestControl(const std::string& verb, const List& arguments) {
    if (verb != "switchOn")
        return scriptedController().request(verb, arguments);
    const std::lock_guard lock(configuring);
    if (catalogueController().isInUse())
        throw std::runtime_error("a control adapter of this process uses the real catalogue already");
    chosen = &scriptedController();
    return {};
}

void Controller::GetAppPath(const char* targetSpecifier, char** path) {
    if (const std::optional<std::string> found = pathOf(targetSpecifier))
        *path = copyOf(*found);
}

void Controller::GetSpecifiers(char*** list, size_t* count) {
    const std::vector<std::string> names = specifiers();
    *count = names.size();
    *list = new char*[names.size()];
    for (std::size_t i = 0; i < names.size(); ++i)
        (*list)[i] = copyOf(names[i]);
}

void Controller::ReleaseSpecifiers(char** list, size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        delete[] list[i];
    delete[] list;
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
