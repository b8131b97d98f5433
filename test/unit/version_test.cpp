// Over the executables that the build makes of test/resources/.
#include "brivoncontroladapter_version.h"
#include "pe_version.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;
using Content = std::vector<char>;

const fs::path kSamples = VERSION_SAMPLES;

Content contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr char kNone[] = "(none)";

std::string versionIn(const void* block) {
    return findProductVersion(block).value_or(kNone);
}

// Empty when the file has no block.
std::vector<std::uint8_t> blockOf(const fs::path& path) {
    const std::u16string name = path.u16string();
    DWORD handle = 1;
    std::vector<std::uint8_t> block(GetFileVersionInfoSizeW(name.c_str(), &handle));
    EXPECT_EQ(0u, handle);
    const BOOL isRead = GetFileVersionInfoW(name.c_str(), 0, static_cast<DWORD>(block.size()), block.data());
    EXPECT_EQ(block.empty() ? 0 : 1, isRead) << path;
    return block;
}

std::string versionOf(const fs::path& path) {
    const auto block = blockOf(path);
    return block.empty() ? "(no block)" : versionIn(block.data());
}

class Version : public testing::Test {
protected:
    Version() {
        std::string pattern = testing::TempDir() + "version-XXXXXX";
        folder_ = mkdtemp(pattern.data());
    }
    ~Version() override { fs::remove_all(folder_); }

    fs::path write(const std::string& name, const Content& content) const {
        std::ofstream(folder_ / name, std::ios::binary)
            .write(content.data(), static_cast<std::streamsize>(content.size()));
        return folder_ / name;
    }

    fs::path folder_;
};

// Changes of a good file that leave it readable or make it say nothing.
TEST_F(Version, OfPatchedFiles) {
    const std::string coff("PE\0\0", 4);
    const auto key = [](const char* text) {
        std::string units;
        for (; *text != 0; ++text)
            units.append({*text, '\0'});
        return units;
    };
    const std::string root = key("VS_VERSION_INFO");
    const std::string table = key("Translation");
    const std::string text = key("ProductVersion");
    const struct {
        const char* what;
        const char* sample;
        std::string anchor;
        std::ptrdiff_t at; // from the anchor
        std::uint16_t number;
        const char* version;
    } cases[] = {
        // No linker for ARM is needed: the machine is a number in the header.
        {"64-bit ARM", "plain.x64.exe", coff, 4, 0xAA64, "3.1.4-plain"},
        {"another language", "plain.x64.exe", table, 26, 0x0407, kNone},
        {"no entry in the table", "languages.x64.exe", table, -4, 0, kNone},
        {"almost three entries", "languages.x64.exe", table, -4, 11, "Версия 2 版本 🚀"},
        {"table longer than its node", "plain.x64.exe", table, -4, 0xFFFF, "3.1.4-plain"},
        {"text of no length", "plain.x64.exe", text, -4, 0, ""},
        {"text longer than its node", "plain.x64.exe", text, -4, 0xFFFF, "3.1.4-plain"},
        {"node of no length", "plain.x64.exe", key("VarFileInfo"), -6, 0, kNone},
        {"tree longer than its resource", "plain.x64.exe", root, -6, 0xFFFF, "3.1.4-plain"},
        {"resources outside the sections", "plain.x64.exe", coff, 24 + 112 + 2 * 8 + 2, 0x7000, "(no block)"},
    };
    for (const auto& patch : cases) {
        Content content = contentOf(kSamples / patch.sample);
        const auto anchor = std::search(content.begin(), content.end(), patch.anchor.begin(), patch.anchor.end());
        ASSERT_NE(content.end(), anchor) << patch.what;
        std::memcpy(&*anchor + patch.at, &patch.number, sizeof patch.number);
        EXPECT_EQ(patch.version, versionOf(write("patched.exe", content))) << patch.what;
    }
}

TEST_F(Version, IsReadFromRegularFilesOnlyAndLittleOfThose) {
    ASSERT_EQ(0, mkfifo((folder_ / "fifo").c_str(), 0600));
    for (const fs::path& path : {folder_, folder_ / "fifo", fs::path("/dev/zero"), fs::path(std::string(5000, 'x'))})
        EXPECT_EQ("(no block)", versionOf(path)) << path;
    // Nobody could keep all of it.
    const fs::path huge = write("huge.exe", contentOf(kSamples / "plain.x64.exe"));
    fs::resize_file(huge, std::uintmax_t{1} << 36);
    EXPECT_EQ("3.1.4-plain", versionOf(huge));
}

// Samples, and files that the fuzzer has crashed on, should there be any.
TEST_F(Version, SurvivesEveryTruncationOfFileAndBlock) {
    std::vector<fs::path> inputs{kSamples / "plain.ia32.exe", kSamples / "languages.x64.exe"};
    if (fs::exists(FUZZ_REGRESSIONS))
        inputs.insert(inputs.end(), fs::directory_iterator(FUZZ_REGRESSIONS), fs::directory_iterator());
    for (const fs::path& input : inputs) {
        const Content content = contentOf(input);
        for (std::size_t size = 0; size <= content.size(); ++size) {
            // A copy of exactly that size, so that the address sanitizer sees every step beyond it.
            const std::vector<std::uint8_t> cut(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size));
            LLVMFuzzerTestOneInput(cut.data(), size);
        }
    }
}

} // namespace
