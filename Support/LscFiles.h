// File helpers: wide-path opening, binary read/write by format string, narrowing of
// wide strings, and a POSIX memory-mapped file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// UTF-8 form of a wide path, as the operating system takes it. False for a null path
// or a character that has no UTF-8 form (a surrogate or a value above U+10FFFF).
bool LscWideToUtf8(const wchar_t* path, std::string& utf8);

// Wide form of a UTF-8 string (command-line paths). False for a null string or
// bytes that are not UTF-8.
bool LscUtf8ToWide(const char* utf8, std::wstring& wide);

// fopen on a wide path; null on failure or for a null path or mode.
FILE* fwopen(const wchar_t* path, const char* mode);

// Binary write and read by a format string, little-endian: 'l' is a 32-bit integer
// (an int32_t / uint32_t argument, or a pointer to one when reading), 'f' a float32
// (passed as double when writing, a float* when reading); blanks are ignored. The
// format is checked before anything is transferred, so an unknown character fails
// without touching the file. Non-zero when every item was transferred; 0 on a short
// write or read (items read before the short one are stored) or a null argument.
int32_t LL_fwrite_bin(FILE* file, const char* format, ...);
int32_t LL_fread_bin(FILE* file, const char* format, ...);

// Narrows `in` into `out` (at most size bytes, always terminated when size > 0);
// characters outside ASCII become '?'. Returns the number of characters written,
// without the terminator, or -1 for null arguments or size 0.
int unicode_to_ascii(char* out, const wchar_t* in, size_t size);

enum eLMMFOpenMode { LMMF_READ_ONLY = 1, LMMF_READ_WRITE_EXISTING = 3 };

// A memory-mapped file. All-zero bytes are its closed state, so callers may zero-fill
// it before Open; it also closes itself when destroyed. Not copyable.
class LscMemoryMappedFile {
public:
    LscMemoryMappedFile() = default;
    LscMemoryMappedFile(const LscMemoryMappedFile&) = delete;
    LscMemoryMappedFile& operator=(const LscMemoryMappedFile&) = delete;
    ~LscMemoryMappedFile() { Close(); }

    // Maps a whole regular file and returns its base, or null. Mode 1 maps read-only
    // and starts read-ahead of the whole file, since every reader here goes through
    // all of it; mode 3 maps read-write, shared, on an existing file. FIFOs, devices
    // and directories are refused without being opened. The trailing arguments are
    // unused and must be 0. An open object is closed first.
    // An empty file cannot be mapped, yet it is a valid file: Open then succeeds with
    // Size() 0 and a non-null base that must not be dereferenced; Resize can grow it.
    void* Open(const wchar_t* path, eLMMFOpenMode mode, uint32_t, uint32_t, uint64_t);
    // Sets the size of a read-write mapping's file and remaps it; returns the new base
    // (which may move), or null, in which case the file and mapping keep their old
    // size. Null too on a read-only or closed object. Grown bytes read as zero and
    // are allocated and faulted in at once, as callers grow a file to fill it. The
    // flag is unused.
    void* Resize(uint64_t size, bool);
    // Unmaps and closes without forcing a write-back (the kernel writes dirty pages
    // on its own). Safe on a closed or zero-filled object, and twice.
    void Close();

    uint64_t Size() const { return size_; }
    void* Base() const { return base_; }

private:
    bool Map(uint64_t size);

    void* base_ = nullptr;
    uint64_t size_ = 0;
    int fdPlusOne_ = 0;  // 0 when closed, so zero-fill means closed
    int writable_ = 0;
};
