#include "catalogue_controller.h"

#include <cstring>

namespace standins {

using kesta::brivon::api5::IConfigAttribute;

BrivonControlErrorCode CatalogueController::getInstance(IBrivonController** controller) {
    ++instances_;
    *controller = this;
    return BrivonControlErrorCode_Success;
}

BrivonControlErrorCode CatalogueController::setConfigEx(const char** attributes) {
    std::string folder;
    for (const char** pair = attributes; pair[0] != nullptr && pair[1] != nullptr; pair += 2) {
        if (std::strcmp(pair[0], IConfigAttribute::KESTA_ZORP_DIR) == 0)
            folder = pair[1];
    }
    const std::lock_guard lock(mutex_);
    catalogue_ = Catalogue(folder);
    return BrivonControlErrorCode_Success;
}

bool CatalogueController::LaunchApp(const char* targetSpecifier, bool, const char* cmdLineArgs) {
    const std::optional<std::string> path = pathOf(targetSpecifier);
    return path && launch(*path, cmdLineArgs);
}

std::int32_t CatalogueController::GetProcessId(const char* targetSpecifier) {
    const std::optional<std::string> path = pathOf(targetSpecifier);
    return path ? processRunning(*path) : 0;
}

Catalogue CatalogueController::catalogue() {
    const std::lock_guard lock(mutex_);
    return catalogue_;
}

} // namespace standins
