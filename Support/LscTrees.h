// Sorted trees of 32-bit values: an AVL tree core (Adelson-Velsky and Landis, 1962)
// and the named trees of the utility layer built on it.
//
// Nodes live in one contiguous array grown by doubling through l_memptr_alloc, so a
// tree costs one block, its memory shows in the library's figures, and no operation
// allocates per node. Links are 31-bit node numbers; the spare top bit of each link
// says that side's subtree is the taller one, which packs a node of 32-bit keys into
// 12 bytes. Node 0 is never used, so a zero link means "none" and fresh memory is a
// valid empty link. There are no parent links: updates keep the descent path on the
// stack, and cursors keep their own.
//
// The structure never depends on the compare being a true order. Rebalancing only
// rotates, which keeps the in-order sequence, and the compare is only consulted while
// descending. A compare that is not transitive (points welded within a tolerance) or
// even random therefore cannot lose keys, loop or unbalance the tree; it only changes
// which key a search meets.
#pragma once

#include <cstdint>

#include "LscBaseList.h"
#include "LscMemory.h"

enum class LTreeInsert { Found, Inserted, NoMemory };

// The value NavData gives when a cursor is on no key; the same bits as LM_NONE.
constexpr uint32_t LTREE_NONE = 0xFFFFFFFFu;

// Balanced search tree of keys under `Compare`, an object with
// `int operator()(const Key& a, const Key& b) const` returning <0, 0 or >0. The
// compare must not throw. Nothing here throws: allocation failure is reported.
template <class Compare, class Key = uint32_t>
class LTreeCore {
public:
    // An AVL tree of 2^31 nodes is less than 46 levels high.
    static constexpr uint32_t kMaxHeight = 64;

    // An in-order position. `path` holds the nodes still to be visited, the current
    // one on top. After the tree changes, Next resumes after `key` by a fresh search.
    struct Cursor {
        uint32_t path[kMaxHeight];
        uint32_t depth = 0;
        uint64_t version = 0;
        Key key{};
        bool AtKey() const { return depth != 0; }
    };

    explicit LTreeCore(const Compare& compare = Compare()) : compare_(compare) {}
    LTreeCore(const LTreeCore&) = delete;
    LTreeCore& operator=(const LTreeCore&) = delete;
    ~LTreeCore() { l_memptr_free(nodes_); }

    // Replacing the compare does not reorder keys already stored.
    void SetCompare(const Compare& compare) { compare_ = compare; }
    const Compare& GetCompare() const { return compare_; }
    Compare& GetCompare() { return compare_; }  // lets a caller update a probe it holds

    // Room for `keys` keys in all, so that the next inserts do not grow the array.
    bool Reserve(uint32_t keys)
    {
        if (keys >= kMaxCapacity) return false;
        return keys < capacity_ || Grow(keys + 1);
    }

    uint32_t Size() const { return size_; }

    // Descends comparing `item` (always the first argument) with stored keys.
    bool Find(const Key& item, Key& found) const
    {
        for (uint32_t n = root_; n != kNull;) {
            const int order = compare_(item, nodes_[n].key);
            if (order == 0) {
                found = nodes_[n].key;
                return true;
            }
            n = Link(n, order > 0);
        }
        return false;
    }

    // One descent by `item`. A key comparing equal gives Found with that key; else
    // `key` is stored where `item` belongs (without being compared itself) and
    // `found` is `key`. NoMemory leaves the tree as it was.
    LTreeInsert FindOrInsert(const Key& item, const Key& key, Key& found)
    {
        Path path;
        for (uint32_t n = root_; n != kNull;) {
            const int order = compare_(item, nodes_[n].key);
            if (order == 0) {
                found = nodes_[n].key;
                return LTreeInsert::Found;
            }
            path.Push(n, order > 0);
            n = Link(n, order > 0);
        }
        const uint32_t fresh = NewNode(key);
        if (fresh == kNull) return LTreeInsert::NoMemory;
        Replace(path, path.depth, fresh);
        RebalanceAfterInsert(path);
        ++size_;
        ++version_;
        found = key;
        return LTreeInsert::Inserted;
    }

