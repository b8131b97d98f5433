// The addon through which JavaScript scripts the stand-ins. All of it runs on the JavaScript thread.
#include "control_script.h"
#include "message_script.h"

#include <napi.h>

#include <cmath>

namespace {

using standins::Call;
using standins::List;
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

Napi::Object makeFace(Napi::Env env, ScriptFace& face) {
    Napi::Object object = Napi::Object::New(env);
    const auto define = [&](const char* name, auto body) {
        object.Set(name, Napi::Function::New(
                             env,
                             [body](const Napi::CallbackInfo& info) {
                                 return guarded(info, [&]() -> Napi::Value { return body(info); });
                             },
                             name));
    };

    // switchOn()
    define("switchOn", [&face](const Napi::CallbackInfo& info) {
        face.switchOn();
        return info.Env().Undefined();
    });
    // takeCalls(): [{ operation, arguments, thread: 'caller' | 'library' }]
    define("takeCalls", [&face](const Napi::CallbackInfo& info) {
        List calls;
        for (Call& call : face.takeCalls())
            calls.push_back(Object{{"operation", call.operation},
                                   {"arguments", std::move(call.arguments)},
                                   {"thread", call.onLibraryThread ? "library" : "caller"}});
        return toJavaScript(info.Env(), calls);
    });
    // answer(operation, answer, times = 1), times up to Infinity
    define("answer", [&face](const Napi::CallbackInfo& info) {
        const double times = info[2].IsUndefined() ? 1 : info[2].ToNumber().DoubleValue();
        if (!(times >= 1) || (times != std::floor(times)))
            throw std::invalid_argument("times must be a positive whole number or Infinity");
        const bool isAlways = times >= standins::Script::always;
        face.answer(textArgument(info, 0, "operation"), toValue(info[1]),
                    isAlways ? standins::Script::always : static_cast<unsigned>(times));
        return info.Env().Undefined();
    });
    // perform(command, argument)
    define("perform", [&face](const Napi::CallbackInfo& info) {
        face.perform(textArgument(info, 0, "command"), toValue(info[1]));
        return info.Env().Undefined();
    });
    return object;
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
    exports.Set("message", makeFace(env, standins::messageScript()));
    exports.Set("control", makeFace(env, standins::controlScript()));
    return exports;
}

} // namespace

NODE_API_MODULE(standins, initialise)
