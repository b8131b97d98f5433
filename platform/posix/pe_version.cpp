#include "pe_version.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

constexpr std::uint16_t kDosMagic = 0x5A4D;       // "MZ"
constexpr std::uint32_t kPeSignature = 0x4550;    // "PE", NUL, NUL
constexpr std::uint16_t kPe32Magic = 0x10B;       // optional header with 32-bit addresses
constexpr std::uint16_t kPe32PlusMagic = 0x20B;   // the same with 64-bit addresses
constexpr std::uint32_t kSectionLimit = 96;       // Windows' own
constexpr std::uint32_t kSubdirectory = 1u << 31; // marks an offset that leads to a directory
constexpr std::uint32_t kVersionType = 16;        // RT_VERSION
constexpr std::uint32_t kVersionName = 1;         // VS_VERSION_INFO, the only name that Windows asks for

// A piece of the file with a known layout.
template <std::size_t Size>
class Record {
public:
    static std::optional<Record> read(const ByteSource& file, std::uint64_t offset) {
        Record record;
        if (!file.read(offset, record.bytes_.data(), Size))
            return std::nullopt;
        return record;
    }
    std::uint16_t u16(std::size_t at) const { return load<std::uint16_t>(&bytes_[at]); }
    std::uint32_t u32(std::size_t at) const { return load<std::uint32_t>(&bytes_[at]); }

private:
    std::array<std::uint8_t, Size> bytes_;
};

struct Headers {
    std::uint64_t sectionTable; // file offset
    std::uint32_t sectionCount;
    std::uint32_t resources; // address in memory
};

std::optional<Headers> readHeaders(const ByteSource& file) {
    const auto dos = Record<64>::read(file, 0);
    if (!dos || dos->u16(0) != kDosMagic)
        return std::nullopt;
    const std::uint64_t start = dos->u32(60);
    const auto coff = Record<26>::read(file, start); // with the first field of the optional header, its magic
    if (!coff || coff->u32(0) != kPeSignature)
        return std::nullopt;
    const std::uint16_t magic = coff->u16(24);
    if (magic != kPe32Magic && magic != kPe32PlusMagic)
        return std::nullopt;

    const std::uint64_t optionalHeader = start + 24;
    const std::uint32_t optionalSize = coff->u16(20);
    const std::uint32_t countAt = magic == kPe32PlusMagic ? 108 : 92;
    const auto directories = Record<28>::read(file, optionalHeader + countAt); // count, exports, imports, resources
    if (!directories || countAt + 28 > optionalSize || directories->u32(0) < 3 || directories->u32(20) == 0)
        return std::nullopt;
    return Headers{optionalHeader + optionalSize, std::min<std::uint32_t>(coff->u16(6), kSectionLimit),
                   directories->u32(20)};
}

struct Extent {
    std::uint64_t offset;
    std::uint32_t size;
};

// Where the file keeps what is loaded at the address, and how much of it up to the end of the section.
std::optional<Extent> locate(const ByteSource& file, const Headers& headers, std::uint32_t address) {
    for (std::uint32_t index = 0; index < headers.sectionCount; ++index) {
        const auto section = Record<40>::read(file, headers.sectionTable + std::uint64_t{index} * 40);
        if (!section)
            return std::nullopt;
        const std::uint32_t start = section->u32(12);
        const std::uint32_t size = section->u32(16);
        if (address >= start && address - start < size)
            return Extent{std::uint64_t{section->u32(20)} + (address - start), size - (address - start)};
    }
    return std::nullopt;
}

// Follows a directory's entry with the given number. Entries with numbers come after those with names, in order.
std::optional<std::uint64_t> enter(const ByteSource& file, std::uint64_t resources, std::uint64_t directory,
                                   std::uint32_t number) {
    const auto header = Record<16>::read(file, directory);
    if (!header)
        return std::nullopt;
    const std::uint64_t numbered = directory + 16 + std::uint64_t{header->u16(12)} * 8;
    std::uint32_t low = 0;
    std::uint32_t high = header->u16(14);
    while (low < high) {
        const std::uint32_t middle = (low + high) / 2;
        const auto entry = Record<8>::read(file, numbered + std::uint64_t{middle} * 8);
        if (!entry)
            return std::nullopt;
        if (entry->u32(0) == number) {
            if ((entry->u32(4) & kSubdirectory) == 0)
                return std::nullopt;
            return resources + (entry->u32(4) & ~kSubdirectory);
        }
        if (entry->u32(0) < number)
            low = middle + 1;
        else
            high = middle;
    }
    return std::nullopt;
}

// The tree of the version resource, in its first language.
std::optional<Extent> findVersionTree(const ByteSource& file) {
    const auto headers = readHeaders(file);
    if (!headers)
        return std::nullopt;
    const auto resources = locate(file, *headers, headers->resources);
    if (!resources)
        return std::nullopt;
    const auto names = enter(file, resources->offset, resources->offset, kVersionType);
    if (!names)
        return std::nullopt;
    const auto languages = enter(file, resources->offset, *names, kVersionName);
    if (!languages)
        return std::nullopt;
    const auto language = Record<24>::read(file, *languages); // the directory's header and its first entry
    if (!language || language->u16(12) + language->u16(14) == 0 || (language->u32(20) & kSubdirectory) != 0)
        return std::nullopt;
    const auto data = Record<8>::read(file, resources->offset + language->u32(20));
    if (!data)
        return std::nullopt;
    auto tree = locate(file, *headers, data->u32(0));
    if (!tree)
        return std::nullopt;
    const auto length = Record<2>::read(file, tree->offset);
    if (!length)
        return std::nullopt;
    tree->size = std::min({tree->size, data->u32(4), std::uint32_t{length->u16(0)}});
    return tree;
}

} // namespace

DWORD versionBlockSize(const ByteSource& file) {
    const auto tree = findVersionTree(file);
    return tree && tree->size != 0 ? static_cast<DWORD>(align(tree->size) + 4) : 0;
}

bool readVersionBlock(const ByteSource& file, DWORD size, void* block) {
    const auto tree = findVersionTree(file);
    if (!tree || tree->size == 0 || size < 8)
        return false;
    std::memset(block, 0, size);
    const std::uint32_t kept = std::min(tree->size, (size & ~DWORD{3}) - 4);
    const bool complete = file.read(tree->offset, block, kept);
    const auto length = static_cast<std::uint16_t>(complete ? kept : 0);
    std::memcpy(block, &length, sizeof length);
    return complete;
}
