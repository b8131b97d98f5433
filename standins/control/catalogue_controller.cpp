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

Catalogue CatalogueController::catalogue() {
    const std::lock_guard lock(mutex_);
    return catalogue_;
}

// ---- The contract's slots

bool CatalogueController::LaunchApp(const char* targetSpecifier, bool, const char* cmdLineArgs) {
    const std::optional<std::string> path = catalogue().pathOf(targetSpecifier);
    return path && launch(*path, cmdLineArgs);
}

bool CatalogueController::IsAppInstalled(const char* targetSpecifier) {
    return catalogue().pathOf(targetSpecifier).has_value();
}

bool CatalogueController::IsAppRunning(const char* targetSpecifier) {
    return GetProcessId(targetSpecifier) != 0;
}

bool CatalogueController::IsAppRunningByName(const char* name) {
    return isNameRunning(name);
}

void CatalogueController::GetAppPath(const char* targetSpecifier, char** path) {
    if (const std::optional<std::string> found = catalogue().pathOf(targetSpecifier))
        *path = handedOut_.give(*found);
}

void CatalogueController::ReleaseAppPath(char* path) {
    handedOut_.takeBack(path);
}

void CatalogueController::GetSpecifiers(char*** list, std::size_t* count) {
    const std::vector<std::string> names = catalogue().names();
    *list = handedOut_.give(names);
    *count = names.size();
}

void CatalogueController::ReleaseSpecifiers(char** list, std::size_t count) {
    handedOut_.takeBack(list, count);
}

std::int32_t CatalogueController::GetProcessId(const char* targetSpecifier) {
    const std::optional<std::string> path = catalogue().pathOf(targetSpecifier);
    return path ? processRunning(*path) : 0;
}

} // namespace standins
