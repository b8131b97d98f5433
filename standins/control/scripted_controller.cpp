#include "scripted_controller.h"

#include <stdexcept>

namespace standins {

namespace {

BrivonControlErrorCode toStatus(const Value& value) {
    return static_cast<BrivonControlErrorCode>(value.toInteger("a status", 0));
}

bool givesInstance(const Value& value) {
    return value["instance"].toBool("instance", true);
}

bool toBoolean(const Value& value) {
    return value.toBool("an answer of this operation", false);
}

std::int32_t toProcessId(const Value& value) {
    return value.toInteger("a process id", 0);
}

std::vector<std::string> toTexts(const Value& value) {
    std::vector<std::string> texts;
    for (const Value& text : value.toList("the specifiers"))
        texts.push_back(text.toText("a specifier"));
    return texts;
}

void checkLaunch(const Value& value) {
    if (value.asObject() == nullptr)
        toBoolean(value);
    else if (!value["holds"].toBool("holds", false))
        throw std::invalid_argument("an answer of LaunchApp is a boolean, { holds: true, launched } or { throws }");
    value["launched"].toBool("launched", true);
}

std::vector<Operation> controlOperations() {
    const auto status = [](const Value& answer) { toStatus(answer); };
    const auto statusOrNoInstance = [](const Value& answer) {
        if (givesInstance(answer))
            toStatus(answer);
    };
    const auto boolean = [](const Value& answer) { toBoolean(answer); };
    return {
        {"GetInstance", statusOrNoInstance, false},
        {"SetConfig", status, false},
        {"SetConfigEx", status, false},
        {"LaunchApp", checkLaunch, true},
        {"IsAppInstalled", boolean, false},
        {"IsAppRunning", boolean, false},
        {"IsAppRunningByName", boolean, false},
        {"GetAppPath", [](const Value& answer) { answer.toText("a path"); }, false},
        {"GetSpecifiers", [](const Value& answer) { toTexts(answer); }, false},
        {"GetProcessId", [](const Value& answer) { toProcessId(answer); }, false},
    };
}

Value toValue(const char* text) {
    return text == nullptr ? Value() : Value(text);
}

} // namespace

ScriptedController::ScriptedController()
    : script_("control", controlOperations()) {}

// Null where the usual answer stands.
Value ScriptedController::record(const char* operation, List arguments) {
    return script_.call(operation, std::move(arguments), false).value_or(Value());
}

// ---- Instances and configuration

BrivonControlErrorCode ScriptedController::getInstance(IBrivonController** controller) {
    const Value answer = record("GetInstance");
    if (!givesInstance(answer))
        return BrivonControlErrorCode_Success;
    const BrivonControlErrorCode status = toStatus(answer);
    if (status == BrivonControlErrorCode_Success)
        *controller = this;
    return status;
}

void ScriptedController::releaseInstance() {
    record("ReleaseInstance");
}

BrivonControlErrorCode ScriptedController::setConfig(const char* first, const char* second) {
    return toStatus(record("SetConfig", {first, second}));
}

BrivonControlErrorCode ScriptedController::setConfigEx(const char** attributes) {
    List list;
    for (const char** pair = attributes; pair[0] != nullptr; pair += 2) {
        list.insert(list.end(), {pair[0], toValue(pair[1])});
        if (pair[1] == nullptr)
            break;
    }
    return toStatus(record("SetConfigEx", {list}));
}

// ---- The contract's slots

bool ScriptedController::LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) {
    std::unique_lock lock(mutex_);
    const unsigned releases = launchReleases_;
    lock.unlock();
    const Value answer = script_.call("LaunchApp", {targetSpecifier, setFocus, cmdLineArgs}, true).value_or(Value());
    if (answer.asObject() == nullptr)
        return toBoolean(answer);
    lock.lock();
    launchReleased_.wait(lock, [&] { return launchReleases_ != releases; });
    return answer["launched"].toBool("launched", true);
}

bool ScriptedController::IsAppInstalled(const char* targetSpecifier) {
    return toBoolean(record("IsAppInstalled", {targetSpecifier}));
}

bool ScriptedController::IsAppRunning(const char* targetSpecifier) {
    return toBoolean(record("IsAppRunning", {targetSpecifier}));
}

bool ScriptedController::IsAppRunningByName(const char* name) {
    return toBoolean(record("IsAppRunningByName", {name}));
}

void ScriptedController::GetAppPath(const char* targetSpecifier, char** path) {
    const Value answer = record("GetAppPath", {targetSpecifier});
    if (!answer.isNull())
        *path = handedOut_.give(answer.toText("a path"));
}

void ScriptedController::ReleaseAppPath(char* path) {
    const std::optional<std::string> text = handedOut_.takeBack(path);
    record("ReleaseAppPath", {text ? Value(*text) : Value()});
}

void ScriptedController::GetSpecifiers(char*** list, std::size_t* count) {
    const std::vector<std::string> names = toTexts(record("GetSpecifiers"));
    *list = handedOut_.give(names);
    *count = names.size();
}

void ScriptedController::ReleaseSpecifiers(char** list, std::size_t count) {
    const bool isOurs = handedOut_.takeBack(list, count);
    record("ReleaseSpecifiers", {isOurs, static_cast<double>(count)});
}

std::int32_t ScriptedController::GetProcessId(const char* targetSpecifier) {
    return toProcessId(record("GetProcessId", {targetSpecifier}));
}

// ---- The script

void ScriptedController::answer(const std::string& operation, const Value& answer, unsigned times) {
    script_.answer(operation, answer, times);
}

void ScriptedController::reset() {
    script_.reset();
    releaseLaunches();
}

void ScriptedController::releaseLaunches() {
    const std::lock_guard lock(mutex_);
    ++launchReleases_;
    launchReleased_.notify_all();
}

} // namespace standins
