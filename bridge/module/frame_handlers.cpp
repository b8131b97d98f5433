// The handlers of exceptions for the guards of suite/. A function that catches exceptions of the Microsoft compiler
// names a handler of that compiler's run-time library, of which there may be several in a process. Exceptions that come
// from a library must be handled by the one that the library itself uses: run-time libraries keep account of what is
// thrown, and not all of them undo the frames of another's. So the guards of each library name a handler of ours, which
// goes on to that one.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

extern "C" {
extern FARPROC brivon_frameHandlers[2];
FARPROC brivon_frameHandlers[2] = {};
}
asm(".globl frameHandlerOfBrivonMessage5, frameHandlerOfBrivonControl\n"
    "frameHandlerOfBrivonMessage5: jmpq *brivon_frameHandlers(%rip)\n"
    "frameHandlerOfBrivonControl: jmpq *brivon_frameHandlers+8(%rip)\n");

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

    // Of the run-time library from which the library imports the function that throws.
    FARPROC handlerOfImportedRuntime() const {
        const DWORD table = directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
        if (table == 0)
            return nullptr;
        for (const auto* from = at<IMAGE_IMPORT_DESCRIPTOR>(table); from->Name != 0; ++from) {
            if (from->OriginalFirstThunk != 0 && imports(from->OriginalFirstThunk, "_CxxThrowException"))
                return GetProcAddress(GetModuleHandleA(at<char>(from->Name)), kHandler);
        }
        return nullptr;
    }

    bool imports(DWORD names, const char* wanted) const {
        for (const auto* name = at<IMAGE_THUNK_DATA>(names); name->u1.AddressOfData != 0; ++name) {
            if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) &&
                std::strcmp(at<IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(name->u1.AddressOfData))->Name, wanted) == 0)
                return true;
        }
        return false;
    }

    // That which the library's own functions name: its run-time library is a part of it, or is bound in another way.
    FARPROC handlerOfOwnFrames() const {
        const IMAGE_DATA_DIRECTORY& table = directory(IMAGE_DIRECTORY_ENTRY_EXCEPTION);
        const auto* function = at<RUNTIME_FUNCTION>(table.VirtualAddress);
        for (DWORD left = table.Size / sizeof *function; left > 0; --left, ++function) {
            FARPROC found = handlerNamedIn(function->UnwindData);
            if (found != nullptr)
                return found;
        }
        return nullptr;
    }

    // A description of how a frame is undone: version and flags, three more bytes, of which the second counts the steps
    // of two bytes that follow in pairs, and then a handler and what it needs. What ours needs begins with a number of
    // its own.
    FARPROC handlerNamedIn(DWORD description) const {
        constexpr DWORD number = 0x19930520, lastNumber = 0x19930522;
        constexpr unsigned char hasHandler = 3 << 3, isChained = 4 << 3;
        if (!isWithin(description, 4) || description % 4 != 0)
            return nullptr;
        const auto* bytes = at<unsigned char>(description);
        if ((bytes[0] & hasHandler) == 0 || (bytes[0] & isChained) != 0)
            return nullptr;
        const DWORD handler = description + 4 + (bytes[2] + 1u) / 2 * 4;
        if (!isWithin(handler, 8))
            return nullptr;
        const DWORD needs = at<DWORD>(handler)[1];
        if (!isWithin(needs, 4) || *at<DWORD>(needs) < number || *at<DWORD>(needs) > lastNumber)
            return nullptr;
        return reinterpret_cast<FARPROC>(reinterpret_cast<std::uintptr_t>(base_ + *at<DWORD>(handler)));
    }

    bool isWithin(DWORD offset, DWORD size) const { return offset <= header_.OptionalHeader.SizeOfImage - size; }

    const unsigned char* base_;
    const IMAGE_NT_HEADERS& header_;
};

FARPROC handlerFor(const char* library) {
    FARPROC handler = Image(GetModuleHandleA(library)).handler();
    // Where the library does not show any, as one whose functions all name a newer kind.
    for (const char* runtime : {"vcruntime140.dll", "msvcrt.dll"}) {
        if (handler != nullptr)
            break;
        HMODULE loaded = LoadLibraryA(runtime);
        if (loaded != nullptr)
            handler = GetProcAddress(loaded, kHandler);
    }
    return handler;
}

// While the module is loaded, after the libraries have been.
const struct Choice {
    Choice() {
        brivon_frameHandlers[0] = handlerFor("BrivonMessage5.dll");
        brivon_frameHandlers[1] = handlerFor("BrivonControl.dll");
    }
} choice;

} // namespace
