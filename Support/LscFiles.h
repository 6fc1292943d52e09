// File helpers: wide-path opening, binary read/write by format string, narrowing of
// wide strings, and a POSIX memory-mapped file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// UTF-8 form of a wide path, as the operating system takes it. False for a null path
// or a character that has no UTF-8 form.
bool LscWideToUtf8(const wchar_t* path, std::string& utf8);

// fopen on a wide path; null on failure or for a null path or mode.
FILE* fwopen(const wchar_t* path, const char* mode);

// Binary write and read by a format string, little-endian: 'l' is a 32-bit integer
// (an int32_t / uint32_t argument, or a pointer to one when reading), 'f' a float32
// (passed as double when writing, a float* when reading); blanks are ignored and any
// other character fails. Non-zero when every item was transferred.
int32_t LL_fwrite_bin(FILE* file, const char* format, ...);
int32_t LL_fread_bin(FILE* file, const char* format, ...);

// Narrows `in` into `out` (at most size bytes, always terminated when size > 0);
// characters outside ASCII become '?'. Returns the number of characters written,
// without the terminator, or -1 for null arguments or size 0.
int unicode_to_ascii(char* out, const wchar_t* in, size_t size);

enum eLMMFOpenMode { LMMF_READ_ONLY = 1, LMMF_READ_WRITE_EXISTING = 3 };

// A memory-mapped file. All-zero bytes are its closed state, so callers may zero-fill
// it before Open; it also closes itself when destroyed.
class LscMemoryMappedFile {
public:
    // Maps a whole file and returns its base, or null. Mode 1 maps read-only, mode 3
    // read-write on an existing file. The trailing arguments are unused and must be 0.
    // An empty file maps to a non-null base with Size() 0.
    void* Open(const wchar_t* path, eLMMFOpenMode mode, uint32_t, uint32_t, uint64_t);
    // Changes the size of a read-write mapping's file and remaps it; the new base, or
    // null (the file then stays open at its old size).
    void* Resize(uint64_t size, bool);
    // Unmaps and closes; safe to call on a closed or zeroed object, and twice.
    void Close();
    uint64_t Size() const { return size_; }
    void* Base() const { return base_; }
    ~LscMemoryMappedFile() { Close(); }

private:
    void* base_ = nullptr;
    uint64_t size_ = 0;
    int fdPlusOne_ = 0;  // 0 when closed, so zero-fill means closed
    int writable_ = 0;
};
