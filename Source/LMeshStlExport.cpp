// Binary STL export, from a mesh in memory or straight from a saved native file.
//
// Every file starts with the same 84-byte block: "ZEFA", 76 zero bytes and the facet
// count. It is written with count 0 before the records and again with the final
// count once they are all out, so a run that fails half-way leaves a file that claims
// no facets. The in-memory writer rotates stored normals by the matrix and scales
// corners with or without one. The conversion routes differ on purpose: they write
// the stored normal whatever the matrix, and take corners only through the matrix
// (scaled after it), so a null matrix leaves the corner bytes zero; callers pass an
// identity for a plain conversion. Records are built in a buffer and written a block
// at a time; the stdio conversions still seek per record in the native file, since
// they are the fallback for files that cannot be mapped.
#include "LMeshNativeFile.h"

#include <algorithm>
#include <cstring>
#include <vector>

// Records are built from host floats; binary STL is little-endian.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "binary STL is written as a little-endian image");

namespace {

constexpr size_t kHeadBytes = 84;
constexpr size_t kRecordBytes = 50;
constexpr size_t kBlockRecords = 20000;  // about 1 MB per fwrite

// The 84 bytes in front of the records.
struct StlHead {
    unsigned char bytes[kHeadBytes] = {'Z', 'E', 'F', 'A'};

    uint32_t Count() const
    {
        return uint32_t(bytes[80]) | uint32_t(bytes[81]) << 8 | uint32_t(bytes[82]) << 16 | uint32_t(bytes[83]) << 24;
    }
    void SetCount(uint32_t count)
    {
        for (int k = 0; k < 4; ++k) bytes[80 + k] = static_cast<unsigned char>(count >> (8 * k));
    }
};

// Writes the block at the stream's position; an int is thrown on failure.
void WriteHead(FILE* file, const StlHead& head)
{
    if (std::fwrite(head.bytes, kHeadBytes, 1, file) != 1) throw 0;
}

void SeekToStart(FILE* file)
{
    if (std::fseek(file, 0, SEEK_SET) != 0) throw 0;
}

// Collects 50-byte records and writes them a block at a time.
class RecordWriter {
public:
    // The buffer holds a block, or all the records when fewer are expected.
    RecordWriter(FILE* file, uint32_t expectedRecords)
        : file_(file), capacity_(std::max<size_t>(1, std::min<size_t>(expectedRecords, kBlockRecords))),
          buffer_(capacity_ * kRecordBytes)
    {
    }

    bool Add(const float* normal, const float* corners)
    {
        unsigned char* record = buffer_.data() + pending_ * kRecordBytes;
        std::memcpy(record, normal, 12);
        std::memcpy(record + 12, corners, 36);
        record[48] = record[49] = 0;  // attribute
        return ++pending_ < capacity_ || Flush();
    }

    bool Flush()
    {
        const size_t put = pending_ ? std::fwrite(buffer_.data(), kRecordBytes, pending_, file_) : 0;
        const bool whole = put == pending_;
        written_ += uint32_t(put);
        pending_ = 0;
        return whole;
    }

    // Records that reached the stream.
    uint32_t Written() const { return written_; }

private:
    FILE* file_;
    size_t capacity_;
    std::vector<unsigned char> buffer_;
    size_t pending_ = 0;
    uint32_t written_ = 0;
};

// The matrix, when there is one, then the scale, when it is not 0 (a NaN scale
// multiplies too).
void PlaceCorner(float* p, const L_MATRIX* matrix, float scale)
{
    if (matrix) {
        L_POINT3f point{p[0], p[1], p[2]};
        mat_transform_pointf(&point, matrix, &point);
        p[0] = point.x, p[1] = point.y, p[2] = point.z;
    }
    if (scale != 0.0f)
        for (int k = 0; k < 3; ++k) p[k] *= scale;
}

void RotateNormal(float* n, const L_MATRIX& matrix)
{
    L_VECTOR v{n[0], n[1], n[2]};
    mat_rotate_vector(&v, &matrix, &v);
    normalise(&v);
    n[0] = float(v.x), n[1] = float(v.y), n[2] = float(v.z);
}

// One facet of a mesh in memory; false when a corner names no vertex slot, which a
// well-formed mesh never does, so that no read goes past the store.
bool BuildMeshRecord(const L_LUMOMESH& mesh, const LM_FACET& facet, const L_MATRIX* matrix, float scale,
                     float* normal, float* corners)
{
    for (int k = 0; k < 3; ++k) normal[k] = facet.normal[k];
    if (matrix) RotateNormal(normal, *matrix);
    for (int c = 0; c < 3; ++c) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[c]);
        if (!vertex) return false;
        for (int k = 0; k < 3; ++k) corners[3 * c + k] = vertex->position[k];
        PlaceCorner(corners + 3 * c, matrix, scale);
    }
    return true;
}

