// Tells binary STL from ASCII STL by the file's size and first bytes.
//
// A binary file is 84 + 50 x count bytes, the count sitting at offset 80, and that
// exact size decides first, since many binary writers begin their 80-byte header
// with "solid" too. Files that miss it by padding or truncation are still binary when
// they do not begin with "solid", or when they hold a byte that text never holds (a
// NUL or another control character) in their first kilobyte: the count's high byte
// alone is 0 for any file under 16 million facets. What remains and begins with
// "solid" (in any case, after blanks) is ASCII.
#include "LscFiles.h"
#include "LscFormats.h"

#include <cstring>
#include <strings.h>

#include <sys/stat.h>

namespace nsLscApi {
namespace {

constexpr uint64_t kHeaderBytes = 84;
constexpr uint64_t kRecordBytes = 50;
constexpr size_t kSniffBytes = 1024;

struct FileStart {
    unsigned char bytes[kSniffBytes];
    size_t length = 0;    // bytes read into `bytes`
    uint64_t size = 0;    // of the whole file
};

uint32_t CountAt80(const FileStart& start)
{
    const unsigned char* p = start.bytes + 80;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool HasExactBinarySize(const FileStart& start)
{
    return start.size >= kHeaderBytes && start.length >= kHeaderBytes &&
           start.size == kHeaderBytes + kRecordBytes * CountAt80(start);
}

bool IsSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool BeginsWithSolid(const FileStart& start)
{
    size_t i = 0;
    while (i < start.length && IsSpace(start.bytes[i])) ++i;
    return start.length - i >= 5 && ::strncasecmp(reinterpret_cast<const char*>(start.bytes + i), "solid", 5) == 0;
}

bool HoldsNonText(const FileStart& start)
{
    for (size_t i = 0; i < start.length; ++i) {
        const unsigned char c = start.bytes[i];
        if ((c < ' ' && !IsSpace(c)) || c == 0x7F) return true;
    }
    return false;
}

eLscFileType Classify(const FileStart& start)
{
    if (HasExactBinarySize(start)) return LSC_FILE_STL_BINARY;
    const bool holdsHeader = start.size >= kHeaderBytes;
    if (!BeginsWithSolid(start)) return holdsHeader ? LSC_FILE_STL_BINARY : LSC_FILE_UNKNOWN;
    return holdsHeader && HoldsNonText(start) ? LSC_FILE_STL_BINARY : LSC_FILE_STL_ASCII;
}

}  // namespace

eLscFileType LscLibCheckSTLFileType(const wchar_t* path)
{
    std::string utf8;
    struct stat info;
    // Only regular files: opening a FIFO would wait for a writer.
    if (!LscWideToUtf8(path, utf8) || ::stat(utf8.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return LSC_FILE_UNKNOWN;
    FILE* file = std::fopen(utf8.c_str(), "rb");
    if (!file) return LSC_FILE_UNKNOWN;
    FileStart start;
    start.length = std::fread(start.bytes, 1, kSniffBytes, file);
    const bool sized = ::fstat(fileno(file), &info) == 0;
    std::fclose(file);
    if (!sized) return LSC_FILE_UNKNOWN;
    start.size = uint64_t(info.st_size);
    return Classify(start);
}

}  // namespace nsLscApi
