// An addon that does nothing: what loading any addon costs.
#include <node_api.h>

NAPI_MODULE_INIT() {
    static_cast<void>(env);
    return exports;
}
