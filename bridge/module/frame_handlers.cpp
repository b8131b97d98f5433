// The handlers of exceptions for the guards of suite/. A function that catches exceptions of the Microsoft compiler
// names a handler of that compiler's run-time library, of which there may be several in a process. Exceptions that come
// from a library must be handled by the one that the library itself uses: run-time libraries keep account of what is
// thrown, and not all of them undo the frames of another's. So the guards of each library name a handler of ours, which
// goes on to that one.
#include "frame_handlers.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

constexpr char kHandler[] = "__CxxFrameHandler3";

// A library in memory, by the tables that its file begins with.
class Image {
public:
    explicit Image(HMODULE library)
        : base_(reinterpret_cast<const unsigned char*>(library))
        , header_(*at<IMAGE_NT_HEADERS>(static_cast<DWORD>(at<IMAGE_DOS_HEADER>(0)->e_lfanew))) {}

    FARPROC handler() const {
        FARPROC imported = handlerOfImportedRuntime();
        return imported != nullptr ? imported : handlerOfOwnFrames();
    }

private:
    template <typename T>
    const T* at(DWORD offset) const {
        return reinterpret_cast<const T*>(base_ + offset);
    }
    const IMAGE_DATA_DIRECTORY& directory(int index) const { return header_.OptionalHeader.DataDirectory[index]; }

    FARPROC handlerOfImportedRuntime() const {
        const DWORD table = directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
        if (table == 0)
            return nullptr;
        for (const auto* from = at<IMAGE_IMPORT_DESCRIPTOR>(table); from->Name != 0; ++from) {
            if (from->OriginalFirstThunk == 0 || !importsOfRuntime(from->OriginalFirstThunk))
                continue;
            FARPROC found = GetProcAddress(GetModuleHandleA(at<char>(from->Name)), kHandler);
            if (found != nullptr)
                return found;
        }
        return nullptr;
    }

    // Whether one of the names is of the function that throws or of a handler. Handlers of newer kinds may come from a
    // library of their own.
    bool importsOfRuntime(DWORD names) const {
        constexpr char anyHandler[] = "__CxxFrameHandler";
        for (const auto* entry = at<IMAGE_THUNK_DATA>(names); entry->u1.AddressOfData != 0; ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(entry->u1.Ordinal))
                continue;
            const char* name = at<IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(entry->u1.AddressOfData))->Name;
            if (std::strcmp(name, "_CxxThrowException") == 0 ||
                std::strncmp(name, anyHandler, sizeof anyHandler - 1) == 0)
                return true;
        }
        return false;
    }

    // For a library that its run-time library is a part of: the handler that most of its frames name. A few may name
    // one that also checks the frame's stack cookie, of which our frames have no description.
    FARPROC handlerOfOwnFrames() const {
        const IMAGE_DATA_DIRECTORY& table = directory(IMAGE_DIRECTORY_ENTRY_EXCEPTION);
        std::map<DWORD, std::size_t> frames;
        const auto* function = at<RUNTIME_FUNCTION>(table.VirtualAddress);
        for (DWORD left = table.Size / sizeof *function; left > 0; --left, ++function) {
            const DWORD named = handlerNamedIn(function->UnwindData);
            if (named != 0)
                ++frames[named];
        }
        const auto most = std::max_element(frames.begin(), frames.end(),
                                           [](const auto& a, const auto& b) { return a.second < b.second; });
        return most == frames.end()
                   ? nullptr
                   : reinterpret_cast<FARPROC>(reinterpret_cast<std::uintptr_t>(at<char>(most->first)));
    }

    // A description of how a frame is undone: version and flags, three more bytes, of which the second counts the steps
    // of two bytes that follow in pairs, and then a handler and what it needs. What ours needs begins with a number of
    // its own.
    DWORD handlerNamedIn(DWORD description) const {
        constexpr DWORD number = 0x19930520, lastNumber = 0x19930522;
        constexpr unsigned char hasHandler = 3 << 3, isChained = 4 << 3;
        if (!isWithin(description, 4) || description % 4 != 0)
            return 0;
        const auto* bytes = at<unsigned char>(description);
        if ((bytes[0] & hasHandler) == 0 || (bytes[0] & isChained) != 0)
            return 0;
        const DWORD handler = description + 4 + (bytes[2] + 1u) / 2 * 4;
        if (!isWithin(handler, 8))
            return 0;
        const DWORD needs = at<DWORD>(handler)[1];
        if (!isWithin(needs, 4) || *at<DWORD>(needs) < number || *at<DWORD>(needs) > lastNumber)
            return 0;
        return *at<DWORD>(handler);
    }

    bool isWithin(DWORD offset, DWORD size) const { return offset <= header_.OptionalHeader.SizeOfImage - size; }

    const unsigned char* base_;
    const IMAGE_NT_HEADERS& header_;
};

using Handler = EXCEPTION_DISPOSITION (*)(EXCEPTION_RECORD*, void*, CONTEXT*, void*);

Handler find(const char* library) {
    FARPROC handler = frameHandlerOf(GetModuleHandleA(library));
    // Where the library does not show any, as one whose functions all name a newer kind.
    for (const char* runtime : {"vcruntime140.dll", "msvcrt.dll"}) {
        if (handler == nullptr)
            handler = GetProcAddress(LoadLibraryExA(runtime, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), kHandler);
    }
    if (handler == nullptr)
        std::abort();
    return reinterpret_cast<Handler>(handler);
}

} // namespace

FARPROC frameHandlerOf(HMODULE library) {
    return Image(library).handler();
}

// The handlers that the guards name. Any thread. The first exception of a library looks for that library's handler:
// while the module is being loaded, the loader's lock is held.
extern "C" {
EXCEPTION_DISPOSITION frameHandlerOfBrivonMessage5(EXCEPTION_RECORD* exception, void* frame, CONTEXT* context,
                                                   void* dispatcher) {
    static const Handler handler = find("BrivonMessage5.dll");
    return handler(exception, frame, context, dispatcher);
}
EXCEPTION_DISPOSITION frameHandlerOfBrivonControl(EXCEPTION_RECORD* exception, void* frame, CONTEXT* context,
                                                  void* dispatcher) {
    static const Handler handler = find("BrivonControl.dll");
    return handler(exception, frame, context, dispatcher);
}
}
