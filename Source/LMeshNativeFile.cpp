// The native mesh file: the 56-byte header, then the vertex, facet and edge records
// exactly as they lie in the stores, dead slots and all links included. Because the
// file is a memory image, the fast route maps it and moves one whole store page per
// memcpy; a stdio route stands behind it for files and streams that cannot be mapped.
// Nothing is re-derived on load. Lengths from a file are never trusted: every reader
// checks the header's counts against the bytes actually there before it sizes a store,
// so a short or hostile file fails cleanly instead of reading past its end.
#include "LMeshNativeFile.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <sys/types.h>

// The mapped routes copy records as they lie in memory; the file is little-endian.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the native file is a little-endian memory image");

namespace {

constexpr uint64_t kHeaderBytes = sizeof(LM_MESH_HEADER);
constexpr const char* kHeaderFormat = "lllllll fff fff l";

}  // namespace

uint64_t FileBytesFor(uint64_t vertexSlots, uint64_t facetSlots, uint64_t edgeSlots)
{
    return kHeaderBytes + sizeof(LM_VERTEX) * (vertexSlots + edgeSlots) + sizeof(LM_FACET) * facetSlots;
}

uint64_t FileBytesFor(const LM_MESH_HEADER& header)
{
    return FileBytesFor(header.vertexSlots, header.facetSlots, header.edgeSlots);
}

bool ReadMeshHeader(FILE* file, LM_MESH_HEADER& header)
{
    const bool read = LL_fread_bin(file, kHeaderFormat, &header.magic, &header.vertexSlots, &header.vertexCount,
                                   &header.facetSlots, &header.facetCount, &header.edgeSlots, &header.edgeCount,
                                   &header.bboxMin[0], &header.bboxMin[1], &header.bboxMin[2], &header.bboxMax[0],
                                   &header.bboxMax[1], &header.bboxMax[2], &header.groupCount) != 0;
    return read && header.magic == LM_MESH_MAGIC;
}

bool WriteMeshHeader(FILE* file, const LM_MESH_HEADER& header)
{
    return LL_fwrite_bin(file, kHeaderFormat, header.magic, header.vertexSlots, header.vertexCount,
                         header.facetSlots, header.facetCount, header.edgeSlots, header.edgeCount,
                         double(header.bboxMin[0]), double(header.bboxMin[1]), double(header.bboxMin[2]),
                         double(header.bboxMax[0]), double(header.bboxMax[1]), double(header.bboxMax[2]),
                         header.groupCount) != 0;
}

bool ReadMappedHeader(const LscMemoryMappedFile& map, LM_MESH_HEADER& header)
{
    if (!map.Base() || map.Size() < kHeaderBytes) return false;  // never read past the mapping
    std::memcpy(&header, map.Base(), kHeaderBytes);
    return header.magic == LM_MESH_MAGIC;
}

