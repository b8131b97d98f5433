#include "brivoncontroladapter.h"

#include "brivoncontroladapter_version.h"

#include <cassert>
#include <memory>
#include <optional>
#include <utility>

using namespace kesta::brivon::api5;

namespace {

constexpr char kSetFocusNotBoolean[] = "Expected setFocus to be a Boolean";
constexpr char kCmdLineArgsNotString[] = "Expected cmdLineArgs to be a string";
constexpr char kCallbackNotFunction[] = "Expected callback to be a function";

// One pending launch. The controller is a plain copy: a launch keeps neither the adapter nor an instance of the library
// alive.
class LaunchAppWorker final : public Napi::AsyncWorker {
public:
    // JavaScript thread.
    LaunchAppWorker(const Napi::Function& callback, IBrivonController* controller, std::string targetSpecifier,
                    bool setFocus, std::string cmdLineArgs)
        : Napi::AsyncWorker(callback)
        , controller_(controller)
        , targetSpecifier_(std::move(targetSpecifier))
        , setFocus_(setFocus)
        , cmdLineArgs_(std::move(cmdLineArgs)) {}

    // A thread of the runtime's pool. A standard exception becomes the error that the callback receives.
    void Execute() override {
        result_ = controller_->LaunchApp(targetSpecifier_.c_str(), setFocus_, cmdLineArgs_.c_str());
    }

    // JavaScript thread.
    void OnOK() override {
        const Napi::HandleScope scope(Env());
        Callback().Call({Env().Undefined(), Napi::Boolean::New(Env(), result_)});
    }

private:
    IBrivonController* controller_;
    std::string targetSpecifier_;
    bool setFocus_;
    std::string cmdLineArgs_;
    bool result_ = false;
};

} // namespace

ClassWide<Napi::FunctionReference> BrivonControlAdapter::constructor;
ClassWide<std::string> BrivonControlAdapter::_libraryPath;

// ---- Class and lifecycle

Napi::Object BrivonControlAdapter::Init(Napi::Env env, Napi::Object exports) {
    const Napi::Function function =
        DefineClass(env, "BrivonControlAdapter",
                    {
                        InstanceMethod<&BrivonControlAdapter::getSpecifiers>("getSpecifiers"),
                        InstanceMethod<&BrivonControlAdapter::isAppInstalled>("isAppInstalled"),
                        InstanceMethod<&BrivonControlAdapter::isAppRunning>("isAppRunning"),
                        InstanceMethod<&BrivonControlAdapter::isAppRunningByName>("isAppRunningByName"),
                        InstanceMethod<&BrivonControlAdapter::getAppPath>("getAppPath"),
                        InstanceMethod<&BrivonControlAdapter::getAppVersion>("getAppVersion"),
                        InstanceMethod<&BrivonControlAdapter::getProcessId>("getProcessId"),
                        InstanceMethod<&BrivonControlAdapter::launchApp>("launchApp"),
                    });
    keepConstructor(constructor, function);
    exports.Set("BrivonControlAdapter", function);
    exports.Set(Napi::String::New(env, "_setLibraryPath"), Napi::Function::New(env, setLibraryPath));
    return exports;
}

BrivonControlAdapter::BrivonControlAdapter(const Napi::CallbackInfo& info)
    : Napi::ObjectWrap<BrivonControlAdapter>(info) {
    const std::string libraryPath = _libraryPath.get();
    const char* attributes[] = {IConfigAttribute::KESTA_ZORP_DIR, libraryPath.c_str(), nullptr};
    IBrivonController::SetConfigEx(attributes);
    if (IBrivonController::SetConfig("", "") == BrivonControlErrorCode_Success)
        IBrivonController::GetInstance(&_brivon);
    assert(_brivon);
}

BrivonControlAdapter::~BrivonControlAdapter() {
    if (_brivon != nullptr) {
        IBrivonController::ReleaseInstance();
        _brivon = nullptr;
    }
}

Napi::Value BrivonControlAdapter::setLibraryPath(const Napi::CallbackInfo& info) {
    if (info.Length() < 1)
        return refuse(info.Env(), kWrongNumberOfArguments);
    _libraryPath.exchange(toUtf8(info[0]));
    return info.Env().Null();
}

// ---- Queries

