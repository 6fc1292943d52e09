// BaseList: the paged array under every mesh store and nearly every index list.
//
// Elements live in fixed pages that never move once allocated; growth only
// reallocates the small table of page pointers. That keeps record pointers valid
// while a store grows and lets huge meshes live without one contiguous block. A
// list of one page has no table at all.
//
// Pages come zero-filled from l_memptr_alloc. Plain elements are used as they come;
// elements with a constructor (nested lists) are constructed for the whole page
// when it is allocated and destroyed for the whole page when it is freed.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "LscMemory.h"

template <class T>
class BaseList {
public:
    T** pageTable = nullptr;  // null while the list has at most one page
    T* firstPage = nullptr;   // page 0, with or without a table
    uint32_t tableGrowth;
    uint32_t tableCapacity = 0;
    uint32_t pageSize;
    uint32_t pageCount = 0;
    uint32_t pageShift;
    uint32_t offsetShift;
    uint32_t count = 0;  // one above the highest index touched or set

    BaseList() : BaseList(16, 128) {}

    // pageSize must be a power of two; the shifts follow from it.
    BaseList(uint32_t growth, uint32_t size)
        : tableGrowth(growth ? growth : 1), pageSize(size), pageShift(Log2(size)),
          offsetShift(32 - Log2(size))
    {
    }

    BaseList(const BaseList& other) : BaseList(other.tableGrowth, other.pageSize) { CopyFrom(other); }

    BaseList(BaseList&& other) noexcept : BaseList(other.tableGrowth, other.pageSize) { TakeFrom(other); }

    BaseList& operator=(const BaseList& other)
    {
        if (this != &other) CopyFrom(other);
        return *this;
    }

    BaseList& operator=(BaseList&& other) noexcept
    {
        if (this != &other) {
            Clear();
            TakeFrom(other);
        }
        return *this;
    }

    ~BaseList() { Clear(); }

    // Mutable access that grows the list: an index past the allocated pages extends
    // it, and any index at or past count raises count. Null only when memory runs out
    // or for the index 0xFFFFFFFF, which no list can hold.
    T* At(uint32_t i)
    {
        if (i == UINT32_MAX) return nullptr;  // count would wrap to 0
        const uint32_t page = i >> pageShift;
        if (page >= pageCount && !SetSize(i + 1)) return nullptr;
        T* base = page == 0 ? firstPage : pageTable[page];
        if (i >= count) count = i + 1;
        return base + (i & (pageSize - 1));
    }

    // Read access bounded by count; null at or past it.
    const T* Peek(uint32_t i) const
    {
        if (i >= count) return nullptr;
        const uint32_t page = i >> pageShift;
        const T* base = page == 0 ? firstPage : pageTable[page];
        return base + (i & (pageSize - 1));
    }

    // Grows or shrinks to n elements. Shrinking frees whole pages past the one
    // holding index n - 1 and trims the table; growing allocates pages up to the one
    // holding index n - 1. False when memory runs out (see each step for the state).
    bool SetSize(uint32_t n)
    {
        if (n == 0) {
            Clear();
            return true;
        }
        if (n <= count) {
            if (!Shrink(n)) return false;
        } else if (!MakeReachable(n - 1)) {
            return false;
        }
        count = n;
        return true;
    }

    // Frees every page and the table; the list's shape stays, so it can be reused.
    void Clear()
    {
        if (pageTable) {
            for (uint32_t p = 0; p < pageCount; ++p)
                if (pageTable[p]) FreePage(pageTable[p]);
            l_memptr_free(pageTable);
        } else if (firstPage) {
            FreePage(firstPage);
        }
        pageTable = nullptr;
        firstPage = nullptr;
        tableCapacity = 0;
        pageCount = 0;
        count = 0;
    }

    // Deep copy of another list, shape included. False (and this list left empty)
    // when memory runs out.
    bool CopyFrom(const BaseList& other)
    {
        Clear();
        try {
            CopyStorage(other);
            return true;
        } catch (int) {
            Clear();
            return false;
        }
    }

private:
    static uint32_t Log2(uint32_t size)
    {
        uint32_t shift = 0;
        while (shift < 31 && (1u << shift) < size) ++shift;
        return shift;
    }

    size_t PageBytes() const { return size_t(pageSize) * sizeof(T); }

    T* AllocatePage()
    {
        T* page = static_cast<T*>(l_memptr_alloc(nullptr, PageBytes()));
        if (page && !std::is_trivially_default_constructible<T>::value)
            for (uint32_t k = 0; k < pageSize; ++k) new (page + k) T();
        return page;
    }

    void FreePage(T* page)
    {
        if (!std::is_trivially_destructible<T>::value)
            for (uint32_t k = 0; k < pageSize; ++k) page[k].~T();
        l_memptr_free(page);
    }

    T** AllocateTable(uint32_t capacity) const
    {
        return static_cast<T**>(l_memptr_alloc(nullptr, size_t(capacity) * sizeof(T*)));
    }

    uint32_t CapacityFor(uint32_t page) const
    {
        uint64_t capacity = tableCapacity;
        while (capacity <= page) capacity += tableGrowth;
        return capacity > UINT32_MAX ? UINT32_MAX : uint32_t(capacity);
    }

