// Windows' version functions over executables in the file system.
#include "pe_version.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A regular file; of anything else, and of what cannot be opened, every read fails.
class File : public ByteSource {
public:
    explicit File(const WCHAR* path) {
        char name[PATH_MAX];
        if (WideCharToMultiByte(CP_UTF8, 0, path, -1, name, sizeof name, nullptr, nullptr) == 0)
            return;
        // Does not wait for the other end of a FIFO.
        descriptor_ = open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        struct stat status {};
        regular_ = descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    }
    ~File() override {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool read(std::uint64_t offset, void* bytes, std::size_t size) const override {
        auto* to = static_cast<char*>(bytes);
        while (regular_ && size > 0) {
            const ssize_t count = pread(descriptor_, to, size, static_cast<off_t>(offset));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return false;
            to += count;
            offset += static_cast<std::uint64_t>(count);
            size -= static_cast<std::size_t>(count);
        }
        return regular_;
    }

private:
    int descriptor_ = -1;
    bool regular_ = false;
};

// One node of a version tree: its header (length, length of the value, whether that is text), its key, its value and
// its children, each on a multiple of 4. Offsets count from the block's beginning and lie within the tree.
struct Node {
    const std::uint8_t* key;
    std::size_t keyLength;
    const std::uint8_t* value;
    std::size_t valueLength;
    std::size_t children;
    std::size_t end;
};

constexpr std::size_t kNodeHeader = 6;

std::optional<Node> readNode(const std::uint8_t* block, std::size_t start, std::size_t limit) {
    if (start + kNodeHeader > limit)
        return std::nullopt;
    const std::size_t end = std::min<std::size_t>(limit, start + load<std::uint16_t>(block + start));
    std::size_t terminator = start + kNodeHeader;
    while (terminator + sizeof(WCHAR) <= end && load<WCHAR>(block + terminator) != 0)
        terminator += sizeof(WCHAR);
    if (terminator + sizeof(WCHAR) > end)
        return std::nullopt;

    const std::size_t value = std::min(align(terminator + sizeof(WCHAR)), end);
    const std::size_t unit = load<std::uint16_t>(block + start + 4) == 0 ? 1 : sizeof(WCHAR);
    const std::size_t length = std::min<std::size_t>(load<std::uint16_t>(block + start + 2), (end - value) / unit);
    Node node{};
    node.key = block + start + kNodeHeader;
    node.keyLength = (terminator - start - kNodeHeader) / sizeof(WCHAR);
    // An empty value is the key's terminator: what follows need not be text.
    node.value = block + (length == 0 ? terminator : value);
    node.valueLength = length;
    node.children = align(value + length * unit);
    node.end = end;
    return node;
}

// Of ASCII letters alone, which is all that names of blocks and values are made of.
WCHAR withoutCase(WCHAR unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<WCHAR>(unit + 0x20) : unit;
}

bool hasName(const Node& node, const WCHAR* name, std::size_t length) {
    if (node.keyLength != length)
        return false;
    for (std::size_t index = 0; index < length; ++index)
        if (withoutCase(load<WCHAR>(node.key + index * sizeof(WCHAR))) != withoutCase(name[index]))
            return false;
    return true;
}

std::optional<Node> findChild(const std::uint8_t* block, const Node& parent, const WCHAR* name, std::size_t length) {
    auto child = readNode(block, parent.children, parent.end);
    while (child && !hasName(*child, name, length))
        child = readNode(block, align(child->end), parent.end);
    return child;
}

} // namespace

DWORD GetFileVersionInfoSizeW(const WCHAR* path, DWORD* handle) {
    if (handle != nullptr)
        *handle = 0;
    return versionBlockSize(File(path));
}

BOOL GetFileVersionInfoW(const WCHAR* path, DWORD, DWORD size, void* block) {
    return readVersionBlock(File(path), size, block) ? 1 : 0;
}

BOOL VerQueryValueW(const void* block, const WCHAR* name, void** value, UINT* length) {
    const auto* bytes = static_cast<const std::uint8_t*>(block);
    auto node = readNode(bytes, 0, load<std::uint16_t>(bytes));
    while (node && *name != 0) {
        if (*name == u'\\') {
            ++name;
            continue;
        }
        std::size_t part = 0;
        while (name[part] != 0 && name[part] != u'\\')
            ++part;
        node = findChild(bytes, *node, name, part);
        name += part;
    }
    *length = node ? static_cast<UINT>(node->valueLength) : 0;
    if (!node)
        return 0;
    *value = const_cast<std::uint8_t*>(node->value);
    return 1;
}
