// File helpers on POSIX. Paths arrive as wide strings and reach the operating system
// as UTF-8. The binary helpers spell out little-endian byte order themselves instead
// of copying host memory, so the files they write mean the same on any machine. The
// mapped file is tuned for the way the library uses it: whole files are read front
// to back, and files are grown once and then filled.
#include "LscFiles.h"

#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void AppendUtf8(uint32_t c, std::string& out)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Checked up front so that a bad format transfers nothing.
bool IsValidFormat(const char* format)
{
    for (const char* p = format; *p; ++p)
        if (!IsBlank(*p) && *p != 'l' && *p != 'f') return false;
    return true;
}

void EncodeLittleEndian(uint32_t value, unsigned char* bytes)
{
    for (int k = 0; k < 4; ++k) bytes[k] = static_cast<unsigned char>(value >> (8 * k));
}

uint32_t DecodeLittleEndian(const unsigned char* bytes)
{
    uint32_t value = 0;
    for (int k = 0; k < 4; ++k) value |= uint32_t(bytes[k]) << (8 * k);
    return value;
}

// A non-null base for an empty file, which mmap refuses; Size() 0 forbids using it.
char gEmptyMapping;

}  // namespace

bool LscWideToUtf8(const wchar_t* path, std::string& utf8)
{
    utf8.clear();
    if (!path) return false;
    for (const wchar_t* p = path; *p; ++p) {
        const uint32_t c = static_cast<uint32_t>(*p);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;  // no UTF-8 form
        AppendUtf8(c, utf8);
    }
    return true;
}

bool LscUtf8ToWide(const char* utf8, std::wstring& wide)
{
    wide.clear();
    if (!utf8) return false;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8); *p;) {
        const int extra = *p < 0x80 ? 0 : (*p >> 5) == 6 ? 1 : (*p >> 4) == 14 ? 2 : (*p >> 3) == 30 ? 3 : -1;
        if (extra < 0) return false;
        uint32_t c = extra == 0 ? *p : *p & (0x3F >> extra);
        ++p;
        for (int k = 0; k < extra; ++k, ++p) {
            if ((*p & 0xC0) != 0x80) return false;  // also stops at the terminator
            c = (c << 6) | (*p & 0x3F);
        }
        static const uint32_t kLeast[4] = {0, 0x80, 0x800, 0x10000};
        if (c < kLeast[extra]) return false;  // overlong: would smuggle '/' or NUL past checks
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
        wide.push_back(static_cast<wchar_t>(c));
    }
    return true;
}

FILE* fwopen(const wchar_t* path, const char* mode)
{
    std::string utf8;
    if (!mode || !LscWideToUtf8(path, utf8)) return nullptr;
    return std::fopen(utf8.c_str(), mode);
}

// Walks a format string, handing each 'l' or 'f' item to `transfer`, which moves
// four bytes and says whether it worked. Non-zero when every item was transferred.
template <class Transfer>
int32_t TransferItems(FILE* file, const char* format, Transfer transfer)
{
    if (!file || !format || !IsValidFormat(format)) return 0;
    for (const char* p = format; *p; ++p)
        if (!IsBlank(*p) && !transfer(*p)) return 0;
    return 1;
}

int32_t LL_fwrite_bin(FILE* file, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t result = TransferItems(file, format, [&](char item) {
        uint32_t bits;
        if (item == 'l') {
            bits = va_arg(args, uint32_t);
        } else {
            const float value = static_cast<float>(va_arg(args, double));
            std::memcpy(&bits, &value, 4);
        }
        unsigned char bytes[4];
        EncodeLittleEndian(bits, bytes);
        return std::fwrite(bytes, 4, 1, file) == 1;
    });
    va_end(args);
    return result;
}

int32_t LL_fread_bin(FILE* file, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int32_t result = TransferItems(file, format, [&](char item) {
        void* target = item == 'l' ? static_cast<void*>(va_arg(args, uint32_t*))
                                   : static_cast<void*>(va_arg(args, float*));
        unsigned char bytes[4];
        if (!target || std::fread(bytes, 4, 1, file) != 1) return false;
        const uint32_t bits = DecodeLittleEndian(bytes);
        std::memcpy(target, &bits, 4);  // the same four bytes serve an integer or a float
        return true;
    });
    va_end(args);
    return result;
}

