// The allocator keeps a 16-byte prefix holding the block's size in front of every
// block: growth must zero exactly the bytes it adds, and the running totals let the
// benchmarks report the library's own peak memory.
#include "LscMemory.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kPrefix = 16;  // keeps the user block 16-byte aligned

uint64_t gBytesInUse = 0;
uint64_t gPeakBytes = 0;

void CountAllocated(size_t added)
{
    gBytesInUse += added;
    if (gBytesInUse > gPeakBytes) gPeakBytes = gBytesInUse;
}

size_t& StoredSize(void* base) { return *static_cast<size_t*>(base); }

}  // namespace

void* l_memptr_alloc(void* old, size_t size)
{
    if (size > SIZE_MAX - kPrefix) return nullptr;
    if (!old) {
        void* base = std::calloc(1, size + kPrefix);
        if (!base) return nullptr;
        StoredSize(base) = size;
        CountAllocated(size);
        return static_cast<char*>(base) + kPrefix;
    }
    void* oldBase = static_cast<char*>(old) - kPrefix;
    const size_t oldSize = StoredSize(oldBase);
    void* base = std::realloc(oldBase, size + kPrefix);
    if (!base) return nullptr;
    char* block = static_cast<char*>(base) + kPrefix;
    if (size > oldSize) std::memset(block + oldSize, 0, size - oldSize);
    StoredSize(base) = size;
    gBytesInUse -= oldSize;
    CountAllocated(size);
    return block;
}

void l_memptr_free(void* p)
{
    if (!p) return;
    void* base = static_cast<char*>(p) - kPrefix;
    gBytesInUse -= StoredSize(base);
    std::free(base);
}

void* _l_calloc(size_t n, size_t size, const char*, int, const char*)
{
    if (size != 0 && n > SIZE_MAX / size) return nullptr;
    return l_memptr_alloc(nullptr, n * size);
}

uint64_t l_memptr_bytes_in_use() { return gBytesInUse; }
uint64_t l_memptr_peak_bytes() { return gPeakBytes; }
void l_memptr_reset_peak() { gPeakBytes = gBytesInUse; }
