// Version blocks out of Windows executables (PE files): 32 and 64 bits, any machine, .exe and .dll alike.
//
// The files come from strangers: every read is bounded, there are some two hundred at the most, nothing is allocated,
// and no block is larger than the 64 KiB that a version tree can say it has.
#ifndef PE_VERSION_H
#define PE_VERSION_H

#include "platform.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Fills all the bytes, or answers false.
    virtual bool read(std::uint64_t offset, void* bytes, std::size_t size) const = 0;
};

// Bytes that readVersionBlock needs for the whole block; 0 when the file has no version resource.
DWORD versionBlockSize(const ByteSource& file);

// Lays out the version resource's tree and at least four zero bytes after it. The tree's own length, the block's first
// 16 bits, is set to what the block really holds, so that VerQueryValueW needs no other.
bool readVersionBlock(const ByteSource& file, DWORD size, void* block);

// PE files are little-endian, and so is every machine that this is built for.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
template <typename Number>
Number load(const std::uint8_t* bytes) {
    Number number{};
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// Rounds up to the next multiple of 4, on which everything in a version tree starts.
constexpr std::size_t align(std::size_t offset) {
    return (offset + 3) & ~std::size_t{3};
}

#endif
