// The addon through which JavaScript scripts the stand-ins. All of it runs on the JavaScript thread.
#include "requests.h"

#include <napi.h>

#include <stdexcept>

namespace {

using standins::List;
using standins::Object;
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

struct ToJavaScript {
    Napi::Env env;

    Napi::Value operator()(const Value& value) const {
        return std::visit(*this, static_cast<const Value::variant&>(value));
    }
    Napi::Value operator()(std::monostate) const { return env.Null(); }
    Napi::Value operator()(bool value) const { return Napi::Boolean::New(env, value); }
    Napi::Value operator()(double value) const { return Napi::Number::New(env, value); }
    Napi::Value operator()(const std::string& value) const { return Napi::String::New(env, value); }
    Napi::Value operator()(const List& value) const {
        Napi::Array array = Napi::Array::New(env, value.size());
        std::uint32_t index = 0;
        for (const Value& element : value)
            array.Set(index++, (*this)(element));
        return array;
    }
    Napi::Value operator()(const Object& value) const {
        Napi::Object object = Napi::Object::New(env);
        for (const auto& [name, element] : value)
            object.Set(name, (*this)(element));
        return object;
    }
};

using Request = Value (*)(const std::string& verb, const List& arguments);

// NAME(verb, ...arguments). What a stand-in refuses reaches JavaScript as an Error.
void add(Napi::Object exports, const char* name, Request request) {
    const auto call = [request](const Napi::CallbackInfo& info) -> Napi::Value {
        List arguments;
        for (std::size_t i = 1; i < info.Length(); ++i)
            arguments.push_back(toValue(info[i]));
        try {
            return ToJavaScript{info.Env()}(request(info[0].ToString(), arguments));
        } catch (const std::runtime_error& error) {
            throw Napi::Error::New(info.Env(), error.what());
        }
    };
    exports.Set(name, Napi::Function::New(exports.Env(), call, name));
}

// sendStatus(): with which status this thread's last Send has ended, which the module does not tell.
Napi::Value sendStatus(const Napi::CallbackInfo& info) {
    return Napi::Number::New(info.Env(), standins::lastSendStatus());
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
    add(exports, "messaging", &standins::requestMessaging);
    add(exports, "control", &standins::requestControl);
    exports.Set("sendStatus", Napi::Function::New(env, sendStatus, "sendStatus"));
    return exports;
}

} // namespace

NODE_API_MODULE(standins, initialise)