template <typename Query>
Napi::Value BrivonControlAdapter::withSpecifier(const Napi::CallbackInfo& info, Query query) {
    const Napi::Env env = info.Env();
    if (info.Length() != 1)
        return refuse(env, kWrongNumberOfArguments);
    if (!info[0].IsString())
        return refuse(env, kTargetSpecifierNotString);
    return query(env, toUtf8(info[0]));
}

Napi::Value BrivonControlAdapter::getSpecifiers(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    if (info.Length() != 0)
        return refuse(env, kWrongNumberOfArguments);
    char** list;
    std::size_t count;
    _brivon->GetSpecifiers(&list, &count);
    Napi::Array specifiers = Napi::Array::New(env, count);
    for (std::size_t i = 0; i < count; ++i)
        setElement(specifiers, static_cast<std::uint32_t>(i), Napi::String::New(env, list[i]));
    _brivon->ReleaseSpecifiers(list, count);
    return specifiers;
}

Napi::Value BrivonControlAdapter::ask(const Napi::CallbackInfo& info, BooleanQuery operation) const {
    return withSpecifier(info, [&](Napi::Env env, const std::string& specifier) {
        return Napi::Boolean::New(env, (_brivon->*operation)(specifier.c_str()));
    });
}

Napi::Value BrivonControlAdapter::isAppInstalled(const Napi::CallbackInfo& info) {
    return ask(info, &IBrivonController::IsAppInstalled);
}

Napi::Value BrivonControlAdapter::isAppRunning(const Napi::CallbackInfo& info) {
    return ask(info, &IBrivonController::IsAppRunning);
}

Napi::Value BrivonControlAdapter::isAppRunningByName(const Napi::CallbackInfo& info) {
    return ask(info, &IBrivonController::IsAppRunningByName);
}

// A missing path is "" here and null in getAppVersion, deliberately.
Napi::Value BrivonControlAdapter::getAppPath(const Napi::CallbackInfo& info) {
    return withSpecifier(info, [this](Napi::Env env, const std::string& specifier) {
        char* path = nullptr;
        _brivon->GetAppPath(specifier.c_str(), &path);
        if (path == nullptr)
            return Napi::String::New(env, "");
        const Napi::String text = Napi::String::New(env, path);
        _brivon->ReleaseAppPath(path);
        return text;
    });
}

Napi::Value BrivonControlAdapter::getProcessId(const Napi::CallbackInfo& info) {
    return withSpecifier(info, [this](Napi::Env env, const std::string& specifier) {
        return Napi::Number::New(env, _brivon->GetProcessId(specifier.c_str()));
    });
}

Napi::Value BrivonControlAdapter::getAppVersion(const Napi::CallbackInfo& info) {
    return withSpecifier(info, [this](Napi::Env env, const std::string& specifier) -> Napi::Value {
        char* path = nullptr;
        _brivon->GetAppPath(specifier.c_str(), &path);
        if (path == nullptr)
            return env.Null();
        std::unique_ptr<WCHAR[]> buffer = toWide(path);
        _brivon->ReleaseAppPath(path);
        if (buffer == nullptr)
            return env.Null();
        const platform::WideString widePath = buffer.get();
        buffer.reset();
        const std::optional<std::string> version = readProductVersion(widePath);
        return version ? Napi::String::New(env, version->c_str()) : env.Null();
    });
}

// ---- Launching

Napi::Value BrivonControlAdapter::launchApp(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    if (info.Length() != 4)
        return refuse(env, kWrongNumberOfArguments);
    if (!info[0].IsString())
        return refuse(env, kTargetSpecifierNotString);
    if (!info[1].IsBoolean())
        return refuse(env, kSetFocusNotBoolean);
    if (!info[2].IsString())
        return refuse(env, kCmdLineArgsNotString);
    if (!info[3].IsFunction())
        return refuse(env, kCallbackNotFunction);
    std::string targetSpecifier = toUtf8(info[0]);
    const bool setFocus = info[1].As<Napi::Boolean>().Value();
    std::string cmdLineArgs = toUtf8(info[2]);
    auto* worker = new LaunchAppWorker(info[3].As<Napi::Function>(), _brivon, std::move(targetSpecifier), setFocus,
                                       std::move(cmdLineArgs));
    worker->Queue();
    return env.Undefined();
}