    // False when a key comparing equal is present or memory ran out.
    bool Insert(const Key& key)
    {
        Key found;
        return FindOrInsert(key, key, found) == LTreeInsert::Inserted;
    }

    // Removes the stored key that the descent by `key` meets as equal.
    bool Erase(const Key& key)
    {
        Path path;
        uint32_t n = root_;
        while (n != kNull) {
            const int order = compare_(key, nodes_[n].key);
            if (order == 0) break;
            path.Push(n, order > 0);
            n = Link(n, order > 0);
        }
        if (n == kNull) return false;
        uint32_t target = n;
        if (Link(n, 0) != kNull && Link(n, 1) != kNull) {
            // Take the in-order successor's key and unlink the successor instead,
            // which has no left child.
            path.Push(n, 1);
            target = Link(n, 1);
            for (; Link(target, 0) != kNull; target = Link(target, 0)) path.Push(target, 0);
            nodes_[n].key = nodes_[target].key;
        }
        const uint32_t child = Link(target, 0) != kNull ? Link(target, 0) : Link(target, 1);
        Replace(path, path.depth, child);
        FreeNode(target);
        RebalanceAfterErase(path);
        --size_;
        ++version_;
        return true;
    }

    // Empties the tree; with `releaseMemory` false the node array stays for reuse.
    void Clear(bool releaseMemory = true)
    {
        if (releaseMemory) {
            l_memptr_free(nodes_);
            nodes_ = nullptr;
            capacity_ = 0;
        }
        used_ = 1;
        freeHead_ = kNull;
        root_ = kNull;
        size_ = 0;
        ++version_;
    }

    // Visits the keys in order. The visitor may change the tree: the walk resumes
    // after the last key it saw.
    template <class F>
    void ForEach(F&& visit) const
    {
        Cursor cursor;
        for (bool more = First(cursor); more; more = Next(cursor)) visit(cursor.key);
    }

    bool First(Cursor& cursor) const
    {
        cursor.depth = 0;
        PushLeftSpine(cursor, root_);
        return Settle(cursor);
    }

    // The first key with compare(item, key) <= 0.
    bool LowerBound(const Key& item, Cursor& cursor) const { return Seek(item, cursor, true); }

    // The first key with compare(item, key) < 0.
    bool UpperBound(const Key& item, Cursor& cursor) const { return Seek(item, cursor, false); }

    // Steps to the next key; false past the last one, leaving the cursor off any key.
    bool Next(Cursor& cursor) const
    {
        if (cursor.depth == 0) return false;
        if (cursor.version != version_) return UpperBound(cursor.key, cursor);
        const uint32_t current = cursor.path[--cursor.depth];
        PushLeftSpine(cursor, Link(current, 1));
        return Settle(cursor);
    }

    // A read-only view of the structure, for checks: node 0 is "none", and Lean is
    // -1, 0 or +1 as the left, neither or the right subtree is the taller.
    uint32_t Root() const { return root_; }
    uint32_t Child(uint32_t node, int side) const { return Link(node, side); }
    const Key& KeyAt(uint32_t node) const { return nodes_[node].key; }
    int Lean(uint32_t node) const { return Heavy(node) == kEven ? 0 : Heavy(node) == 0 ? -1 : 1; }

private:
    struct Node {
        Key key;
        uint32_t link[2];  // left, right: node number plus the taller-side bit
    };
    static_assert(sizeof(Key) != 4 || sizeof(Node) == 12, "32-bit keys take 12-byte nodes");

    // The descent from the root: each node and the side taken out of it.
    struct Path {
        uint32_t node[kMaxHeight];
        uint8_t side[kMaxHeight];
        uint32_t depth = 0;
        void Push(uint32_t n, int s)
        {
            node[depth] = n;
            side[depth] = uint8_t(s);
            ++depth;
        }
    };

