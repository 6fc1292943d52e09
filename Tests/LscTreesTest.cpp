#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using testmesh::Ids;
using Vec = std::vector<uint32_t>;

namespace {

struct Numeric {
    int operator()(uint32_t a, uint32_t b) const { return (a > b) - (a < b); }
};

// Answers at random, now and then "equal": no order at all, the worst a welding
// compare could do.
struct Coin {
    std::mt19937* rng;
    int operator()(uint32_t, uint32_t) const { return (*rng)() % 64 == 0 ? 0 : int((*rng)() % 2) * 2 - 1; }
};

// Appends the keys below node in structural order; returns the subtree's height and
// clears `balanced` where a balance mark disagrees with the real heights.
template <class Tree>
int Walk(const Tree& tree, uint32_t node, Vec& keys, bool& balanced)
{
    if (node == 0) return 0;
    const int left = Walk(tree, tree.Child(node, 0), keys, balanced);
    keys.push_back(tree.KeyAt(node));
    const int right = Walk(tree, tree.Child(node, 1), keys, balanced);
    if (right - left != tree.Lean(node)) balanced = false;
    return 1 + std::max(left, right);
}

// Checks the balance marks and the AVL height bound; returns the keys in structural order.
template <class Tree>
Vec ExpectBalanced(const Tree& tree)
{
    Vec keys;
    bool balanced = true;
    const int height = Walk(tree, tree.Root(), keys, balanced);
    EXPECT_TRUE(balanced);
    EXPECT_EQ(keys.size(), tree.Size());
    EXPECT_LE(height, 1.45 * std::log2(double(tree.Size()) + 2.0) + 2.0);
    return keys;
}

// Drains a cursor that a Nav...Start call has placed.
template <class Tree>
Vec Drain(const Tree& tree)
{
    Vec out;
    for (bool more = tree.NavData() != LTREE_NONE; more; more = tree.NavNext()) out.push_back(tree.NavData());
    return out;
}

// Orders ids by a table of values; all-ones reads the probe.
struct Table {
    std::vector<int> values;
    int probe = 0;
};

int CompareByTable(uint32_t a, uint32_t b, const void* context)
{
    const Table& t = *static_cast<const Table*>(context);
    const int va = a == UINT32_MAX ? t.probe : t.values[a];
    return (va > t.values[b]) - (va < t.values[b]);
}

struct TableCompare {
    const Table* table = nullptr;
    int operator()(uint32_t a, uint32_t b) const { return CompareByTable(a, b, table); }
};

}  // namespace

TEST(LTreeCoreUpdates, RandomInsertEraseMatchesStdSet)
{
    LTreeCore<Numeric> tree;
    std::set<uint32_t> reference;
    std::mt19937 rng(7);
    for (int step = 1; step <= 200000; ++step) {
        const uint32_t key = rng() % 20000;
        if (rng() % 3 == 0)
            ASSERT_EQ(tree.Erase(key), reference.erase(key) == 1);
        else
            ASSERT_EQ(tree.Insert(key), reference.insert(key).second);
        if (step % 25000 == 0) {
            EXPECT_EQ(ExpectBalanced(tree), Vec(reference.begin(), reference.end()));
            uint32_t found = 0;
            EXPECT_EQ(tree.Find(key, found), reference.count(key) == 1);
        }
    }
}

TEST(LTreeCoreUpdates, MillionAscendingKeysStayShallowInTwelveBytesANode)
{
    const uint32_t n = 1u << 20;
    LTreeCore<Numeric> tree;
    const uint64_t before = l_memptr_bytes_in_use();
    ASSERT_TRUE(tree.Reserve(n));
    for (uint32_t k = 0; k < n; ++k) ASSERT_TRUE(tree.Insert(k));
    EXPECT_EQ(l_memptr_bytes_in_use() - before, uint64_t(n + 1) * 12);  // node 0 is reserved
    for (uint32_t k = 0; k < n; k += 2) ASSERT_TRUE(tree.Erase(k));
    EXPECT_EQ(ExpectBalanced(tree).size(), n / 2);
    // Freed nodes are reused before the array grows.
    for (uint32_t k = 0; k < n; k += 2) ASSERT_TRUE(tree.Insert(k));
    EXPECT_EQ(l_memptr_bytes_in_use() - before, uint64_t(n + 1) * 12);
    tree.Clear();
    EXPECT_EQ(l_memptr_bytes_in_use(), before);
}

TEST(LTreeCoreInconsistentCompare, RandomAnswersLoseNoKeyAndKeepBalance)
{
    std::mt19937 rng(11);
    LTreeCore<Coin> tree(Coin{&rng});
    std::set<uint32_t> inserted;
    uint32_t erased = 0;
    for (uint32_t k = 0; k < 30000; ++k) {
        if (tree.Insert(k)) inserted.insert(k);
        if (k % 4 == 0 && tree.Erase(k)) ++erased;  // removes whatever key the coin lands on
    }
    Vec keys = ExpectBalanced(tree);
    EXPECT_EQ(keys.size(), inserted.size() - erased);
    EXPECT_GT(keys.size(), 1000u);
    Vec visited;
    tree.ForEach([&](uint32_t k) { visited.push_back(k); });
    EXPECT_EQ(visited, keys);
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(std::unique(keys.begin(), keys.end()), keys.end());
    EXPECT_TRUE(std::includes(inserted.begin(), inserted.end(), keys.begin(), keys.end()));
}

