// Loads the module's file with a stand-in for the one function through which it registers itself.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <node_api.h>

#include <algorithm>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

napi_module* registered = nullptr;
int registrations = 0;

} // namespace

EXPORTED void napi_module_register(napi_module* module) {
    registered = module;
    ++registrations;
}

// Never called: the module keeps these functions' addresses, which the loader wants to find.
EXPORTED napi_status napi_create_error(napi_env, napi_value, napi_value, napi_value*) {
    return napi_generic_failure;
}
EXPORTED napi_status napi_create_type_error(napi_env, napi_value, napi_value, napi_value*) {
    return napi_generic_failure;
}

TEST(Registration, HandsItsRecordOverWhileTheFileIsLoaded) {
    void* file = dlopen(MODULE_FILE, RTLD_LAZY);
    ASSERT_NE(file, nullptr) << dlerror();
    ASSERT_EQ(registrations, 1);
    EXPECT_EQ(registered->nm_version, 1);
    EXPECT_EQ(registered->nm_flags, 0U);
    EXPECT_STREQ(registered->nm_filename, "src/BrivonJS.cpp");
    EXPECT_NE(registered->nm_register_func, nullptr);
    EXPECT_STREQ(registered->nm_modname, "BrivonJS");
    EXPECT_EQ(registered->nm_priv, nullptr);
    EXPECT_EQ(std::count(std::begin(registered->reserved), std::end(registered->reserved), nullptr), 4);
}