    struct Rotation {
        uint32_t top;
        bool shorter;  // the subtree lost a level
    };

    static constexpr uint32_t kNull = 0;
    static constexpr uint32_t kTall = 0x80000000u;
    static constexpr uint32_t kIndexMask = 0x7FFFFFFFu;
    static constexpr uint32_t kMaxCapacity = 0x80000000u;  // node numbers fit in 31 bits
    static constexpr uint32_t kFirstCapacity = 16;
    static constexpr int kEven = 2;  // Heavy(): 0 left, 1 right, kEven neither

    uint32_t Link(uint32_t n, int side) const { return nodes_[n].link[side] & kIndexMask; }

    int Heavy(uint32_t n) const
    {
        if (nodes_[n].link[0] & kTall) return 0;
        return (nodes_[n].link[1] & kTall) ? 1 : kEven;
    }

    void SetLink(uint32_t n, int side, uint32_t child)
    {
        nodes_[n].link[side] = (nodes_[n].link[side] & kTall) | child;
    }

    void SetHeavy(uint32_t n, int heavy)
    {
        for (int side = 0; side < 2; ++side)
            nodes_[n].link[side] = (nodes_[n].link[side] & kIndexMask) | (heavy == side ? kTall : 0);
    }

    // Sets both links of n: `toward` on side s, `away` on the other side.
    void SetLinks(uint32_t n, int s, uint32_t toward, uint32_t away, int heavy)
    {
        nodes_[n].link[s] = toward;
        nodes_[n].link[1 - s] = away;
        SetHeavy(n, heavy);
    }

    // Points the link that led to path.node[at] (or the root when at is 0) at `child`.
    void Replace(const Path& path, uint32_t at, uint32_t child)
    {
        if (at == 0)
            root_ = child;
        else
            SetLink(path.node[at - 1], path.side[at - 1], child);
    }

    // Lifts the child on side s of n, which is two levels taller than the other side.
    // Only an erase can leave that child even; the subtree then keeps its height.
    Rotation Rotate(uint32_t n, int s)
    {
        const uint32_t c = Link(n, s);
        const int childHeavy = Heavy(c);
        if (childHeavy != 1 - s) {
            const bool even = childHeavy == kEven;
            SetLinks(n, s, Link(c, 1 - s), Link(n, 1 - s), even ? s : kEven);
            SetLinks(c, s, Link(c, s), n, even ? 1 - s : kEven);
            return {c, !even};
        }
        const uint32_t g = Link(c, 1 - s);
        const int grandHeavy = Heavy(g);
        SetLinks(c, s, Link(c, s), Link(g, s), grandHeavy == 1 - s ? s : kEven);
        SetLinks(n, s, Link(g, 1 - s), Link(n, 1 - s), grandHeavy == s ? 1 - s : kEven);
        SetLinks(g, s, c, n, kEven);
        return {g, true};
    }

    // The subtree below each path node grew on the side taken, until one absorbs it.
    void RebalanceAfterInsert(const Path& path)
    {
        for (uint32_t i = path.depth; i-- > 0;) {
            const uint32_t n = path.node[i];
            const int s = path.side[i];
            const int heavy = Heavy(n);
            if (heavy == kEven) {
                SetHeavy(n, s);
                continue;
            }
            if (heavy != s)
                SetHeavy(n, kEven);
            else
                Replace(path, i, Rotate(n, s).top);
            return;
        }
    }

    // The subtree below each path node shrank on the side taken, until one keeps its height.
    void RebalanceAfterErase(const Path& path)
    {
        for (uint32_t i = path.depth; i-- > 0;) {
            const uint32_t n = path.node[i];
            const int s = path.side[i];
            const int heavy = Heavy(n);
            if (heavy == s) {
                SetHeavy(n, kEven);
                continue;
            }
            if (heavy == kEven) {
                SetHeavy(n, 1 - s);
                return;
            }
            const Rotation rotation = Rotate(n, 1 - s);
            Replace(path, i, rotation.top);
            if (!rotation.shorter) return;
        }
    }

