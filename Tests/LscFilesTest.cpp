#include "LscFiles.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// A file name in the test temp directory, unique per process, removed afterwards.
struct TempFile {
    std::string path;
    explicit TempFile(const char* name)
        : path(::testing::TempDir() + "lsc_" + std::to_string(::getpid()) + "_" + name)
    {
    }
    ~TempFile() { std::remove(path.c_str()); }
    std::wstring Wide() const { return std::wstring(path.begin(), path.end()); }
};

std::vector<unsigned char> ReadBytes(const std::string& path)
{
    std::vector<unsigned char> bytes;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        int c;
        while ((c = std::fgetc(f)) != EOF) bytes.push_back(static_cast<unsigned char>(c));
        std::fclose(f);
    }
    return bytes;
}

void WriteBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    if (!bytes.empty()) {
        ASSERT_EQ(std::fwrite(bytes.data(), bytes.size(), 1, f), 1u);
    }
    std::fclose(f);
}

}  // namespace

TEST(LscFilesBinary, WritesLittleEndianAndReadsBack)
{
    TempFile file("binary");
    FILE* out = std::fopen(file.path.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    EXPECT_NE(LL_fwrite_bin(out, "l f\tl", 0x01020304u, 1.5, int32_t(-2)), 0);
    std::fclose(out);
    EXPECT_EQ(ReadBytes(file.path), (std::vector<unsigned char>{0x04, 0x03, 0x02, 0x01, 0x00, 0x00, 0xC0, 0x3F,
                                                                 0xFE, 0xFF, 0xFF, 0xFF}));

    FILE* in = std::fopen(file.path.c_str(), "rb");
    uint32_t a = 0;
    float b = 0;
    int32_t c = 0;
    EXPECT_NE(LL_fread_bin(in, "lfl", &a, &b, &c), 0);
    std::fclose(in);
    EXPECT_EQ(a, 0x01020304u);
    EXPECT_EQ(b, 1.5f);
    EXPECT_EQ(c, -2);
}

TEST(LscFilesBinary, ShortReadFailsAfterStoringWholeItems)
{
    TempFile file("short");
    WriteBytes(file.path, {1, 0, 0, 0, 2, 0});
    FILE* in = std::fopen(file.path.c_str(), "rb");
    uint32_t a = 0, b = 7;
    EXPECT_EQ(LL_fread_bin(in, "ll", &a, &b), 0);
    std::fclose(in);
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 7u);
}

TEST(LscFilesBinary, BadArgumentsTransferNothing)
{
    TempFile file("badformat");
    FILE* out = std::fopen(file.path.c_str(), "wb+");
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(LL_fwrite_bin(out, "lx", 1u, 2u), 0);
    EXPECT_EQ(std::ftell(out), 0L);
    EXPECT_NE(LL_fwrite_bin(out, "l", 5u), 0);
    std::rewind(out);
    uint32_t a = 0;
    EXPECT_EQ(LL_fread_bin(out, "d", &a), 0);
    EXPECT_EQ(std::ftell(out), 0L);
    EXPECT_EQ(LL_fread_bin(out, nullptr), 0);
    EXPECT_EQ(LL_fread_bin(nullptr, "l", &a), 0);
    EXPECT_EQ(LL_fwrite_bin(nullptr, "l", 1u), 0);
    std::fclose(out);
}

