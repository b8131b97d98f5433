#include "controller.h"

#include <algorithm>
#include <cstring>

namespace standins {

namespace {

Value toValue(const char* text) {
    return text == nullptr ? Value() : Value(text);
}

BrivonControlErrorCode toStatus(const std::optional<Value>& answer) {
    const double status = answer ? answer->toNumber("a status", 0) : 0;
    return static_cast<BrivonControlErrorCode>(static_cast<std::int32_t>(status));
}

} // namespace

Controller& Controller::instance() {
    static Controller& controller = *new Controller;
    return controller;
}

ScriptFace& controlScript() {
    return Controller::instance();
}

// ---- Instances and configuration

BrivonControlErrorCode Controller::getInstance(IBrivonController** controller) {
    if (script_.isOn()) {
        const std::optional<Value> answer = script_.call("GetInstance", {}, false);
        if (answer && !(*answer)["instance"].toBool("instance", true))
            return BrivonControlErrorCode_Success;
        const BrivonControlErrorCode status = toStatus(answer);
        if (status != BrivonControlErrorCode_Success)
            return status;
    }
    const std::lock_guard lock(mutex_);
    ++instances_;
    *controller = this;
    return BrivonControlErrorCode_Success;
}

void Controller::releaseInstance() {
    if (script_.isOn())
        script_.call("ReleaseInstance", {}, false);
    const std::lock_guard lock(mutex_);
    --instances_;
}

BrivonControlErrorCode Controller::setConfig(const char* first, const char* second) {
    return script_.isOn() ? toStatus(script_.call("SetConfig", {first, second}, false))
                          : BrivonControlErrorCode_Success;
}

BrivonControlErrorCode Controller::setConfigEx(const char** attributes) {
    List names;
    std::string folder;
    for (const char** pair = attributes; *pair != nullptr; pair += 2) {
        names.insert(names.end(), {pair[0], toValue(pair[1])});
        if (pair[1] == nullptr)
            break;
        if (std::strcmp(pair[0], kesta::brivon::api5::IConfigAttribute::KESTA_ZORP_DIR) == 0)
            folder = pair[1];
    }
    {
        const std::lock_guard lock(mutex_);
        catalogue_ = Catalogue(folder);
    }
    return script_.isOn() ? toStatus(script_.call("SetConfigEx", {names}, false)) : BrivonControlErrorCode_Success;
}

// ---- The contract's slots

bool Controller::LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) {
    if (!script_.isOn()) {
        const std::optional<std::string> path = pathOf(targetSpecifier);
        return path && launch(*path, cmdLineArgs);
    }
    std::unique_lock lock(mutex_);
    const unsigned releases = launchReleases_;
    lock.unlock();
    const std::optional<Value> answer = script_.call("LaunchApp", {targetSpecifier, setFocus, cmdLineArgs}, true);
    if (!answer || answer->asObject() == nullptr)
        return answer && answer->toBool("whether it is launched", false);
    lock.lock();
    launchReleased_.wait(lock, [&] { return launchReleases_ != releases; });
    return (*answer)["launched"].toBool("launched", true);
}

bool Controller::askScript(const char* operation, const char* specifier) {
    const std::optional<Value> answer = script_.call(operation, {specifier}, false);
    return answer && answer->toBool("an answer of this operation", false);
}

bool Controller::IsAppInstalled(const char* targetSpecifier) {
    return script_.isOn() ? askScript("IsAppInstalled", targetSpecifier) : pathOf(targetSpecifier).has_value();
}

bool Controller::IsAppRunning(const char* targetSpecifier) {
    if (script_.isOn())
        return askScript("IsAppRunning", targetSpecifier);
    const std::optional<std::string> path = pathOf(targetSpecifier);
    return path && processRunning(*path) != 0;
}

bool Controller::IsAppRunningByName(const char* name) {
    return script_.isOn() ? askScript("IsAppRunningByName", name) : isNameRunning(name);
}

void Controller::GetAppPath(const char* targetSpecifier, char** path) {
    std::optional<std::string> found;
    if (script_.isOn()) {
        const std::optional<Value> answer = script_.call("GetAppPath", {targetSpecifier}, false);
        if (answer && !answer->isNull())
            found = answer->toText("a path");
    } else {
        found = pathOf(targetSpecifier);
    }
    if (found)
        *path = handOut(*found);
}

void Controller::ReleaseAppPath(char* path) {
    const std::unique_lock lock(mutex_);
    const bool isOurs = handedOut_.erase(path) != 0;
    if (script_.isOn())
        script_.call("ReleaseAppPath", {isOurs ? Value(path) : Value()}, false);
    if (isOurs)
        delete[] path;
}

