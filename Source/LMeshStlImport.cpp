// STL and PLY import: triangles are read from the file and each goes through the
// merging insert, which welds corners, shares edges and computes the normal, so the
// file's own normals and attributes are never used.
//
// Binary STL is read in large blocks and handed over record by record; the result is
// what reading one 50-byte record at a time would give, including a truncated file
// keeping the facets read before the cut. The header's count is never trusted to size
// anything: the lookups are sized from the bytes the file holds. ASCII STL is read
// token by token with a corner counter that only "facet" resets, so the format's
// looser files (four corners, repeated "endfacet") load as they always have.
// Keywords are matched without regard to case, because some writers emit "FACET" and
// "VERTEX".
#include "LMeshBuild.h"
#include "LscFormats.h"

#include <algorithm>
#include <cstring>
#include <strings.h>
#include <vector>

#include <sys/stat.h>

// Binary STL floats are little-endian and are copied as they lie.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "binary STL is read as a little-endian image");

namespace {

constexpr long kCountOffset = 80;
constexpr uint64_t kRecordsOffset = 84;
constexpr size_t kRecordBytes = 50;
constexpr size_t kCornersOffset = 12;     // the normal comes first
constexpr size_t kBlockRecords = 4096;    // about 200 KB per fread
constexpr uint64_t kAsciiFacetBytes = 200;  // a short ASCII facet, for the size hint

// Bytes of a regular file, or 0 when the stream has no known length (a pipe).
uint64_t FileBytes(FILE* file)
{
    struct stat info;
    if (::fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
    return uint64_t(info.st_size);
}

// The merging insert's hint: no more triangles than the file can hold.
uint32_t ExpectedTriangles(uint64_t bytes, uint64_t bytesPerTriangle, uint32_t promised)
{
    return uint32_t(std::min<uint64_t>(promised, bytes / bytesPerTriangle));
}

bool ReadFacetCount(FILE* file, uint32_t& count)
{
    unsigned char bytes[4];
    if (std::fseek(file, kCountOffset, SEEK_SET) != 0 || std::fread(bytes, 1, 4, file) != 4) return false;
    count = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
    return true;
}

// True when every one of the count records was read and added; the facets before a
// short read stay in the mesh either way.
bool LoadBinaryStl(FILE* file, float tolerance, L_LUMOMESH& mesh)
{
    uint32_t count = 0;
    if (!ReadFacetCount(file, count) || count == 0) return false;
    const uint64_t fileBytes = FileBytes(file);
    const uint64_t recordBytes = fileBytes > kRecordsOffset ? fileBytes - kRecordsOffset : 0;
    MergingInserter inserter(mesh, tolerance, ExpectedTriangles(recordBytes, kRecordBytes, count));

    std::vector<unsigned char> block(kBlockRecords * kRecordBytes);
    for (uint32_t remaining = count; remaining > 0;) {
        const size_t wanted = std::min<size_t>(remaining, kBlockRecords);
        const size_t got = std::fread(block.data(), kRecordBytes, wanted, file);
        for (size_t r = 0; r < got; ++r) {
            float corners[9];
            std::memcpy(corners, block.data() + r * kRecordBytes + kCornersOffset, sizeof corners);
            if (!inserter.AddMergedFacet(corners)) return false;  // out of memory
        }
        if (got < wanted) return false;  // the file ends before its count
        remaining -= uint32_t(got);
    }
    return true;
}

bool IsKeyword(const char* token, const char* keyword) { return ::strcasecmp(token, keyword) == 0; }

// True once a facet was added, until a vertex line fails to give three numbers.
bool LoadAsciiStl(FILE* file, float tolerance, L_LUMOMESH& mesh)
{
    MergingInserter inserter(mesh, tolerance, ExpectedTriangles(FileBytes(file), kAsciiFacetBytes, UINT32_MAX));
    bool loaded = false;
    float corners[9] = {};
    int counter = 0;
    char token[256];  // a longer token is read as several; none of them is a keyword
    while (std::fscanf(file, "%255s", token) == 1) {
        if (IsKeyword(token, "facet")) {
            counter = 0;
        } else if (IsKeyword(token, "endfacet")) {
            if (counter < 3) continue;  // too few corners: the facet is dropped
            if (!inserter.AddMergedFacet(corners)) return false;
            loaded = true;
        } else if (counter < 3 && IsKeyword(token, "vertex")) {
            float* corner = corners + 3 * counter;
            if (std::fscanf(file, "%f %f %f", &corner[0], &corner[1], &corner[2]) != 3) return false;
            ++counter;
        }
    }
    return loaded;
}

}  // namespace

bool LMeshLoadFromSTL(const wchar_t* path, float tolerance, L_LUMOMESH* mesh)
{
    if (!path || !mesh) return false;
    const bool binary = nsLscApi::LscLibCheckSTLFileType(path) == nsLscApi::LSC_FILE_STL_BINARY;
    FILE* file = fwopen(path, binary ? "rb" : "r");
    if (!file) return false;
    bool loaded = false;
    try {
        loaded = binary ? LoadBinaryStl(file, tolerance, *mesh) : LoadAsciiStl(file, tolerance, *mesh);
    } catch (...) {
        // Out of memory while sizing the lookups; the facets added so far stay.
    }
    std::fclose(file);
    return loaded;
}

short LMeshReadPlyFile(const wchar_t* path, L_LUMOMESH& mesh, short tolerance)
{
    float* data = nullptr;
    uint32_t count = 0;
    const short read = nsLscApi::LscLibReadPlyFile(path, data, count);
    if (read != 0) return read;
    // The short is a welding distance in whole units; PLY data is never scaled.
    const int triangles = int(std::min<uint32_t>(count, INT32_MAX));
    const short status = LMeshReadVertexListIntoLumoMesh(data, triangles, mesh, float(tolerance), 0);
    if (status == 0) LMeshRecomputeNormals(mesh);
    nsLscApi::LscLibFreePlyFileData(data);
    return status;
}
