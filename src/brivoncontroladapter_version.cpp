#include "brivoncontroladapter_version.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

// One entry of a version block's translation table.
struct Translation {
    std::uint16_t language;
    std::uint16_t codePage;
};

std::optional<std::string> toUtf8(const WCHAR* text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return std::nullopt;
    const auto bytes = static_cast<std::size_t>(size);
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[bytes]);
    if (buffer == nullptr || WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer.get(), size, nullptr, nullptr) == 0)
        return std::nullopt;
    return buffer.get();
}

} // namespace

std::unique_ptr<WCHAR[]> toWide(const char* utf8) {
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
    if (size <= 0)
        return nullptr;
    auto buffer = std::make_unique<WCHAR[]>(static_cast<std::size_t>(size));
    if (MultiByteToWideChar(CP_UTF8, 0, utf8, -1, buffer.get(), size) == 0)
        return nullptr;
    return buffer;
}

std::optional<std::string> readProductVersion(const platform::WideString& path) {
    DWORD unused = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &unused);
    if (size == 0)
        return std::nullopt;
    // Deliberately never released, on any path.
    char* block = new (std::nothrow) char[size];
    if (block == nullptr || GetFileVersionInfoW(path.c_str(), 0, size, block) == 0)
        return std::nullopt;
    return findProductVersion(block);
}

std::optional<std::string> findProductVersion(const void* block) {
    void* table = nullptr;
    UINT bytes = 0;
    if (VerQueryValueW(block, platform::widen("\\VarFileInfo\\Translation").c_str(), &table, &bytes) == 0)
        return std::nullopt;
    const std::size_t count = bytes / sizeof(Translation);
    for (std::size_t i = 0; i < count; ++i) {
        Translation translation{};
        std::memcpy(&translation, static_cast<const char*>(table) + i * sizeof translation, sizeof translation);
        char name[256];
        const int length = std::snprintf(name, sizeof name, "\\StringFileInfo\\%04x%04x\\ProductVersion",
                                         unsigned{translation.language}, unsigned{translation.codePage});
        if (length < 0)
            continue;
        void* value = nullptr;
        UINT unused = 0;
        if (VerQueryValueW(block, platform::widen(name).c_str(), &value, &unused) != 0)
            return toUtf8(static_cast<const WCHAR*>(value));
    }
    return std::nullopt;
}
