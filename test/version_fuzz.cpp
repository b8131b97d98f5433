// Feeds any bytes to the version reader as an executable, then asks the block for what a caller would, and more. The
// input's last bytes double as a name to ask for.
#include "brivoncontroladapter_version.h"
#include "pe_version.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {

class Bytes : public ByteSource {
public:
    Bytes(const std::uint8_t* data, std::size_t size)
        : data_(data)
        , size_(size) {}

    bool read(std::uint64_t offset, void* bytes, std::size_t size) const override {
        if (offset > size_ || size > size_ - offset)
            return false;
        std::memcpy(bytes, data_ + offset, size);
        return true;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

void require(bool holds) {
    if (!holds)
        std::abort();
}

// A block on the heap, of exactly the given size, so that the address sanitizer sees every step beyond it.
void ask(const Bytes& file, DWORD size, const platform::WideString& chosen) {
    const auto block = std::make_unique<std::uint8_t[]>(size);
    if (!readVersionBlock(file, size, block.get()))
        return;
    findProductVersion(block.get());

    const platform::WideString backslash = platform::widen("\\");
    for (const auto& name :
         {backslash, backslash + chosen, platform::widen("\\StringFileInfo\\") + chosen,
          platform::widen("\\StringFileInfo\\040904b0\\") + chosen, platform::widen("\\VarFileInfo\\") + chosen}) {
        void* value = nullptr;
        UINT length = 0;
        if (VerQueryValueW(block.get(), name.c_str(), &value, &length) == 0)
            continue;
        const auto* bytes = static_cast<const std::uint8_t*>(value);
        require(bytes >= block.get() && bytes + length <= block.get() + size);
        const platform::WideString text(static_cast<const WCHAR*>(value));
        require(bytes + (text.size() + 1) * sizeof(WCHAR) <= block.get() + size);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes file(data, size);
    const DWORD whole = versionBlockSize(file);
    require(whole <= 0x10000 + 4);
    if (whole == 0)
        return 0;

    platform::WideString chosen(std::min<std::size_t>(size / sizeof(WCHAR), 16), 0);
    std::memcpy(chosen.data(), data + size - chosen.size() * sizeof(WCHAR), chosen.size() * sizeof(WCHAR));
    ask(file, whole, chosen);
    ask(file, whole / 2, chosen);                     // the file has grown since its block was measured
    ask(file, whole + static_cast<DWORD>(8), chosen); // or has shrunk
    return 0;
}