// Writes the live facets among all slots, or among the listed ids in their order;
// count is the number of records that reached the stream.
bool WriteFacets(FILE* file, const L_LUMOMESH& mesh, const L_MATRIX* matrix, float scale, uint32_t& count,
                 const BaseList<uint32_t>* list)
{
    count = 0;
    if (!file) return false;
    const uint32_t visits = list ? list->count : mesh.facets.count;
    RecordWriter writer(file, visits);
    bool written = true;
    for (uint32_t i = 0; i < visits && written; ++i) {
        const LM_FACET* facet = mesh.facets.Peek(list ? *list->Peek(i) : i);
        if (!facet || !(facet->flags & LM_LIVE)) continue;  // an id past the slots is skipped like a dead one
        float normal[3], corners[9];
        if (!BuildMeshRecord(mesh, *facet, matrix, scale, normal, corners)) continue;
        written = writer.Add(normal, corners);
    }
    written = writer.Flush() && written;
    count = writer.Written();
    return written;
}

// Records of a saved native file read with one seek and one read each.
class StdioNativeFile {
public:
    explicit StdioNativeFile(FILE* file) : file_(file) {}
    void ReadHeader()
    {
        if (!ReadMeshHeader(file_, header_)) throw 0;
    }
    const LM_MESH_HEADER& Header() const { return header_; }
    void Read(uint64_t offset, void* record, size_t bytes) const
    {
        if (fseeko(file_, off_t(offset), SEEK_SET) != 0 || std::fread(record, bytes, 1, file_) != 1) throw 0;
    }

private:
    FILE* file_;
    LM_MESH_HEADER header_{};
};

// The same records read in place from a mapping, bounded by its size.
class MappedNativeFile {
public:
    MappedNativeFile(const unsigned char* base, uint64_t size) : base_(base), size_(size)
    {
        Read(0, &header_, sizeof header_);  // the magic is not tested on this route
    }
    const LM_MESH_HEADER& Header() const { return header_; }
    void Read(uint64_t offset, void* record, size_t bytes) const
    {
        if (offset > size_ || size_ - offset < bytes) throw 0;  // never read past the mapping
        std::memcpy(record, base_ + offset, bytes);
    }

private:
    const unsigned char* base_;
    uint64_t size_;
    LM_MESH_HEADER header_{};
};

// One live facet of a native file: the stored normal, and corners through the matrix.
template <class NativeFile>
void BuildFileRecord(const NativeFile& file, const LM_FACET& facet, const L_MATRIX* matrix, float scale,
                     float* normal, float* corners)
{
    for (int k = 0; k < 3; ++k) normal[k] = facet.normal[k];
    for (int c = 0; c < 3; ++c) {
        LM_VERTEX vertex;
        file.Read(FileBytesFor(facet.vertex[c], 0, 0), &vertex, sizeof vertex);
        float* corner = corners + 3 * c;
        if (!matrix) continue;  // corners are taken only through a matrix
        for (int k = 0; k < 3; ++k) corner[k] = vertex.position[k];
        PlaceCorner(corner, matrix, scale);
    }
}

// Writes the live facets of the file's facet slots; an int is thrown on failure after
// the records built so far were handed to the stream.
template <class NativeFile>
uint32_t ConvertFacets(const NativeFile& file, FILE* stl, const L_MATRIX* matrix, float scale)
{
    const LM_MESH_HEADER& header = file.Header();
    RecordWriter writer(stl, header.facetSlots);
    float normal[3], corners[9] = {};
    try {
        for (uint32_t f = 0; f < header.facetSlots; ++f) {
            LM_FACET facet;
            file.Read(FileBytesFor(header.vertexSlots, f, 0), &facet, sizeof facet);
            if (!(facet.flags & LM_LIVE)) continue;
            BuildFileRecord(file, facet, matrix, scale, normal, corners);
            if (!writer.Add(normal, corners)) throw 0;
        }
    } catch (int) {
        writer.Flush();  // leave the partial file a record-by-record writer would leave
        throw;
    }
    if (!writer.Flush()) throw 0;
    return writer.Written();
}

