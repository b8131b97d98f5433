// Where Node.js enters the module: the registration record, the pointer through which the file registers itself while
// it is being loaded, and the exports object.
#include "brivonadapter.h"
#include "brivoncontroladapter.h"

namespace {

Napi::Object Init(Napi::Env env, Napi::Object exports) {
    BrivonAdapter::Init(env, exports);
    BrivonControlAdapter::Init(env, exports);
    return exports;
}

napi_value registerModule(napi_env env, napi_value exports) {
    return Napi::RegisterModule(env, exports, Init);
}

const napi_module moduleRecord = {
    1, // nm_version
    0, // nm_flags
    __FILE__, registerModule, "BrivonJS", nullptr, {nullptr, nullptr, nullptr, nullptr},
};

// Runs on the loading thread among the file's static initialisers. The runtime only reads the record, though its
// signature does not say so.
void _register_BrivonJS() {
    napi_module_register(const_cast<napi_module*>(&moduleRecord));
}

} // namespace

extern "C" {
#if defined(_WIN32)
__attribute__((dllexport, section(".CRT$XCU"), used)) void (*_register_BrivonJS_)() = _register_BrivonJS;
#else
__attribute__((visibility("default"), section(".init_array"), used)) void (*_register_BrivonJS_)() = _register_BrivonJS;
#endif
}
