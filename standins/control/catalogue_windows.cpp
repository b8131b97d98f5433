#include "catalogue.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace standins {

namespace {

namespace fs = std::filesystem;

struct CloseHandleOf {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<HANDLE, CloseHandleOf>;

bool isSameName(const std::wstring& one, const std::wstring& other) {
    return _wcsicmp(one.c_str(), other.c_str()) == 0;
}

// Nothing for a name that is no Unicode text, which the system allows.
std::optional<std::string> toUtf8(const std::wstring& name) {
    const int size = static_cast<int>(name.size());
    const auto convert = [&](char* to, int capacity) {
        return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, name.data(), size, to, capacity, nullptr, nullptr);
    };
    std::string text(static_cast<std::size_t>(convert(nullptr, 0)), '\0');
    if (text.empty())
        return std::nullopt;
    convert(text.data(), static_cast<int>(text.size()));
    return text;
}

bool isProgram(const fs::path& path) {
    std::error_code failure;
    return isSameName(path.extension().wstring(), L".exe") && fs::is_regular_file(path, failure);
}

std::wstring imageOf(DWORD process) {
    const Handle handle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    wchar_t image[32768];
    DWORD length = static_cast<DWORD>(std::size(image));
    if (handle == nullptr || QueryFullProcessImageNameW(handle.get(), 0, image, &length) == 0)
        return {};
    return {image, length};
}

// The id of the first process, in ascending order, of which the condition holds; 0 for none.
template <typename Condition>
DWORD findProcess(Condition condition) {
    const HANDLE taken = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (taken == INVALID_HANDLE_VALUE)
        return 0;
    const Handle snapshot(taken);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    DWORD found = 0;
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        if ((found == 0 || entry.th32ProcessID < found) && condition(entry))
            found = entry.th32ProcessID;
    }
    return found;
}

} // namespace

std::vector<std::string> programsIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator entry(fs::u8path(folder), failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::optional<std::string> name = toUtf8(entry->path().filename().wstring());
        if (name && isProgram(entry->path()))
            names.push_back(std::move(*name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> pathOfProgram(const std::string& folder, const std::string& name) {
    if (name.empty() || name.find_first_of("/\\:") != std::string::npos || folder.empty())
        return std::nullopt;
    std::error_code failure;
    const fs::path path = fs::absolute(fs::u8path(folder), failure) / fs::u8path(name);
    return failure || !isProgram(path) ? std::nullopt : std::optional<std::string>(path.u8string());
}

std::int32_t processRunning(const std::string& path) {
    const fs::path wanted = fs::u8path(path);
    const std::wstring name = wanted.filename().wstring();
    return static_cast<std::int32_t>(findProcess([&](const PROCESSENTRY32W& entry) {
        return isSameName(entry.szExeFile, name) && isSameName(imageOf(entry.th32ProcessID), wanted.wstring());
    }));
}

bool isNameRunning(const std::string& name) {
    const std::wstring wanted = fs::u8path(name).wstring();
    return findProcess([&](const PROCESSENTRY32W& entry) { return isSameName(entry.szExeFile, wanted); }) != 0;
}

// Programs split their command line themselves here.
bool launch(const std::string& path, const std::string& commandLine) {
    const std::wstring program = fs::u8path(path).wstring();
    std::wstring line = L"\"" + program + L"\" " + fs::u8path(commandLine).wstring();
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr, nullptr,
                       &startup, &process) == 0)
        return false;
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
}

} // namespace standins