TEST(LTreeCoreProbe, FindOrInsertWeldsTheProbeHeldInTheCompare)
{
    Table table;
    LTreeCore<TableCompare> tree(TableCompare{&table});
    Vec ids;
    for (int input : {30, 10, 30, 20, 10}) {
        table.probe = input;
        uint32_t id = 0;
        // The new key is one past the table: it must be stored without being compared.
        if (tree.FindOrInsert(UINT32_MAX, uint32_t(table.values.size()), id) == LTreeInsert::Inserted)
            table.values.push_back(input);
        ids.push_back(id);
    }
    EXPECT_EQ(table.values, (std::vector<int>{30, 10, 20}));
    EXPECT_EQ(ids, (Vec{0, 1, 0, 2, 1}));
}

TEST(LTreeSSort, NumericOrRegisteredOrderAndLookupByItem)
{
    LTreeSSort numeric;
    BaseList<uint32_t> keys;
    *keys.At(0) = 77;
    for (uint32_t key : {5u, 4000000000u, 1u}) EXPECT_TRUE(numeric.AddKey(key));
    EXPECT_FALSE(numeric.AddKey(5));
    EXPECT_EQ(numeric.GetLastError(), LTreeErrors::KeyExists);
    EXPECT_TRUE(numeric.GetAllKeys(keys, false, false));
    EXPECT_EQ(Ids(keys), (Vec{77, 1, 5, 4000000000u})) << "appended after what the list held";

    Table table{{40, 10, 30, 20}, 30};
    LTreeSSort tree;
    tree.RegisterKeyCompare(&table, CompareByTable);
    for (uint32_t id = 0; id < 4; ++id) EXPECT_TRUE(tree.AddKey(id));
    tree.NavKeysStart(false);
    EXPECT_EQ(Drain(tree), (Vec{1, 3, 2, 0}));
    uint32_t key = 0;
    EXPECT_TRUE(tree.GetKeyByItem(UINT32_MAX, key));
    EXPECT_EQ(key, 2u);
    EXPECT_TRUE(tree.DeleteKey(2));
    EXPECT_FALSE(tree.GetKeyByItem(UINT32_MAX, key));
    EXPECT_EQ(tree.GetLastError(), LTreeErrors::KeyNotFound);
    EXPECT_TRUE(tree.CheckIfKeyExist(3));
}

TEST(LTreeSSort, CursorFollowsTheTreeAsKeysAreDeletedAndAdded)
{
    LTreeSSort tree;
    EXPECT_FALSE(tree.NavKeysStart(false));
    EXPECT_EQ(tree.NavData(), LTREE_NONE);
    for (uint32_t key = 10; key <= 60; key += 10) tree.AddKey(key);
    Vec seen;
    for (bool more = tree.NavKeysStart(false); more; more = tree.NavNext()) {
        const uint32_t key = tree.NavData();
        seen.push_back(key);
        if (key != 50) tree.DeleteKey(key);  // the caller drops what it has handled
        if (key == 30) tree.AddKey(35);      // ahead of the cursor: visited
        if (key == 40) tree.AddKey(5);       // behind it: not visited
        if (key == 50) tree.AddKey(55);      // with the current key kept: not visited twice
    }
    EXPECT_EQ(seen, (Vec{10, 20, 30, 35, 40, 50, 55, 60}));
    EXPECT_EQ(tree.Count(), 2u);
    EXPECT_EQ(tree.NavData(), LTREE_NONE);
}

TEST(LTreeIndexCollections, KeysAndIndicesComeOutAscendingWithoutBleeding)
{
    LTreeSCollect c;
    const uint32_t pairs[][2] = {{3, 9}, {UINT32_MAX, 0}, {1, 4}, {3, UINT32_MAX}, {2, 7}, {3, 0}};
    for (const auto& p : pairs) EXPECT_TRUE(c.AddIndex(p[0], p[1]));
    EXPECT_FALSE(c.AddIndex(3, 9));  // a repeated pair is stored once
    EXPECT_EQ(c.Count(), 6u);
    c.NavKeysStart(false);
    EXPECT_EQ(Drain(c), (Vec{1, 2, 3, UINT32_MAX}));
    c.NavIndexesByKeyStart(3, false);
    EXPECT_EQ(Drain(c), (Vec{0, 9, UINT32_MAX}));
    EXPECT_FALSE(c.NavIndexesByKeyStart(4, false));
    EXPECT_EQ(c.NavData(), LTREE_NONE);
    EXPECT_EQ(c.CountIndexesByKey(3, false), 3u);
    EXPECT_EQ(c.CountIndexesByKey(4, false), 0u);
    uint32_t least = 0;
    EXPECT_TRUE(c.GetMinIndexByKey(2, least, false));
    EXPECT_EQ(least, 7u);
    EXPECT_FALSE(c.GetMinIndexByKey(4, least, false));

    // A relation appends after the caller's entries, and Reset(false) keeps the nodes.
    LTreeRRelation r;
    BaseList<uint32_t> out;
    *out.At(0) = 99;
    EXPECT_FALSE(r.GetAllIndexesByKey(8, out, false, false));
    for (uint32_t index : {30u, 10u, 20u}) r.AddIndex(8, index, false);
    for (uint32_t index = 0; index < 20; ++index) r.AddIndex(9, index, false);  // past the first node block
    EXPECT_TRUE(r.GetAllIndexesByKey(8, out, false, false));
    EXPECT_EQ(Ids(out), (Vec{99, 10, 20, 30}));
    const uint64_t held = l_memptr_bytes_in_use();
    r.Reset(false);
    EXPECT_EQ(r.CountIndexesByKey(8, false), 0u);
    r.AddIndex(8, 1, false);
    EXPECT_EQ(l_memptr_bytes_in_use(), held);
    r.Reset(true);
    EXPECT_LT(l_memptr_bytes_in_use(), held);
}