int unicode_to_ascii(char* out, const wchar_t* in, size_t size)
{
    if (!out || !in || size == 0) return -1;
    size_t n = 0;
    for (; in[n] && n + 1 < size; ++n) {
        const uint32_t c = static_cast<uint32_t>(in[n]);
        out[n] = c < 0x80 ? char(c) : '?';
    }
    out[n] = '\0';
    return int(n);
}

void* LscMemoryMappedFile::Open(const wchar_t* path, eLMMFOpenMode mode, uint32_t, uint32_t, uint64_t)
{
    Close();
    std::string utf8;
    if (!LscWideToUtf8(path, utf8)) return nullptr;
    if (mode != LMMF_READ_ONLY && mode != LMMF_READ_WRITE_EXISTING) return nullptr;
    // Only regular files map; a FIFO or device is refused before opening, which
    // could block or disturb whoever is at its other end.
    struct stat info;
    if (::stat(utf8.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return nullptr;
    writable_ = mode == LMMF_READ_WRITE_EXISTING;
    const int fd = ::open(utf8.c_str(), (writable_ ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return nullptr;
    fdPlusOne_ = fd + 1;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || !Map(uint64_t(info.st_size))) {
        Close();
        return nullptr;
    }
    if (!writable_ && size_ > 0) ::madvise(base_, size_, MADV_WILLNEED);  // start read-ahead of it all
    return base_;
}

// Maps the first `size` bytes of the open file in place of no mapping.
bool LscMemoryMappedFile::Map(uint64_t size)
{
    if (size == 0) {
        base_ = &gEmptyMapping;
        size_ = 0;
        return true;
    }
    if (size > SIZE_MAX) return false;
    const int protection = writable_ ? PROT_READ | PROT_WRITE : PROT_READ;
    // Shared, so that writes reach the file without an explicit flush.
    const int sharing = writable_ ? MAP_SHARED : MAP_PRIVATE;
    void* base = ::mmap(nullptr, size_t(size), protection, sharing, fdPlusOne_ - 1, 0);
    if (base == MAP_FAILED) return false;
    base_ = base;
    size_ = size;
    return true;
}

void* LscMemoryMappedFile::Resize(uint64_t size, bool)
{
    if (!fdPlusOne_ || !writable_) return nullptr;
    if (size > uint64_t(INT64_MAX) || size > SIZE_MAX) return nullptr;
    if (size == size_) return base_;
    const int fd = fdPlusOne_ - 1;
    const uint64_t oldSize = size_;
    // Allocating the blocks up front makes the page faults of the later fill much
    // cheaper than on a sparse file; a file system without fallocate still truncates.
    const bool grown = size > oldSize && ::fallocate(fd, 0, off_t(oldSize), off_t(size - oldSize)) == 0;
    if (!grown && ::ftruncate(fd, off_t(size)) != 0) return nullptr;

    void* base = nullptr;
    if (oldSize == 0) {
        if (!Map(size)) base = MAP_FAILED;
        else base = base_;
    } else if (size == 0) {
        ::munmap(base_, size_t(oldSize));
        base = &gEmptyMapping;
    } else {
        base = ::mremap(base_, size_t(oldSize), size_t(size), MREMAP_MAYMOVE);
    }
    if (base == MAP_FAILED) {
        // Keep file and mapping in step: the old mapping is still intact.
        if (::ftruncate(fd, off_t(oldSize)) != 0) Close();
        return nullptr;
    }
    base_ = base;
    size_ = size;
#ifdef MADV_POPULATE_WRITE
    // A grown file is about to be filled: fault its new pages in with one call rather
    // than one trap per page. Older kernels refuse, which costs only speed.
    if (size > oldSize) {
        const uint64_t pageMask = uint64_t(::sysconf(_SC_PAGESIZE)) - 1;
        const uint64_t from = oldSize & ~pageMask;
        ::madvise(static_cast<char*>(base_) + from, size_t(size - from), MADV_POPULATE_WRITE);
    }
#endif
    return base_;
}

void LscMemoryMappedFile::Close()
{
    if (base_ && size_ > 0) ::munmap(base_, size_t(size_));
    if (fdPlusOne_) ::close(fdPlusOne_ - 1);
    base_ = nullptr;
    size_ = 0;
    fdPlusOne_ = 0;
    writable_ = 0;
}
