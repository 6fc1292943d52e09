#include <gtest/gtest.h>

#include <vector>

#include "LscBaseList.h"

namespace {

// The mesh-store shape: 4096 records a page, table growth 256.
BaseList<uint32_t> StoreShaped() { return BaseList<uint32_t>(256, 4096); }

std::vector<uint32_t> Fill(BaseList<uint32_t>& list, uint32_t n)
{
    std::vector<uint32_t> values;
    for (uint32_t i = 0; i < n; ++i) {
        *list.At(i) = i * 7 + 1;
        values.push_back(i * 7 + 1);
    }
    return values;
}

std::vector<uint32_t> Read(const BaseList<uint32_t>& list)
{
    std::vector<uint32_t> values;
    for (uint32_t i = 0; i < list.count; ++i) values.push_back(*list.Peek(i));
    return values;
}

}  // namespace

TEST(BaseListShape, DefaultIsTheSmallShape)
{
    BaseList<uint32_t> list;
    EXPECT_EQ(list.tableGrowth, 16u);
    EXPECT_EQ(list.pageSize, 128u);
    EXPECT_EQ(list.pageShift, 7u);
    EXPECT_EQ(list.offsetShift, 25u);
    BaseList<uint32_t> store = StoreShaped();
    EXPECT_EQ(store.pageShift, 12u);
    EXPECT_EQ(store.offsetShift, 20u);
}

TEST(BaseListGrowth, FirstPageOnlyUntilItOverflows)
{
    BaseList<uint32_t> list = StoreShaped();
    ASSERT_NE(list.At(list.count), nullptr);
    EXPECT_EQ(list.pageTable, nullptr);
    EXPECT_NE(list.firstPage, nullptr);
    EXPECT_EQ(list.pageCount, 1u);
    EXPECT_EQ(*list.Peek(0), 0u) << "fresh pages read as zero";

    uint32_t* first = list.firstPage;
    ASSERT_NE(list.At(4096), nullptr);
    EXPECT_NE(list.pageTable, nullptr);
    EXPECT_EQ(list.tableCapacity, 256u);
    EXPECT_EQ(list.pageTable[0], first) << "the old first page becomes entry 0";
    EXPECT_EQ(list.firstPage, first);
    EXPECT_EQ(list.pageCount, 2u);
    EXPECT_EQ(list.count, 4097u);
}

TEST(BaseListGrowth, AtInsideAnAllocatedPageOnlyRaisesCount)
{
    BaseList<uint32_t> list;
    list.At(0);
    list.At(100);
    EXPECT_EQ(list.count, 101u);
    EXPECT_EQ(list.pageCount, 1u);
    EXPECT_EQ(list.Peek(101), nullptr);
}

TEST(BaseListGrowth, TableGrowsInStepsAndRecordsStayPut)
{
    BaseList<uint32_t> list;  // 128 per page, table steps of 16
    const std::vector<uint32_t> values = Fill(list, 128 * 40 + 3);
    EXPECT_EQ(list.tableCapacity, 48u);
    EXPECT_EQ(list.pageCount, 41u);
    EXPECT_EQ(Read(list), values);

    const uint32_t* record = list.Peek(5);
    Fill(list, 128 * 100);
    EXPECT_EQ(list.Peek(5), record) << "growth never moves a page";
}

TEST(BaseListGrowth, UnreachableIndexFailsSafely)
{
    BaseList<uint32_t> list;
    EXPECT_EQ(list.At(UINT32_MAX), nullptr);
    EXPECT_EQ(list.count, 0u);
}

TEST(BaseListShrink, KeepsPagesUpToTheLastIndex)
{
    BaseList<uint32_t> list;
    const std::vector<uint32_t> values = Fill(list, 128 * 40);
    ASSERT_TRUE(list.SetSize(129));
    EXPECT_EQ(list.count, 129u);
    EXPECT_EQ(list.pageCount, 2u);
    EXPECT_EQ(list.tableCapacity, 16u) << "the table shrinks to one step above the kept pages";
    EXPECT_EQ(Read(list), std::vector<uint32_t>(values.begin(), values.begin() + 129));
    EXPECT_EQ(list.Peek(129), nullptr);
}

TEST(BaseListShrink, SetSizeZeroClearsButKeepsTheShape)
{
    BaseList<uint32_t> list = StoreShaped();
    Fill(list, 5000);
    ASSERT_TRUE(list.SetSize(0));
    EXPECT_EQ(list.firstPage, nullptr);
    EXPECT_EQ(list.pageTable, nullptr);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.pageSize, 4096u);
    ASSERT_NE(list.At(0), nullptr);
    EXPECT_EQ(list.count, 1u);
}

TEST(BaseListCopy, DeepCopiesWithAndWithoutTable)
{
    for (uint32_t n : {0u, 1u, 127u, 128u, 129u, 1000u}) {
        BaseList<uint32_t> list;
        const std::vector<uint32_t> values = Fill(list, n);
        BaseList<uint32_t> copy(list);
        EXPECT_EQ(Read(copy), values) << n;
        EXPECT_EQ(copy.pageCount, list.pageCount) << n;
        if (n > 0) {
            EXPECT_NE(copy.firstPage, list.firstPage) << n;
        }
        BaseList<uint32_t> assigned(256, 4096);
        Fill(assigned, 9000);
        assigned = list;
        EXPECT_EQ(Read(assigned), values) << n;
        EXPECT_EQ(assigned.pageSize, 128u) << "assignment takes the source's shape";
    }
}

TEST(BaseListCopy, ShrunkSourceCopiesItsLastPageWhole)
{
    BaseList<uint32_t> list;
    Fill(list, 300);
    list.SetSize(200);
    BaseList<uint32_t> copy(list);
    EXPECT_EQ(Read(copy), Read(list));
    EXPECT_EQ(copy.count, 200u);
}

TEST(BaseListMove, TakesThePagesAndLeavesAnEmptyList)
{
    BaseList<uint32_t> list;
    const std::vector<uint32_t> values = Fill(list, 500);
    BaseList<uint32_t> moved(std::move(list));
    EXPECT_EQ(Read(moved), values);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.firstPage, nullptr);
    EXPECT_EQ(list.pageSize, 128u);
    ASSERT_NE(list.At(3), nullptr) << "a moved-from list is usable";
}

TEST(BaseListNested, PagesOfListsConstructAndCopyEachElement)
{
    BaseList<BaseList<uint32_t>> cells(16, 32);
    for (uint32_t c = 0; c < 70; ++c)
        for (uint32_t k = 0; k <= c % 5; ++k) *cells.At(c)->At(k) = c * 10 + k;
    EXPECT_EQ(cells.At(69)->pageSize, 128u) << "elements are constructed with their default shape";
    BaseList<BaseList<uint32_t>> copy(cells);
    for (uint32_t c = 0; c < 70; ++c) {
        ASSERT_EQ(copy.Peek(c)->count, c % 5 + 1);
        EXPECT_EQ(*copy.Peek(c)->Peek(c % 5), c * 10 + c % 5);
        EXPECT_NE(copy.Peek(c)->firstPage, cells.Peek(c)->firstPage);
    }
    cells.SetSize(3);
    EXPECT_EQ(cells.Peek(3), nullptr);
}