namespace {

bool WriteMeshHeader(FILE* file, const L_LUMOMESH& mesh) { return WriteMeshHeader(file, LMeshGetHeader(mesh)); }

// Copies the first recordCount records of a store, one memcpy per page. The page size
// is the store's own, as a page is the largest run that is contiguous in memory.
template <class Record>
unsigned char* CopyRecordsToMapped(unsigned char* writePointer, const BaseList<Record>& list, uint32_t recordCount)
{
    // Copy only records the store holds: a header promising more slots must not read past it.
    const uint32_t available = std::min(recordCount, list.count);
    for (uint32_t first = 0; first < available; first += list.pageSize) {
        const size_t bytes = size_t(std::min(list.pageSize, available - first)) * sizeof(Record);
        std::memcpy(writePointer, list.Peek(first), bytes);
        writePointer += bytes;
    }
    return writePointer;
}

// The reverse: fills a store already sized to recordCount, one memcpy per page.
template <class Record>
const unsigned char* CopyRecordsFromMapped(const unsigned char* readPointer, BaseList<Record>& list,
                                           uint32_t recordCount)
{
    for (uint32_t first = 0; first < recordCount; first += list.pageSize) {
        const size_t bytes = size_t(std::min(list.pageSize, recordCount - first)) * sizeof(Record);
        std::memcpy(static_cast<void*>(list.At(first)), readPointer, bytes);
        readPointer += bytes;
    }
    return readPointer;
}

// An existing regular file is overwritten in place rather than truncated: reusing its
// cached pages and disk blocks halves the time of a save over an earlier one, and the
// mapped writer still sets the exact length. Anything else is opened as "wb".
FILE* OpenForOverwrite(const wchar_t* path)
{
    std::string utf8;
    struct stat info;
    const bool regular = LscWideToUtf8(path, utf8) && ::stat(utf8.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    FILE* file = regular ? std::fopen(utf8.c_str(), "r+b") : nullptr;
    return file ? file : fwopen(path, "wb");
}

bool WriteMeshMapped(const wchar_t* path, const L_LUMOMESH& mesh)
{
    try {
        // Writing the header first creates the file and makes it non-empty.
        FILE* file = OpenForOverwrite(path);
        if (!file) throw 0;
        const bool written = WriteMeshHeader(file, mesh);
        if (std::fclose(file) != 0 || !written) throw 0;

        LscMemoryMappedFile map;  // closes itself on every way out
        if (!map.Open(path, LMMF_READ_WRITE_EXISTING, 0, 0, 0)) throw 0;
        const uint64_t size = FileBytesFor(mesh.vertices.count, mesh.facets.count, mesh.edges.count);
        unsigned char* base = static_cast<unsigned char*>(map.Resize(size, false));
        if (!base) throw 0;

        unsigned char* writePointer = base + kHeaderBytes;
        writePointer = CopyRecordsToMapped(writePointer, mesh.vertices, mesh.vertexSlots);
        writePointer = CopyRecordsToMapped(writePointer, mesh.facets, mesh.facetSlots);
        writePointer = CopyRecordsToMapped(writePointer, mesh.edges, mesh.edgeSlots);
        // Header slots below the store counts leave bytes uncopied: zero them, as in a fresh file.
        std::memset(writePointer, 0, size_t(base + size - writePointer));
        map.Close();
        return true;
    } catch (int) {
        return false;
    }
}

bool SizeStores(L_LUMOMESH& mesh)
{
    return mesh.vertices.SetSize(mesh.vertexSlots) && mesh.facets.SetSize(mesh.facetSlots) &&
           mesh.edges.SetSize(mesh.edgeSlots);
}

bool ReadMeshMapped(const wchar_t* path, L_LUMOMESH& mesh)
{
    try {
        LscMemoryMappedFile map;
        const unsigned char* base = static_cast<const unsigned char*>(map.Open(path, LMMF_READ_ONLY, 0, 0, 0));
        if (!base) throw 0;
        if (map.Size() < kHeaderBytes) throw 0;  // too short for a header: never read past the mapping
        std::memcpy(&mesh.magic, base, sizeof mesh.magic);
        if (mesh.magic != LM_MESH_MAGIC) throw 0;

        LM_MESH_HEADER header;
        std::memcpy(&header, base, kHeaderBytes);
        if (FileBytesFor(header) > map.Size()) throw 0;  // counts promise more than the file holds
        LMeshSetHeader(mesh, header);
        // Stores are resized rather than cleared, so pages of an earlier mesh are reused.
        if (!SizeStores(mesh)) throw 0;  // out of memory: never copy into a missing page

        const unsigned char* readPointer = base + kHeaderBytes;
        readPointer = CopyRecordsFromMapped(readPointer, mesh.vertices, mesh.vertexSlots);
        readPointer = CopyRecordsFromMapped(readPointer, mesh.facets, mesh.facetSlots);
        CopyRecordsFromMapped(readPointer, mesh.edges, mesh.edgeSlots);
        map.Close();
        return true;
    } catch (int) {
        return false;
    }
}

template <class Record>
void WriteRecords(FILE* file, const BaseList<Record>& list)
{
    for (uint32_t first = 0; first < list.count; first += list.pageSize) {
        const size_t n = std::min(list.pageSize, list.count - first);
        if (std::fwrite(list.Peek(first), sizeof(Record), n, file) != n) throw 0;
    }
}

// Bytes left in a stream that can seek, or UINT64_MAX for one that cannot (a pipe).
uint64_t RemainingBytes(FILE* file)
{
    const off_t here = ftello(file);
    if (here < 0 || fseeko(file, 0, SEEK_END) != 0) return UINT64_MAX;
    const off_t end = ftello(file);
    if (fseeko(file, here, SEEK_SET) != 0) throw 0;
    return end > here ? uint64_t(end - here) : 0;
}

// Reads recordCount records into a store page by page, growing it only as whole
// pages arrive: a stream's header alone must never size a store.
template <class Record>
void ReadRecords(FILE* file, BaseList<Record>& list, uint32_t recordCount)
{
    if (list.count > recordCount && !list.SetSize(recordCount)) throw 0;
    for (uint32_t first = 0; first < recordCount; first += list.pageSize) {
        const uint32_t n = std::min(list.pageSize, recordCount - first);
        if (!list.At(first + n - 1)) throw 0;  // out of memory
        if (std::fread(static_cast<void*>(list.At(first)), sizeof(Record), n, file) != n) throw 0;
    }
}

void SetBoundsFromHeader(const LM_MESH_HEADER& header, L_BOUNDS& bounds)
{
    for (int k = 0; k < 3; ++k) bounds.min[k] = header.bboxMin[k];
    // Only the maximum x comes from bboxMax; y and z repeat the minimum's, as documented.
    bounds.max[0] = header.bboxMax[0];
    bounds.max[1] = header.bboxMin[1];
    bounds.max[2] = header.bboxMin[2];
}

void CopyVertexPositions(const unsigned char* records, uint32_t vertexSlots, float* out)
{
    for (uint32_t v = 0; v < vertexSlots; ++v)
        std::memcpy(out + size_t(v) * 3, records + size_t(v) * sizeof(LM_VERTEX), 3 * sizeof(float));
}

void PackLiveFacetCorners(const unsigned char* records, uint32_t facetSlots, uint32_t* out)
{
    LM_FACET facet;
    for (uint32_t f = 0; f < facetSlots; ++f) {
        std::memcpy(&facet, records + size_t(f) * sizeof(LM_FACET), sizeof facet);
        if (!(facet.flags & LM_LIVE)) continue;  // dead facets leave no gap
        std::memcpy(out, facet.vertex, sizeof facet.vertex);
        out += 3;
    }
}

}  // namespace

bool LMeshWriteToFile(const wchar_t* path, const L_LUMOMESH& mesh)
{
    bool mapped = false;
    FILE* file = nullptr;
    try {
        if (!path) throw 0;
        mapped = WriteMeshMapped(path, mesh);
        if (!mapped) {
            file = fwopen(path, "wb");
            if (!file) throw 0;
            if (!LMeshWriteToFile(file, mesh)) throw 0;
        }
    } catch (int) {
    }
    if (file) std::fclose(file);
    // Deliberately the mapped route's result: a whole file written by stdio still says false.
    return mapped;
}

bool LMeshWriteToFile(FILE* file, const L_LUMOMESH& mesh)
{
    try {
        if (!file) throw 0;
        if (!WriteMeshHeader(file, mesh)) throw 0;
        WriteRecords(file, mesh.vertices);
        WriteRecords(file, mesh.facets);
        WriteRecords(file, mesh.edges);
        return true;
    } catch (int) {
        return false;
    }
}

bool LMeshReadFromFile(const wchar_t* path, L_LUMOMESH& mesh)
{
    if (!path) return false;
    bool mapped = false;
    FILE* file = nullptr;
    try {
        mapped = ReadMeshMapped(path, mesh);
        if (!mapped) {
            mesh.Reset();
            file = fwopen(path, "rb");
            if (!file) throw 0;
            if (!LMeshReadFromFile(file, mesh)) throw 0;
        }
    } catch (int) {
        mesh.Reset();  // a failed read leaves no header promising records that are not there
    }
    if (file) std::fclose(file);
    // Deliberately the mapped route's result: a mesh read whole by stdio still says false.
    return mapped;
}

bool LMeshReadFromFile(FILE* file, L_LUMOMESH& mesh)
{
    if (!file) return false;
    try {
        LM_MESH_HEADER header;
        if (!ReadMeshHeader(file, header)) throw 0;
        // A stream that knows its length must hold the records before any store is sized.
        if (FileBytesFor(header) - kHeaderBytes > RemainingBytes(file)) throw 0;
        LMeshSetHeader(mesh, header);
        ReadRecords(file, mesh.vertices, header.vertexSlots);
        ReadRecords(file, mesh.facets, header.facetSlots);
        ReadRecords(file, mesh.edges, header.edgeSlots);
        return true;
    } catch (int) {
        mesh.Reset();
        return false;
    }
}

bool LMeshReadFileHeader(const wchar_t* path, LM_MESH_HEADER* header)
{
    if (!path || !header) return false;
    FILE* file = fwopen(path, "rb");
    if (!file) return false;
    const bool valid = ReadMeshHeader(file, *header);
    std::fclose(file);
    return valid;
}

bool LMeshReadFileBBox(const wchar_t* path, L_BOUNDS& bounds)
{
    if (!path) return false;
    FILE* file = fwopen(path, "rb");
    if (!file) return false;
    LM_MESH_HEADER header;
    const bool valid = ReadMeshHeader(file, header);
    std::fclose(file);  // closed on failure too, rather than leaked
    if (!valid) return false;
    SetBoundsFromHeader(header, bounds);
    return true;
}

bool LMeshReadMeshDataFromFile(const wchar_t* path, LM_MESH_HEADER& header, TObjArray<float>& vertices,
                               TObjArray<uint32_t>& facets)
{
    try {
        if (!path) throw 0;
        LscMemoryMappedFile map;
        const unsigned char* base = static_cast<const unsigned char*>(map.Open(path, LMMF_READ_ONLY, 0, 0, 0));
        if (!base) throw 0;
        if (map.Size() < kHeaderBytes) throw 0;  // too short for a header: never read past the mapping
        LM_MESH_HEADER read;
        std::memcpy(&read, base, kHeaderBytes);
        if (read.magic != LM_MESH_MAGIC) throw 0;
        if (FileBytesFor(read) > map.Size()) throw 0;  // counts promise more than the file holds
        // Three entries per slot must fit the arrays' 32-bit sizes.
        if (read.vertexSlots > UINT32_MAX / 3 || read.facetSlots > UINT32_MAX / 3) throw 0;
        header = read;

        vertices.SetSize(3 * read.vertexSlots);
        facets.SetSize(3 * read.facetSlots);
        // As documented, an empty store leaves its array without data, which fails the call.
        if (!vertices.data || !facets.data) throw 0;
        const unsigned char* vertexRecords = base + kHeaderBytes;
        CopyVertexPositions(vertexRecords, read.vertexSlots, vertices.data);
        PackLiveFacetCorners(vertexRecords + size_t(read.vertexSlots) * sizeof(LM_VERTEX), read.facetSlots,
                             facets.data);
        map.Close();
        return true;
    } catch (int) {
        return false;
    }
}