    bool Grow(uint32_t capacity)
    {
        void* block = l_memptr_alloc(nodes_, size_t(capacity) * sizeof(Node));
        if (!block) return false;
        nodes_ = static_cast<Node*>(block);
        capacity_ = capacity;
        return true;
    }

    // A node from the free list or the unused tail, growing the array by doubling.
    uint32_t NewNode(const Key& key)
    {
        uint32_t n = freeHead_;
        if (n != kNull) {
            freeHead_ = nodes_[n].link[0];
        } else {
            if (used_ >= capacity_) {
                const uint64_t doubled = capacity_ ? uint64_t(capacity_) * 2 : kFirstCapacity;
                if (capacity_ >= kMaxCapacity) return kNull;
                if (!Grow(uint32_t(doubled < kMaxCapacity ? doubled : kMaxCapacity))) return kNull;
            }
            n = used_++;
        }
        nodes_[n].key = key;
        nodes_[n].link[0] = kNull;
        nodes_[n].link[1] = kNull;
        return n;
    }

    void FreeNode(uint32_t n)
    {
        nodes_[n].link[0] = freeHead_;
        freeHead_ = n;
    }

    void PushLeftSpine(Cursor& cursor, uint32_t n) const
    {
        for (; n != kNull; n = Link(n, 0)) cursor.path[cursor.depth++] = n;
    }

    bool Seek(const Key& item, Cursor& cursor, bool orEqual) const
    {
        cursor.depth = 0;
        for (uint32_t n = root_; n != kNull;) {
            const int order = compare_(item, nodes_[n].key);
            const bool left = order < 0 || (orEqual && order == 0);
            if (left) cursor.path[cursor.depth++] = n;
            n = Link(n, !left);
        }
        return Settle(cursor);
    }

    bool Settle(Cursor& cursor) const
    {
        cursor.version = version_;
        if (cursor.depth == 0) return false;
        cursor.key = nodes_[cursor.path[cursor.depth - 1]].key;
        return true;
    }

    Node* nodes_ = nullptr;
    uint32_t capacity_ = 0;  // nodes in the array, node 0 included
    uint32_t used_ = 1;      // nodes below this have been handed out at least once
    uint32_t freeHead_ = kNull;
    uint32_t root_ = kNull;
    uint32_t size_ = 0;
    uint64_t version_ = 0;  // bumped by every change, so cursors notice
    Compare compare_;
};

// Outcome of the last LTreeSSort or collection member that adds, removes, looks up
// or fills a list.
enum class LTreeErrors { None, KeyExists, KeyNotFound, NoMemory };

using LTreeKeyCompareFn = int (*)(uint32_t a, uint32_t b, const void* context);

// A sorted set of keys under a caller's order; numeric order until one is registered.
class LTreeSSort {
public:
    LTreeSSort() = default;
    LTreeSSort(const LTreeSSort&) = delete;
    LTreeSSort& operator=(const LTreeSSort&) = delete;

    // Sets the order; register it before adding keys, as stored keys are not reordered.
    // A null `compare` restores the numeric order.
    void RegisterKeyCompare(void* context, LTreeKeyCompareFn compare);

    // True when added; false when a key comparing equal is present (KeyExists) or
    // memory ran out (NoMemory).
    bool AddKey(uint32_t key);
    bool DeleteKey(uint32_t key);  // false (KeyNotFound) when no key compares equal
    bool CheckIfKeyExist(uint32_t key) const;
    // Searches with `item` as the compare's first argument; `item` need not be stored.
    bool GetKeyByItem(uint32_t item, uint32_t& key) const;
    // Appends every key in order after what `keys` holds. The flags have no effect.
    bool GetAllKeys(BaseList<uint32_t>& keys, bool = false, bool = false) const;