TEST(LscFilesPaths, ConvertsToUtf8AndRejectsWhatHasNoForm)
{
    std::string utf8;
    EXPECT_TRUE(LscWideToUtf8(L"a\u00e9\u20ac\U0001F600", utf8));
    EXPECT_EQ(utf8, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    const wchar_t surrogate[] = {L'a', wchar_t(0xD800), 0};
    EXPECT_FALSE(LscWideToUtf8(surrogate, utf8));
    const wchar_t tooLarge[] = {wchar_t(0x110000), 0};
    EXPECT_FALSE(LscWideToUtf8(tooLarge, utf8));
    EXPECT_FALSE(LscWideToUtf8(nullptr, utf8));
}

TEST(LscFilesPaths, FwopenReachesTheUtf8Name)
{
    const std::string utf8Name = "\xC3\xA9t\xC3\xA9";
    TempFile file(utf8Name.c_str());
    const std::string prefix = file.path.substr(0, file.path.size() - utf8Name.size());
    const std::wstring wide = std::wstring(prefix.begin(), prefix.end()) + L"\u00e9t\u00e9";
    FILE* out = fwopen(wide.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    std::fputc('x', out);
    std::fclose(out);
    EXPECT_EQ(ReadBytes(file.path), (std::vector<unsigned char>{'x'}));
    EXPECT_EQ(fwopen(nullptr, "rb"), nullptr);
    EXPECT_EQ(fwopen(wide.c_str(), nullptr), nullptr);
}

TEST(LscFilesPaths, UnicodeToAsciiNarrowsAndTruncates)
{
    char out[5];
    EXPECT_EQ(unicode_to_ascii(out, L"ab\u00e9", sizeof out), 3);
    EXPECT_STREQ(out, "ab?");
    EXPECT_EQ(unicode_to_ascii(out, L"abcdefg", sizeof out), 4);
    EXPECT_STREQ(out, "abcd");
    EXPECT_EQ(unicode_to_ascii(out, L"x", 0), -1);
}

TEST(LscFilesMapped, ReadOnlyMapsTheWholeFile)
{
    TempFile file("map_ro");
    WriteBytes(file.path, {9, 8, 7});
    LscMemoryMappedFile map;
    const unsigned char* base = static_cast<const unsigned char*>(map.Open(file.Wide().c_str(), LMMF_READ_ONLY, 0, 0, 0));
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(map.Size(), 3u);
    EXPECT_EQ(base[2], 7);
    EXPECT_EQ(map.Resize(10, false), nullptr);  // read-only cannot grow
    EXPECT_EQ(map.Size(), 3u);
    map.Close();
    map.Close();
    EXPECT_EQ(map.Base(), nullptr);
}

TEST(LscFilesMapped, ReadWriteResizesAndWritesThrough)
{
    TempFile file("map_rw");
    WriteBytes(file.path, {1, 2});
    LscMemoryMappedFile map;
    ASSERT_NE(map.Open(file.Wide().c_str(), LMMF_READ_WRITE_EXISTING, 0, 0, 0), nullptr);
    unsigned char* base = static_cast<unsigned char*>(map.Resize(100000, false));
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(base[1], 2);        // kept
    EXPECT_EQ(base[99999], 0);    // grown bytes read as zero
    base[99999] = 0xAB;
    base = static_cast<unsigned char*>(map.Resize(3, false));
    ASSERT_NE(base, nullptr);
    base[2] = 0xCD;
    map.Close();
    EXPECT_EQ(ReadBytes(file.path), (std::vector<unsigned char>{1, 2, 0xCD}));
}

TEST(LscFilesMapped, EmptyFileOpensWithSizeZeroAndCanGrow)
{
    TempFile file("map_empty");
    WriteBytes(file.path, {});
    LscMemoryMappedFile map;
    EXPECT_NE(map.Open(file.Wide().c_str(), LMMF_READ_ONLY, 0, 0, 0), nullptr);
    EXPECT_EQ(map.Size(), 0u);
    ASSERT_NE(map.Open(file.Wide().c_str(), LMMF_READ_WRITE_EXISTING, 0, 0, 0), nullptr);
    unsigned char* base = static_cast<unsigned char*>(map.Resize(4, false));
    ASSERT_NE(base, nullptr);
    std::memcpy(base, "abcd", 4);
    EXPECT_NE(map.Resize(0, false), nullptr);
    EXPECT_EQ(map.Size(), 0u);
    map.Close();
    EXPECT_TRUE(ReadBytes(file.path).empty());
}

TEST(LscFilesMapped, FailuresLeaveItClosed)
{
    TempFile file("map_missing");
    LscMemoryMappedFile map;
    EXPECT_EQ(map.Open(file.Wide().c_str(), LMMF_READ_WRITE_EXISTING, 0, 0, 0), nullptr);
    EXPECT_EQ(std::fopen(file.path.c_str(), "rb"), nullptr);  // mode 3 does not create
    EXPECT_EQ(map.Open(nullptr, LMMF_READ_ONLY, 0, 0, 0), nullptr);
    EXPECT_EQ(map.Open(L"/", LMMF_READ_ONLY, 0, 0, 0), nullptr);  // a directory is no file
    EXPECT_EQ(map.Resize(8, false), nullptr);

    LscMemoryMappedFile zeroed;
    std::memset(static_cast<void*>(&zeroed), 0, sizeof zeroed);  // as callers prepare it
    zeroed.Close();
}