    bool Shrink(uint32_t n)
    {
        const uint32_t keep = ((n - 1) >> pageShift) + 1;
        if (!pageTable) return true;  // one page at most: nothing to free
        for (uint32_t p = keep; p < pageCount; ++p) {
            FreePage(pageTable[p]);
            pageTable[p] = nullptr;
        }
        pageCount = keep;
        if (tableCapacity - (keep - 1) <= tableGrowth) return true;
        uint32_t capacity = tableCapacity;
        while (capacity > keep - 1) capacity -= tableGrowth;
        capacity += tableGrowth;
        T** table = AllocateTable(capacity);
        if (!table) {
            Clear();
            return false;
        }
        std::memcpy(table, pageTable, size_t(pageCount) * sizeof(T*));
        l_memptr_free(pageTable);
        pageTable = table;
        firstPage = table[0];
        tableCapacity = capacity;
        return true;
    }

    // Allocates pages pageCount .. lastPage into the table, one at a time.
    bool FillTable(uint32_t lastPage)
    {
        for (uint32_t p = pageCount; p <= lastPage; ++p) {
            pageTable[p] = AllocatePage();
            if (!pageTable[p]) return false;
            pageCount = p + 1;
        }
        return true;
    }

    bool MakeReachable(uint32_t i)
    {
        const uint32_t page = i >> pageShift;
        if (pageTable) return GrowTable(page);
        if (page > 0) return CreateTable(page);
        if (firstPage) return true;
        firstPage = AllocatePage();
        if (!firstPage) {
            Clear();
            return false;
        }
        pageCount = 1;
        return true;
    }

    bool GrowTable(uint32_t page)
    {
        if (page >= tableCapacity) {
            const uint32_t capacity = CapacityFor(page);
            void* table = l_memptr_alloc(pageTable, size_t(capacity) * sizeof(T*));
            if (!table) {
                Clear();
                return false;
            }
            pageTable = static_cast<T**>(table);
            tableCapacity = capacity;
        }
        for (uint32_t p = pageCount; p < tableCapacity; ++p) pageTable[p] = nullptr;
        if (!FillTable(page)) {
            Clear();
            return false;
        }
        firstPage = pageTable[0];
        return true;
    }

    bool CreateTable(uint32_t page)
    {
        const uint32_t capacity = CapacityFor(page);
        T** table = AllocateTable(capacity);
        if (!table) return false;
        pageTable = table;
        tableCapacity = capacity;
        if (firstPage) {
            pageTable[0] = firstPage;
            pageCount = 1;
        }
        if (!FillTable(page)) {
            Clear();
            return false;
        }
        if (!firstPage) firstPage = pageTable[0];
        return true;
    }

    static void CopyElements(T* to, const T* from, uint32_t n)
    {
        if (std::is_trivially_copyable<T>::value) {
            if (n) std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), size_t(n) * sizeof(T));
        } else {
            for (uint32_t k = 0; k < n; ++k) to[k] = from[k];
        }
    }

    T* CopiedPage(const T* source, uint32_t n)
    {
        T* page = AllocatePage();
        if (!page) throw 0;
        CopyElements(page, source, n);
        return page;
    }

    // Copies shape first, then storage page by page. Throws int on allocation failure.
    void CopyStorage(const BaseList& other)
    {
        tableGrowth = other.tableGrowth;
        pageSize = other.pageSize;
        pageShift = other.pageShift;
        offsetShift = other.offsetShift;
        if (!other.pageTable) {
            if (!other.firstPage) return;
            firstPage = CopiedPage(other.firstPage, other.count);
            pageCount = 1;
            count = other.count;
            return;
        }
        pageTable = AllocateTable(other.tableCapacity);
        if (!pageTable) throw 0;
        tableCapacity = other.tableCapacity;
        const uint32_t last = other.pageCount - 1;
        for (uint32_t p = 0; p < last; ++p) {
            pageTable[p] = CopiedPage(other.pageTable[p], pageSize);
            pageCount = p + 1;
        }
        const uint64_t before = uint64_t(pageSize) * last;
        const uint32_t tail = other.count < before ? pageSize : uint32_t(other.count - before);
        pageTable[last] = CopiedPage(other.pageTable[last], tail < pageSize ? tail : pageSize);
        pageCount = other.pageCount;
        firstPage = pageTable[0];
        count = other.count;
    }

    void TakeFrom(BaseList& other)
    {
        tableGrowth = other.tableGrowth;
        pageSize = other.pageSize;
        pageShift = other.pageShift;
        offsetShift = other.offsetShift;
        pageTable = other.pageTable;
        firstPage = other.firstPage;
        tableCapacity = other.tableCapacity;
        pageCount = other.pageCount;
        count = other.count;
        other.pageTable = nullptr;
        other.firstPage = nullptr;
        other.tableCapacity = 0;
        other.pageCount = 0;
        other.count = 0;
    }
};

// Appends one value at the end; false, with nothing written, when memory runs out.
// By value, so a field of a packed record can be passed as it stands.
template <class T, class V>
bool AppendTo(BaseList<T>& list, V value)
{
    T* slot = list.At(list.count);
    if (!slot) return false;
    *slot = value;
    return true;
}

// The entries in order, as a vector.
template <class T>
std::vector<T> ToVector(const BaseList<T>& list)
{
    std::vector<T> values;
    values.reserve(list.count);
    for (uint32_t i = 0; i < list.count; ++i) values.push_back(*list.Peek(i));
    return values;
}