enum class StlTarget { New, Append };

FILE* OpenStl(const wchar_t* path, StlTarget target) { return fwopen(path, target == StlTarget::New ? "wb" : "r+b"); }

void StartStl(FILE* stl, StlTarget target)
{
    if (target == StlTarget::New)
        WriteHead(stl, StlHead());
    else if (std::fseek(stl, 0, SEEK_END) != 0)
        throw 0;
}

// A new file gets the fresh block with the count; an appended one keeps its own 80
// bytes and adds the count to the one it had.
void EndStl(FILE* stl, StlTarget target, uint32_t count)
{
    StlHead head;
    SeekToStart(stl);
    if (target == StlTarget::Append) {
        if (std::fread(head.bytes, kHeadBytes, 1, stl) != 1) throw 0;
        head.SetCount(head.Count() + count);
        SeekToStart(stl);
    } else {
        head.SetCount(count);
    }
    WriteHead(stl, head);
}

template <class NativeFile>
void ConvertToStl(const NativeFile& file, FILE* stl, StlTarget target, const L_MATRIX* matrix, float scale)
{
    StartStl(stl, target);
    const uint32_t count = ConvertFacets(file, stl, matrix, scale);
    EndStl(stl, target, count);
}

bool ConvertFileByStdio(const wchar_t* meshPath, const wchar_t* stlPath, StlTarget target, const L_MATRIX* matrix,
                        float scale)
{
    if (!meshPath || !stlPath) return false;
    FILE* meshFile = fwopen(meshPath, "rb");
    if (!meshFile) return false;
    FILE* stl = OpenStl(stlPath, target);
    if (!stl) {
        std::fclose(meshFile);
        return false;
    }
    bool converted = true;
    try {
        StdioNativeFile file(meshFile);
        file.ReadHeader();
        ConvertToStl(file, stl, target, matrix, scale);
    } catch (int) {
        converted = false;
    }
    std::fclose(meshFile);
    return std::fclose(stl) == 0 && converted;
}

bool ConvertFileByMapping(const wchar_t* meshPath, const wchar_t* stlPath, StlTarget target, const L_MATRIX* matrix,
                          float scale)
{
    if (!meshPath || !stlPath) return false;
    LscMemoryMappedFile map;  // closed on every way out
    const void* base = map.Open(meshPath, LMMF_READ_ONLY, 0, 0, 0);
    if (!base) return ConvertFileByStdio(meshPath, stlPath, target, matrix, scale);
    FILE* stl = OpenStl(stlPath, target);
    if (!stl) return false;
    bool converted = true;
    try {
        MappedNativeFile file(static_cast<const unsigned char*>(base), map.Size());
        ConvertToStl(file, stl, target, matrix, scale);
    } catch (int) {
        converted = false;
    }
    return std::fclose(stl) == 0 && converted;
}

}  // namespace

bool LMeshSaveToStlBin(const L_LUMOMESH& mesh, const wchar_t* path, const L_MATRIX* matrix, float scale,
                       const BaseList<uint32_t>* facets)
{
    FILE* file = fwopen(path, "wb");
    if (!file) return false;
    bool saved = true;
    try {
        StartStl(file, StlTarget::New);
        uint32_t count = 0;
        if (!WriteFacets(file, mesh, matrix, scale, count, facets)) throw 0;
        EndStl(file, StlTarget::New, count);
    } catch (int) {
        saved = false;
    }
    return std::fclose(file) == 0 && saved;
}

bool LMeshAppendFacetsToStlBin(FILE* file, const L_LUMOMESH& mesh, const L_MATRIX* matrix, float scale,
                               uint32_t& count)
{
    return WriteFacets(file, mesh, matrix, scale, count, nullptr);
}

bool LMeshFileToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale)
{
    return ConvertFileByStdio(meshPath, stlPath, StlTarget::New, matrix, scale);
}

bool LMeshFileAppendToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale)
{
    return ConvertFileByStdio(meshPath, stlPath, StlTarget::Append, matrix, scale);
}

bool LMeshFileMapToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale)
{
    return ConvertFileByMapping(meshPath, stlPath, StlTarget::New, matrix, scale);
}

bool LMeshFileMapAppendToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix,
                                float scale)
{
    return ConvertFileByMapping(meshPath, stlPath, StlTarget::Append, matrix, scale);
}
