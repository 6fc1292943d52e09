// The named trees of the utility layer: thin adapters over LTreeCore. A key set under
// a caller's compare function, and one (key, index) pair tree behind every key ->
// indices collection; packing a pair into 64 bits makes numeric order lexicographic.
#include "LscTrees.h"

void LTreeSSort::RegisterKeyCompare(void* context, LTreeKeyCompareFn compare)
{
    KeyCompare order;
    order.compare = compare;
    order.context = context;
    tree_.SetCompare(order);
}

bool LTreeSSort::AddKey(uint32_t key)
{
    uint32_t found = 0;
    const LTreeInsert result = tree_.FindOrInsert(key, key, found);
    if (result == LTreeInsert::NoMemory) return Report(false, LTreeErrors::NoMemory);
    return Report(result == LTreeInsert::Inserted, LTreeErrors::KeyExists);
}

bool LTreeSSort::DeleteKey(uint32_t key) { return Report(tree_.Erase(key), LTreeErrors::KeyNotFound); }

bool LTreeSSort::CheckIfKeyExist(uint32_t key) const
{
    uint32_t found = 0;
    return Report(tree_.Find(key, found), LTreeErrors::KeyNotFound);
}

bool LTreeSSort::GetKeyByItem(uint32_t item, uint32_t& key) const
{
    return Report(tree_.Find(item, key), LTreeErrors::KeyNotFound);
}

bool LTreeSSort::GetAllKeys(BaseList<uint32_t>& keys, bool, bool) const
{
    Tree::Cursor cursor;
    for (bool more = tree_.First(cursor); more; more = tree_.Next(cursor)) {
        if (!AppendTo(keys, cursor.key)) return Report(false, LTreeErrors::NoMemory);
    }
    return Report(true, LTreeErrors::None);
}

bool LTreeSSort::NavKeysStart(bool) const { return tree_.First(cursor_); }

uint32_t LTreeSSort::NavData() const { return cursor_.AtKey() ? cursor_.key : LTREE_NONE; }

bool LTreeSSort::NavNext() const { return tree_.Next(cursor_); }

void LTreeSSort::NavStop() const { cursor_.depth = 0; }

bool LTreeIndexCollection::AddIndex(uint32_t key, uint32_t index, bool)
{
    const uint64_t pair = Pair(key, index);
    uint64_t found = 0;
    const LTreeInsert result = tree_.FindOrInsert(pair, pair, found);
    lastError_ = result == LTreeInsert::Inserted ? LTreeErrors::None
                 : result == LTreeInsert::Found  ? LTreeErrors::KeyExists
                                                 : LTreeErrors::NoMemory;
    return result == LTreeInsert::Inserted;
}

bool LTreeIndexCollection::SeekKey(uint32_t key, Tree::Cursor& cursor) const
{
    if (tree_.LowerBound(Pair(key, 0), cursor) && KeyOf(cursor.key) == key) return true;
    cursor.depth = 0;
    return false;
}

uint32_t LTreeIndexCollection::CountIndexesByKey(uint32_t key, bool) const
{
    Tree::Cursor cursor;
    uint32_t count = 0;
    for (bool more = SeekKey(key, cursor); more && KeyOf(cursor.key) == key; more = tree_.Next(cursor)) ++count;
    return count;
}

bool LTreeIndexCollection::GetMinIndexByKey(uint32_t key, uint32_t& index, bool) const
{
    Tree::Cursor cursor;
    const bool found = SeekKey(key, cursor);
    if (found) index = IndexOf(cursor.key);
    lastError_ = found ? LTreeErrors::None : LTreeErrors::KeyNotFound;
    return found;
}

bool LTreeIndexCollection::GetAllIndexesByKey(uint32_t key, BaseList<uint32_t>& out, bool, bool) const
{
    Tree::Cursor cursor;
    lastError_ = SeekKey(key, cursor) ? LTreeErrors::None : LTreeErrors::KeyNotFound;
    for (bool more = cursor.AtKey(); more && KeyOf(cursor.key) == key; more = tree_.Next(cursor)) {
        uint32_t* slot = out.At(out.count);
        if (!slot) {
            lastError_ = LTreeErrors::NoMemory;
            break;
        }
        *slot = IndexOf(cursor.key);
    }
    return lastError_ == LTreeErrors::None;
}

void LTreeIndexCollection::Reset(bool releaseMemory)
{
    tree_.Clear(releaseMemory);
    cursor_.depth = 0;
}

bool LTreeIndexCollection::NavIndexesByKeyStart(uint32_t key, bool) const
{
    navByKey_ = false;
    return SeekKey(key, cursor_);
}

bool LTreeIndexCollection::NavKeysStart(bool) const
{
    navByKey_ = true;
    return tree_.First(cursor_);
}

uint32_t LTreeIndexCollection::NavData() const
{
    if (!cursor_.AtKey()) return LTREE_NONE;
    return navByKey_ ? KeyOf(cursor_.key) : IndexOf(cursor_.key);
}

bool LTreeIndexCollection::NavNext() const
{
    if (!cursor_.AtKey()) return false;
    const uint32_t key = KeyOf(cursor_.key);
    // Past the last pair of the current key in one descent, however many indices it has.
    if (navByKey_) return tree_.UpperBound(Pair(key, UINT32_MAX), cursor_);
    if (tree_.Next(cursor_) && KeyOf(cursor_.key) == key) return true;
    cursor_.depth = 0;
    return false;
}

void LTreeIndexCollection::NavStop() const { cursor_.depth = 0; }
