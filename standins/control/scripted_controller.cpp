#include "scripted_controller.h"

namespace standins {

namespace {

BrivonControlErrorCode toStatus(const Value& answer) {
    return static_cast<BrivonControlErrorCode>(answer.toInteger());
}

} // namespace

Value ScriptedController::record(const char* operation, List arguments) {
    return script_.call(operation, std::move(arguments), false);
}

BrivonControlErrorCode ScriptedController::getInstance(IBrivonController** controller) {
    const Value answer = record("GetInstance");
    const BrivonControlErrorCode status = toStatus(answer);
    if (status == BrivonControlErrorCode_Success && answer["instance"].as<bool>(true))
        *controller = this;
    return status;
}

BrivonControlErrorCode ScriptedController::setConfig(const char* first, const char* second) {
    return toStatus(record("SetConfig", {first, second}));
}

BrivonControlErrorCode ScriptedController::setConfigEx(const char** attributes) {
    List list;
    for (; *attributes != nullptr; ++attributes)
        list.emplace_back(*attributes);
    return toStatus(record("SetConfigEx", {list}));
}

// The script holds a launch back until it lets go of all.
bool ScriptedController::LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) {
    std::unique_lock lock(mutex_);
    const unsigned releases = launchReleases_;
    lock.unlock();
    const Value answer = script_.call("LaunchApp", {targetSpecifier, setFocus, cmdLineArgs}, true);
    if (!answer["holds"].as<bool>())
        return answer.as<bool>();
    lock.lock();
    launchReleased_.wait(lock, [&] { return launchReleases_ != releases; });
    return answer["launched"].as<bool>(true);
}

std::optional<std::string> ScriptedController::pathOf(const std::string& app) {
    const Value answer = record("GetAppPath", {app});
    return answer.isNull() ? std::nullopt : std::optional<std::string>(answer.toText());
}

std::vector<std::string> ScriptedController::specifiers() {
    std::vector<std::string> names;
    for (const Value& name : record("GetSpecifiers").as<List>())
        names.push_back(name.toText());
    return names;
}

void ScriptedController::ReleaseAppPath(char* path) {
    record("ReleaseAppPath", {static_cast<const char*>(path)});
    Controller::ReleaseAppPath(path);
}

void ScriptedController::ReleaseSpecifiers(char** list, std::size_t count) {
    record("ReleaseSpecifiers", {list != nullptr, static_cast<double>(count)});
    Controller::ReleaseSpecifiers(list, count);
}

Value ScriptedController::request(const std::string& verb, const List& arguments) {
    if (verb != "releaseLaunches")
        return script_.request(verb, arguments);
    const std::lock_guard lock(mutex_);
    ++launchReleases_;
    launchReleased_.notify_all();
    return {};
}

} // namespace standins
