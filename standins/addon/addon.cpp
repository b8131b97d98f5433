// The addon through which JavaScript scripts the stand-ins. All of it runs on the JavaScript thread.
#include "control_script.h"
#include "message_script.h"

#include <napi.h>

#include <cmath>

namespace {

using standins::Call;
using standins::ControlScript;
using standins::List;
using standins::MessageScript;
using standins::Object;
using standins::ScriptFace;
using standins::Value;

Value toValue(const Napi::Value& value) {
    if (value.IsUndefined() || value.IsNull())
        return {};
    if (value.IsBoolean())
        return value.As<Napi::Boolean>().Value();
    if (value.IsNumber())
        return value.As<Napi::Number>().DoubleValue();
    if (value.IsString())
        return value.As<Napi::String>().Utf8Value();
    if (value.IsBuffer()) {
        const auto bytes = value.As<Napi::Buffer<char>>();
        return std::string(bytes.Data(), bytes.Length());
    }
    if (value.IsArray()) {
        const auto array = value.As<Napi::Array>();
        List list;
        for (std::uint32_t i = 0; i < array.Length(); ++i)
            list.push_back(toValue(array.Get(i)));
        return list;
    }
    if (value.IsObject() && !value.IsFunction()) {
        const auto source = value.As<Napi::Object>();
        const Napi::Array names = source.GetPropertyNames();
        Object object;
        for (std::uint32_t i = 0; i < names.Length(); ++i) {
            const Napi::Value name = names.Get(i);
            object[name.ToString().Utf8Value()] = toValue(source.Get(name));
        }
        return object;
    }
    throw Napi::TypeError::New(value.Env(), "A script takes plain values only");
}

Napi::Value toJavaScript(Napi::Env env, const Value& value);

struct ToJavaScript {
    Napi::Env env;

    Napi::Value operator()(std::monostate) const { return env.Null(); }
    Napi::Value operator()(bool value) const { return Napi::Boolean::New(env, value); }
    Napi::Value operator()(double value) const { return Napi::Number::New(env, value); }
    Napi::Value operator()(const std::string& value) const { return Napi::String::New(env, value); }
    Napi::Value operator()(const List& value) const {
        Napi::Array array = Napi::Array::New(env, value.size());
        std::uint32_t index = 0;
        for (const Value& element : value)
            array.Set(index++, toJavaScript(env, element));
        return array;
    }
    Napi::Value operator()(const Object& value) const {
        Napi::Object object = Napi::Object::New(env);
        for (const auto& [name, element] : value)
            object.Set(name, toJavaScript(env, element));
        return object;
    }
};

Napi::Value toJavaScript(Napi::Env env, const Value& value) {
    return std::visit(ToJavaScript{env}, static_cast<const Value::variant&>(value));
}

std::string textArgument(const Napi::CallbackInfo& info, std::size_t position, const char* name) {
    if (!info[position].IsString())
        throw Napi::TypeError::New(info.Env(), std::string(name) + " must be a string");
    return info[position].As<Napi::String>().Utf8Value();
}

// What a stand-in refuses reaches JavaScript as an Error.
template <typename Body>
Napi::Value guarded(const Napi::CallbackInfo& info, Body body) {
    try {
        return body();
    } catch (const std::invalid_argument& error) {
        throw Napi::TypeError::New(info.Env(), error.what());
    } catch (const std::runtime_error& error) {
        throw Napi::Error::New(info.Env(), error.what());
    }
}

// What both scripts can do. One function is added for each thing that only one of them can.
class Face {
public:
    explicit Face(Napi::Env env)
        : object_(Napi::Object::New(env)) {}