void Controller::GetSpecifiers(char*** list, std::size_t* count) {
    std::vector<std::string> names;
    if (script_.isOn()) {
        const std::optional<Value> answer = script_.call("GetSpecifiers", {}, false);
        for (const Value& name : answer ? answer->toList("the specifiers") : List())
            names.push_back(name.toText("a specifier"));
    } else {
        const std::lock_guard lock(mutex_);
        names = catalogue_.names();
    }
    *count = names.size();
    *list = new char*[names.size()];
    std::transform(names.begin(), names.end(), *list, [this](const std::string& name) { return handOut(name); });
    const std::lock_guard lock(mutex_);
    handedOut_.insert(*list);
}

void Controller::ReleaseSpecifiers(char** list, std::size_t count) {
    const std::lock_guard lock(mutex_);
    const bool isOurs = handedOut_.erase(list) != 0;
    if (script_.isOn())
        script_.call("ReleaseSpecifiers", {isOurs, static_cast<double>(count)}, false);
    if (!isOurs)
        return;
    for (std::size_t i = 0; i < count; ++i) {
        if (handedOut_.erase(list[i]) != 0)
            delete[] list[i];
    }
    delete[] list;
}

std::int32_t Controller::GetProcessId(const char* targetSpecifier) {
    if (script_.isOn()) {
        const std::optional<Value> answer = script_.call("GetProcessId", {targetSpecifier}, false);
        return answer ? static_cast<std::int32_t>(answer->toNumber("a process id", 0)) : 0;
    }
    const std::optional<std::string> path = pathOf(targetSpecifier);
    return path ? processRunning(*path) : 0;
}

std::optional<std::string> Controller::pathOf(const char* targetSpecifier) {
    std::unique_lock lock(mutex_);
    const Catalogue catalogue = catalogue_;
    lock.unlock();
    return catalogue.pathOf(targetSpecifier);
}

char* Controller::handOut(const std::string& text) {
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    const std::lock_guard lock(mutex_);
    handedOut_.insert(copy);
    return copy;
}

// ---- The script

void Controller::switchOn() {
    const std::lock_guard lock(mutex_);
    if (instances_ != 0 && !script_.isOn())
        throw std::runtime_error("a control adapter of this process uses the real catalogue already");
    script_.switchOn();
}

void Controller::answer(const std::string& operation, const Value& answer, unsigned times) {
    const auto is = [&operation](std::initializer_list<const char*> names) {
        return std::find(names.begin(), names.end(), operation) != names.end();
    };
    answer["throws"].toText("throws");
    if (!answer["throws"].isNull()) {
        if (operation != "LaunchApp")
            throw std::invalid_argument("only LaunchApp may throw");
    } else if (is({"SetConfig", "SetConfigEx"})) {
        toStatus(answer);
    } else if (operation == "GetInstance") {
        if (answer["instance"].toBool("instance", true))
            toStatus(answer);
    } else if (operation == "GetProcessId") {
        answer.toNumber("a process id", 0);
    } else if (is({"IsAppInstalled", "IsAppRunning", "IsAppRunningByName"})) {
        answer.toBool("an answer of this operation", false);
    } else if (operation == "LaunchApp") {
        if (answer.asObject() == nullptr)
            answer.toBool("whether it is launched", false);
        else if (!answer["holds"].toBool("holds", false))
            throw std::invalid_argument("an answer of LaunchApp is a boolean, { holds: true, launched } or { throws }");
        answer["launched"].toBool("launched", true);
    } else if (operation == "GetAppPath") {
        answer.toText("a path");
    } else if (operation == "GetSpecifiers") {
        for (const Value& name : answer.toList("the specifiers"))
            name.toText("a specifier");
    } else {
        throw std::invalid_argument("the control library has no operation " + operation + " that gives an answer");
    }
    script_.answer(operation, answer, times);
}

void Controller::perform(const std::string& command, const Value&) {
    if (command != "reset" && command != "releaseLaunches")
        throw std::invalid_argument("the control stand-in has no command " + command);
    if (command == "reset")
        script_.reset();
    const std::lock_guard lock(mutex_);
    ++launchReleases_;
    launchReleased_.notify_all();
}

} // namespace standins

namespace kesta::brivon::api5 {

using standins::Controller;

const char* const IConfigAttribute::KESTA_ZORP_DIR = "KESTA_ZORP_DIR";

BrivonControlErrorCode IBrivonController::GetInstance(IBrivonController** controller) {
    return Controller::instance().getInstance(controller);
}

void IBrivonController::ReleaseInstance() {
    Controller::instance().releaseInstance();
}

BrivonControlErrorCode IBrivonController::SetConfig(const char* first, const char* second) {
    return Controller::instance().setConfig(first, second);
}

BrivonControlErrorCode IBrivonController::SetConfigEx(const char** attributes) {
    return Controller::instance().setConfigEx(attributes);
}

} // namespace kesta::brivon::api5