    // The cursor. NavData is LTREE_NONE off a key. Keys added or deleted while it
    // runs are seen as the tree stands: NavNext goes on after the current key.
    bool NavKeysStart(bool = false) const;
    uint32_t NavData() const;
    bool NavNext() const;
    void NavStop() const;

    LTreeErrors GetLastError() const { return lastError_; }
    uint32_t Count() const { return tree_.Size(); }
    bool Reserve(uint32_t keys) { return tree_.Reserve(keys); }

private:
    struct KeyCompare {
        LTreeKeyCompareFn compare = nullptr;
        const void* context = nullptr;
        int operator()(uint32_t a, uint32_t b) const
        {
            if (compare) return compare(a, b, context);
            return (a > b) - (a < b);
        }
    };
    using Tree = LTreeCore<KeyCompare>;

    bool Report(bool ok, LTreeErrors failure) const
    {
        lastError_ = ok ? LTreeErrors::None : failure;
        return ok;
    }

    Tree tree_;
    mutable Tree::Cursor cursor_;
    mutable LTreeErrors lastError_ = LTreeErrors::None;
};

// Key -> indices, shared by the four named collections below. It is a set of
// (key, index) pairs in lexicographic order, so keys come in ascending numeric order,
// the indices of one key in ascending order, and a repeated pair is stored once.
// The bool arguments have no effect, except Reset's.
class LTreeIndexCollection {
public:
    LTreeIndexCollection(const LTreeIndexCollection&) = delete;
    LTreeIndexCollection& operator=(const LTreeIndexCollection&) = delete;

    // True when added; false when the pair is present (KeyExists) or memory ran out.
    bool AddIndex(uint32_t key, uint32_t index, bool = false);
    uint32_t CountIndexesByKey(uint32_t key, bool = false) const;
    bool GetMinIndexByKey(uint32_t key, uint32_t& index, bool = false) const;
    // Appends the key's indices after what `out` holds; false if it has none.
    bool GetAllIndexesByKey(uint32_t key, BaseList<uint32_t>& out, bool = false, bool = false) const;
    // Empties it; `releaseMemory` false keeps the node array for refilling.
    void Reset(bool releaseMemory);

    // One cursor, either over the indices of one key or over the distinct keys.
    // NavData gives an index or a key accordingly, and LTREE_NONE off the end.
    bool NavIndexesByKeyStart(uint32_t key, bool = false) const;
    bool NavKeysStart(bool = false) const;
    uint32_t NavData() const;
    bool NavNext() const;
    void NavStop() const;

    uint32_t Count() const { return tree_.Size(); }  // pairs
    LTreeErrors GetLastError() const { return lastError_; }

protected:
    LTreeIndexCollection() = default;
    ~LTreeIndexCollection() = default;

private:
    struct PairCompare {
        int operator()(uint64_t a, uint64_t b) const { return (a > b) - (a < b); }
    };
    using Tree = LTreeCore<PairCompare, uint64_t>;

    static uint64_t Pair(uint32_t key, uint32_t index) { return (uint64_t(key) << 32) | index; }
    static uint32_t KeyOf(uint64_t pair) { return uint32_t(pair >> 32); }
    static uint32_t IndexOf(uint64_t pair) { return uint32_t(pair); }

    // A cursor at the key's smallest index, or off the end if the key has none.
    bool SeekKey(uint32_t key, Tree::Cursor& cursor) const;

    Tree tree_;
    mutable Tree::Cursor cursor_;
    mutable bool navByKey_ = false;  // the cursor walks distinct keys, not one key's indices
    mutable LTreeErrors lastError_ = LTreeErrors::None;
};

// The named collections differ only in which members their callers use.
class LTreeSCollect final : public LTreeIndexCollection {};
class LTreeRSCollect final : public LTreeIndexCollection {};
class LTreeRCollect final : public LTreeIndexCollection {};
class LTreeRRelation final : public LTreeIndexCollection {};
