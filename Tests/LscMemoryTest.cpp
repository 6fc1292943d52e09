#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "LscMemory.h"

TEST(MemptrAlloc, GrowthKeepsContentsAndZeroesNewBytes)
{
    auto* block = static_cast<unsigned char*>(l_memptr_alloc(nullptr, 16));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(block[i], 0);
    std::memset(block, 0xAB, 16);
    block = static_cast<unsigned char*>(l_memptr_alloc(block, 1 << 20));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[15], 0xAB);
    EXPECT_EQ(block[16], 0);
    EXPECT_EQ(block[(1 << 20) - 1], 0);

    // Shrinking and growing again must not resurrect the old bytes.
    block = static_cast<unsigned char*>(l_memptr_alloc(block, 8));
    block = static_cast<unsigned char*>(l_memptr_alloc(block, 16));
    EXPECT_EQ(block[7], 0xAB);
    EXPECT_EQ(block[8], 0);
    l_memptr_free(block);
}

TEST(MemptrAlloc, CountsBytesInUse)
{
    const uint64_t before = l_memptr_bytes_in_use();
    void* block = l_memptr_alloc(nullptr, 1000);
    EXPECT_EQ(l_memptr_bytes_in_use(), before + 1000);
    EXPECT_GE(l_memptr_peak_bytes(), before + 1000);
    l_memptr_free(block);
    EXPECT_EQ(l_memptr_bytes_in_use(), before);
}

TEST(MemptrAlloc, ImpossibleSizesFail)
{
    EXPECT_EQ(l_memptr_alloc(nullptr, SIZE_MAX), nullptr);
    EXPECT_EQ(_l_calloc(SIZE_MAX / 2, 4, __FILE__, __LINE__, "overflow"), nullptr);
    void* block = _l_calloc(3, 4, __FILE__, __LINE__, "twelve bytes");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(static_cast<uint32_t*>(block)[2], 0u);
    l_memptr_free(block);
    l_memptr_free(nullptr);
}

TEST(TObjArrayTest, SetSizeDiscardsOldContents)
{
    TObjArray<uint32_t> array;
    array.SetSize(4);
    EXPECT_EQ(array.count, 4u);
    EXPECT_EQ(array.capacity, 4u);
    array.data[3] = 9;
    array.SetSize(8);
    EXPECT_EQ(array.data[3], 0u);
    array.SetSize(0);
    EXPECT_EQ(array.data, nullptr);
    EXPECT_EQ(array.count, 0u);
}
