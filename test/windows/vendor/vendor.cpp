#include "vendor.h"

namespace {

long locals, exceptions;
char notes[1 << 16];
size_t noted = 0;
bool isNoting = false;
char throwing[64] = "-", kind[64] = "-";

class NotesLock {
public:
    NotesLock() {
        while (__atomic_test_and_set(&isNoting, __ATOMIC_ACQUIRE)) {
        }
    }
    ~NotesLock() { __atomic_clear(&isNoting, __ATOMIC_RELEASE); }
};

struct Failure : StandardException {
    using StandardException::StandardException;
};
struct Object {
    Counted counted{exceptions};
};

void throwStandard(const char* text) {
    const Local local;
    throw Failure(text);
}

void rethrow() {
    try {
        const Local local;
        throwStandard("rethrown by the vendor");
    } catch (...) {
        const Local local;
        throw;
    }
}

void fail() {
    const Local local;
    if (strcmp(kind, "standard") == 0)
        throwStandard("thrown by the vendor");
    if (strcmp(kind, "other") == 0)
        throw 42;
    if (strcmp(kind, "object") == 0)
        throw Object();
    if (strcmp(kind, "rethrown") == 0)
        rethrow();
    try {
        rethrow();
    } catch (const std::exception&) {
        const Local inner;
        throwStandard("nested by the vendor");
    }
}

} // namespace

long texts, lists;

Counted::Counted(long& count)
    : count_(count) {
    __atomic_fetch_add(&count_, 1, __ATOMIC_RELAXED);
}
Counted::~Counted() {
    __atomic_fetch_sub(&count_, 1, __ATOMIC_RELAXED);
}
Local::Local()
    : Counted(locals) {}

char* copyText(const char* text) {
    __atomic_fetch_add(&texts, 1, __ATOMIC_RELAXED);
    return static_cast<char*>(memcpy(malloc(strlen(text) + 1), text, strlen(text) + 1));
}
void freeText(char* text) {
    if (text != nullptr)
        __atomic_fetch_sub(&texts, 1, __ATOMIC_RELAXED);
    free(text);
}

Call::Call(const char* operation, const char* detail) {
    while (const char* colon = strchr(operation, ':'))
        operation = colon + 1;
    {
        const NotesLock lock;
        if (noted + strlen(operation) + strlen(detail) + 3 < sizeof notes)
            noted +=
                static_cast<size_t>(sprintf(notes + noted, " %s%s%s", operation, *detail == '\0' ? "" : ":", detail));
    }
    if (strcmp(throwing, operation) == 0)
        fail();
}

void vendor_order(const char* order) {
    if (sscanf(order, "throw %63s %63s", throwing, kind) != 2)
        ownOrder(order);
}

const char* vendor_report() {
    static char report[sizeof notes + 256];
    const NotesLock lock;
    notes[noted] = '\0';
    sprintf(report, "{\"calls\":\"%s\",\"exceptions\":%ld,\"locals\":%ld,\"texts\":%ld,\"lists\":%ld}",
            noted == 0 ? "" : notes + 1, exceptions, locals, texts, lists);
    noted = 0;
    return report;
}

#if defined(_MSC_VER)

namespace std {
exception::exception(const char* text)
    : text_(copyText(text))
    , isOwner_(true) {
    __atomic_fetch_add(&exceptions, 1, __ATOMIC_RELAXED);
}
exception::exception(const exception& other)
    : exception(other.text_) {}
exception::~exception() {
    freeText(text_);
    __atomic_fetch_sub(&exceptions, 1, __ATOMIC_RELAXED);
}
} // namespace std

// ---- Of the run-time library, what is part of every program

extern "C" {
extern void* const typeInfoTable[2] __asm__("??_7type_info@@6B@");
void* const typeInfoTable[2] = {};
[[noreturn]] void __std_terminate() {
    __builtin_trap();
}

#if defined(VENDOR_RUNTIME_WITHIN)
// The rest as if it were linked into this library: nothing tells from outside where it is. It is a copy of a run-time
// library, which lies beside this one and nobody else uses.
__declspec(dllimport) unsigned long GetModuleFileNameA(const void* library, char* file, unsigned long size);
__declspec(dllimport) void* LoadLibraryA(const char* name);
extern const char __ImageBase;
__declspec(dllimport) void* GetProcAddress(void* library, const char* name);
void *vendorHandler, *vendorThrow;
__asm__(".globl __CxxFrameHandler3, _CxxThrowException\n"
        "__CxxFrameHandler3: jmpq *vendorHandler(%rip)\n"
        "_CxxThrowException: jmpq *vendorThrow(%rip)\n");
static const struct Runtime {
    Runtime() {
        char file[512];
        unsigned long end = GetModuleFileNameA(&__ImageBase, file, sizeof file);
        while (file[end - 1] != '\\')
            --end;
        memcpy(file + end, "vendor_runtime.dll", sizeof "vendor_runtime.dll");
        void* library = LoadLibraryA(file);
        vendorHandler = GetProcAddress(library, "__CxxFrameHandler3");
        vendorThrow = GetProcAddress(library, "_CxxThrowException");
    }
} runtime;
#endif
}

#endif
