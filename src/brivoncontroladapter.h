// The JavaScript class BrivonControlAdapter.
#ifndef BRIVONCONTROLADAPTER_H
#define BRIVONCONTROLADAPTER_H

#include <napi.h>

class BrivonControlAdapter : public Napi::ObjectWrap<BrivonControlAdapter> {
public:
    // JavaScript thread. Defines the class and puts it on the exports object; once per environment.
    static Napi::Object Init(Napi::Env env, Napi::Object exports);

    // JavaScript thread. Arguments are ignored.
    explicit BrivonControlAdapter(const Napi::CallbackInfo& info);

private:
    static Napi::FunctionReference constructor;
};

#endif
