// The JavaScript class BrivonControlAdapter: what is known of suite applications, and launching them. Keeps no cache
// and writes no diagnostic lines; every method goes straight to the control library.
#ifndef BRIVONCONTROLADAPTER_H
#define BRIVONCONTROLADAPTER_H

#include "BrivonControl.h"
#include "binding.h"

#include <napi.h>

#include <string>

// Owned by its JavaScript object, which gives the controller back when it is collected; there is no close.
class BrivonControlAdapter : public Napi::ObjectWrap<BrivonControlAdapter> {
public:
    // JavaScript thread. Defines the class and puts it, and _setLibraryPath, on the exports object; once per
    // environment.
    static Napi::Object Init(Napi::Env env, Napi::Object exports);

    // JavaScript thread. Arguments are ignored. Without a controller the process ends.
    explicit BrivonControlAdapter(const Napi::CallbackInfo& info);
    // JavaScript thread.
    ~BrivonControlAdapter() override;

private:
    // The methods of the class, all on the JavaScript thread, which they block while the library answers; all but
    // launchApp, whose library call runs on a thread of the runtime's pool.
    Napi::Value getSpecifiers(const Napi::CallbackInfo& info);
    Napi::Value isAppInstalled(const Napi::CallbackInfo& info);
    Napi::Value isAppRunning(const Napi::CallbackInfo& info);
    Napi::Value isAppRunningByName(const Napi::CallbackInfo& info);
    Napi::Value getAppPath(const Napi::CallbackInfo& info);
    Napi::Value getAppVersion(const Napi::CallbackInfo& info);
    Napi::Value getProcessId(const Napi::CallbackInfo& info);
    Napi::Value launchApp(const Napi::CallbackInfo& info);

    // JavaScript thread. Checks and converts the one argument of a query and hands it over; a refused call answers
    // null.
    template <typename Query>
    static Napi::Value withSpecifier(const Napi::CallbackInfo& info, Query query);

    using BooleanQuery = bool (kesta::brivon::api5::IBrivonController::*)(const char*);
    Napi::Value ask(const Napi::CallbackInfo& info, BooleanQuery operation) const;

    // JavaScript thread. Belongs to no adapter.
    static Napi::Value setLibraryPath(const Napi::CallbackInfo& info);

    static ClassWide<Napi::FunctionReference> constructor;
    // Handed to the library by every construction from now on.
    static ClassWide<std::string> _libraryPath;

    kesta::brivon::api5::IBrivonController* _brivon = nullptr; // the library's, counted by its instances
};

#endif