    template <typename Body>
    void add(const char* name, Body body) {
        const auto call = [body](const Napi::CallbackInfo& info) -> Napi::Value {
            return guarded(info, [&] { return body(info); });
        };
        object_.Set(name, Napi::Function::New(object_.Env(), call, name));
    }
    // A function of one value without an answer.
    template <typename Script>
    void add(const char* name, Script& script, void (Script::*set)(const Value&)) {
        add(name, [&script, set](const Napi::CallbackInfo& info) {
            (script.*set)(toValue(info[0]));
            return info.Env().Undefined();
        });
    }
    template <typename Script>
    void add(const char* name, Script& script, void (Script::*run)()) {
        add(name, [&script, run](const Napi::CallbackInfo& info) {
            (script.*run)();
            return info.Env().Undefined();
        });
    }
    void addCommon(ScriptFace& script) {
        add("takeCalls", [&script](const Napi::CallbackInfo& info) { return takeCalls(info, script); });
        add("answer", [&script](const Napi::CallbackInfo& info) { return answer(info, script); });
        add("reset", script, &ScriptFace::reset);
    }
    Napi::Object object() const { return object_; }

private:
    // takeCalls(): [{ operation, arguments, thread: 'caller' | 'library' }]
    static Napi::Value takeCalls(const Napi::CallbackInfo& info, ScriptFace& script) {
        List calls;
        for (Call& call : script.takeCalls())
            calls.push_back(Object{{"operation", call.operation},
                                   {"arguments", std::move(call.arguments)},
                                   {"thread", call.onLibraryThread ? "library" : "caller"}});
        return toJavaScript(info.Env(), calls);
    }
    // answer(operation, answer, times = 1), times up to Infinity
    static Napi::Value answer(const Napi::CallbackInfo& info, ScriptFace& script) {
        const double times = info[2].IsUndefined() ? 1 : info[2].ToNumber().DoubleValue();
        if (!(times >= 1) || (times != std::floor(times)))
            throw std::invalid_argument("times must be a positive whole number or Infinity");
        const bool isAlways = times >= standins::Script::always;
        script.answer(textArgument(info, 0, "operation"), toValue(info[1]),
                      isAlways ? standins::Script::always : static_cast<unsigned>(times));
        return info.Env().Undefined();
    }

    Napi::Object object_;
};

Napi::Object messagingFace(Napi::Env env, MessageScript& script) {
    Face face(env);
    face.addCommon(script);
    face.add("deliver", script, &MessageScript::deliver);
    face.add("setEndpoints", script, &MessageScript::setEndPoints);
    face.add("setSelf", script, &MessageScript::setSelf);
    return face.object();
}

Napi::Object controlFace(Napi::Env env, ControlScript& script) {
    Face face(env);
    face.addCommon(script);
    face.add("releaseLaunches", script, &ControlScript::releaseLaunches);
    return face.object();
}

// switchOn(): { messaging, control, SUITE_TYPE_PREFIX, ERROR_TYPE }. Throws an Error when an adapter is there already.
Napi::Value switchOn(const Napi::CallbackInfo& info) {
    return guarded(info, [&info]() -> Napi::Value {
        const Napi::Env env = info.Env();
        Napi::Object scripts = Napi::Object::New(env);
        scripts.Set("messaging", messagingFace(env, standins::switchOnMessageScript()));
        scripts.Set("control", controlFace(env, standins::switchOnControlScript()));
        scripts.Set("SUITE_TYPE_PREFIX", kesta::brivon::api5::SuiteMessage::TYPE_PREFIX);
        scripts.Set("ERROR_TYPE", kesta::brivon::api5::ErrorMessage::TYPE);
        return scripts;
    });
}

// checkBus(): throws an Error that says why a first adapter could not join.
Napi::Value checkBus(const Napi::CallbackInfo& info) {
    return guarded(info, [&info] {
        standins::checkBus();
        return info.Env().Undefined();
    });
}

// sendStatus(): with which status this thread's last Send has ended, which the module does not tell.
Napi::Value sendStatus(const Napi::CallbackInfo& info) {
    return Napi::Number::New(info.Env(), standins::lastSendStatus());
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
    exports.Set("switchOn", Napi::Function::New(env, switchOn, "switchOn"));
    exports.Set("checkBus", Napi::Function::New(env, checkBus, "checkBus"));
    exports.Set("sendStatus", Napi::Function::New(env, sendStatus, "sendStatus"));
    return exports;
}

} // namespace

NODE_API_MODULE(standins, initialise)
