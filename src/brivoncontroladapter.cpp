#include "brivoncontroladapter.h"

#include "BrivonJS.h"

Napi::FunctionReference BrivonControlAdapter::constructor;

Napi::Object BrivonControlAdapter::Init(Napi::Env env, Napi::Object exports) {
    const Napi::Function function = DefineClass(env, "BrivonControlAdapter", {});
    keepConstructor(constructor, function);
    exports.Set("BrivonControlAdapter", function);
    return exports;
}

BrivonControlAdapter::BrivonControlAdapter(const Napi::CallbackInfo& info)
    : Napi::ObjectWrap<BrivonControlAdapter>(info) {}
