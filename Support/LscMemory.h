// Tracked, zero-filling allocator and the flat owned array built on it.
//
// Every block of the library comes from l_memptr_alloc. Blocks carry their size in
// a small prefix so that growth can zero exactly the bytes it adds: code all over the
// library reads fields of records it has only partly written and relies on zeros.
#pragma once

#include <cstddef>
#include <cstdint>

// A new zero-filled block of `size` bytes when `old` is null; otherwise `old` resized
// with its contents kept and any added bytes zeroed. Null on failure (`old` is then
// left untouched). A size of 0 yields a valid, empty block.
void* l_memptr_alloc(void* old, size_t size);

// Frees a block from l_memptr_alloc. Null is ignored.
void l_memptr_free(void* p);

// Zero-filled n * size bytes; the location arguments are for diagnostics only.
// Null on failure or when n * size overflows.
void* _l_calloc(size_t n, size_t size, const char* file, int line, const char* text);

// Bytes currently held by l_memptr_alloc blocks, and the highest that figure reached.
uint64_t l_memptr_bytes_in_use();
uint64_t l_memptr_peak_bytes();
void l_memptr_reset_peak();

// A flat owned array of plain elements. SetSize discards the old contents: the array
// is sized once and then filled. Allocation failure raises an int, which the library
// catches inside the function that called SetSize.
template <class T>
class TObjArray {
public:
    uint32_t capacity = 0;
    uint32_t count = 0;
    T* data = nullptr;

    TObjArray() = default;
    TObjArray(const TObjArray&) = delete;
    TObjArray& operator=(const TObjArray&) = delete;
    ~TObjArray() { Free(); }

    void SetSize(uint32_t n)
    {
        Free();
        if (n == 0) return;
        void* block = l_memptr_alloc(nullptr, size_t(n) * sizeof(T));
        if (!block) throw 0;
        data = static_cast<T*>(block);
        capacity = n;
        count = n;
    }

private:
    void Free()
    {
        if (data) l_memptr_free(data);
        data = nullptr;
        capacity = 0;
        count = 0;
    }
};
