#include "LscFiles.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

TEST(LscFilesBinary, LittleEndianRoundTripAndShortRead)
{
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(LL_fwrite_bin(file, "lx", 1u, 2u), 0);  // a bad format writes nothing
    EXPECT_NE(LL_fwrite_bin(file, "l f\tl", 0x01020304u, 1.5, int32_t(-2)), 0);
    std::rewind(file);
    unsigned char bytes[13];
    ASSERT_EQ(std::fread(bytes, 1, 13, file), 12u);
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + 12),
              (std::vector<unsigned char>{4, 3, 2, 1, 0, 0, 0xC0, 0x3F, 0xFE, 0xFF, 0xFF, 0xFF}));

    std::rewind(file);
    uint32_t a = 0, d = 7;
    float b = 0;
    int32_t c = 0;
    EXPECT_NE(LL_fread_bin(file, "lfl", &a, &b, &c), 0);
    EXPECT_EQ(a, 0x01020304u);
    EXPECT_EQ(b, 1.5f);
    EXPECT_EQ(c, -2);
    std::fseek(file, 8, SEEK_SET);
    EXPECT_EQ(LL_fread_bin(file, "ll", &a, &d), 0);  // one item left: the first is stored
    EXPECT_EQ(a, 0xFFFFFFFEu);
    EXPECT_EQ(d, 7u);
    std::fclose(file);
}

TEST(LscFilesPaths, WidePathsBecomeUtf8)
{
    std::string utf8;
    EXPECT_TRUE(LscWideToUtf8(L"a\u00e9\u20ac\U0001F600", utf8));
    EXPECT_EQ(utf8, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    const wchar_t surrogate[] = {L'a', wchar_t(0xD800), 0};
    EXPECT_FALSE(LscWideToUtf8(surrogate, utf8));

    std::wstring wide;
    EXPECT_TRUE(LscUtf8ToWide("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", wide));
    EXPECT_EQ(wide, L"a\u00e9\u20ac\U0001F600") << "the round trip";
    for (const char* bad : {"\xC0\xAF", "\xC0\x80", "\xE0\x80\xAF", "\xC3", "\xFF"})
        EXPECT_FALSE(LscUtf8ToWide(bad, wide)) << "overlong, cut short or not UTF-8";

    char narrow[5];
    EXPECT_EQ(unicode_to_ascii(narrow, L"ab\u00e9defg", sizeof narrow), 4);
    EXPECT_STREQ(narrow, "ab?d");
}

TEST(LscFilesMapped, ModesResizeAndClose)
{
    const std::string path = ::testing::TempDir() + "lsc_" + std::to_string(::getpid()) + "_map";
    const std::wstring wide(path.begin(), path.end());
    LscMemoryMappedFile map;
    EXPECT_EQ(map.Open(wide.c_str(), LMMF_READ_WRITE_EXISTING, 0, 0, 0), nullptr);
    EXPECT_NE(::access(path.c_str(), F_OK), 0);  // mode 3 does not create

    std::fclose(std::fopen(path.c_str(), "wb"));
    ASSERT_NE(map.Open(wide.c_str(), LMMF_READ_WRITE_EXISTING, 0, 0, 0), nullptr);  // empty: size 0
    EXPECT_EQ(map.Size(), 0u);
    unsigned char* base = static_cast<unsigned char*>(map.Resize(100000, false));
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(base[99999], 0);  // grown bytes read as zero
    std::memcpy(base, "abc", 3);
    ASSERT_NE(map.Resize(3, false), nullptr);
    map.Close();
    map.Close();

    const char* read = static_cast<const char*>(map.Open(wide.c_str(), LMMF_READ_ONLY, 0, 0, 0));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(read, map.Size()), "abc");
    EXPECT_EQ(map.Resize(10, false), nullptr);  // read-only cannot change size
    map.Close();
    std::remove(path.c_str());

    LscMemoryMappedFile zeroed;
    std::memset(static_cast<void*>(&zeroed), 0, sizeof zeroed);  // as callers prepare it
    zeroed.Close();
    EXPECT_EQ(zeroed.Open(L"/", LMMF_READ_ONLY, 0, 0, 0), nullptr);  // a directory is no file
}
