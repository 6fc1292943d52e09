// Compaction: renumbers the live entities of a mesh down to 0 .. n - 1 in their old
// order and drops every vertex and edge that no live facet needs.
//
// One renumbering plan serves the in-memory compaction and both file writers. It marks
// what the live facets need, reading records from a source (the stores of a mesh, or a
// mapped native file), and then hands each kept record, its links rewritten, to a sink:
// back into its own store at the new index, or out to a file. New indices never pass
// old ones, so the in-place sink needs no second copy of the mesh. The maps hold new
// index + 1 and 0 for a dropped entity, so subtracting 1 turns every link to something
// dropped into LM_NONE without a further test.
#include "LMeshNativeFile.h"

#include <cfloat>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace {

using IdMap = BaseList<uint32_t>;

// The working lists have one entry per slot, so they take the stores' shape.
constexpr uint32_t kStoreGrowth = 256;
constexpr uint32_t kStorePage = 4096;
constexpr size_t kWriteBufferBytes = size_t(4) << 20;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

bool HasNoHoles(const LM_MESH_HEADER& header)
{
    return header.vertexSlots == header.vertexCount && header.facetSlots == header.facetCount &&
           header.edgeSlots == header.edgeCount;
}

// The map entry of an id, or null for an id past the map: a link past its store names
// nothing, so it is neither marked nor followed.
uint32_t* Entry(IdMap& map, uint32_t id) { return id < map.count ? map.At(id) : nullptr; }

// The new id of an old one: LM_NONE for a dropped entity and for an id past the map.
uint32_t NewId(const IdMap& map, uint32_t id)
{
    const uint32_t* entry = map.Peek(id);
    return entry ? *entry - 1 : LM_NONE;
}

// Records read from the stores of a mesh.
class StoreRecords {
public:
    explicit StoreRecords(const L_LUMOMESH& mesh) : mesh_(mesh) {}
    uint32_t VertexSlots() const { return mesh_.vertices.count; }
    uint32_t FacetSlots() const { return mesh_.facets.count; }
    uint32_t EdgeSlots() const { return mesh_.edges.count; }
    void Read(uint32_t i, LM_VERTEX& vertex) const { vertex = *mesh_.vertices.Peek(i); }
    void Read(uint32_t i, LM_FACET& facet) const { facet = *mesh_.facets.Peek(i); }
    void Read(uint32_t i, LM_EDGE& edge) const { edge = *mesh_.edges.Peek(i); }

private:
    const L_LUMOMESH& mesh_;
};

// Records read in place from a mapped native file whose length the caller has checked
// against its header.
class FileRecords {
public:
    FileRecords(const unsigned char* base, const LM_MESH_HEADER& header)
        : header_(header), vertices_(base + FileBytesFor(0, 0, 0)),
          facets_(base + FileBytesFor(header.vertexSlots, 0, 0)),
          edges_(base + FileBytesFor(header.vertexSlots, header.facetSlots, 0))
    {
    }
    uint32_t VertexSlots() const { return header_.vertexSlots; }
    uint32_t FacetSlots() const { return header_.facetSlots; }
    uint32_t EdgeSlots() const { return header_.edgeSlots; }
    void Read(uint32_t i, LM_VERTEX& vertex) const { Copy(vertices_, i, vertex); }
    void Read(uint32_t i, LM_FACET& facet) const { Copy(facets_, i, facet); }
    void Read(uint32_t i, LM_EDGE& edge) const { Copy(edges_, i, edge); }

private:
    template <class Record>
    static void Copy(const unsigned char* records, uint32_t i, Record& record)
    {
        std::memcpy(&record, records + size_t(i) * sizeof(Record), sizeof(Record));
    }

    LM_MESH_HEADER header_;
    const unsigned char* vertices_;
    const unsigned char* facets_;
    const unsigned char* edges_;
};

// Puts each kept record back into its own store at the next new index.
class StoreSink {
public:
    explicit StoreSink(L_LUMOMESH& mesh) : mesh_(mesh) {}
    void Put(const LM_VERTEX& vertex) { *mesh_.vertices.At(vertices_++) = vertex; }
    void Put(const LM_FACET& facet) { *mesh_.facets.At(facets_++) = facet; }
    void Put(const LM_EDGE& edge) { *mesh_.edges.At(edges_++) = edge; }
    // Cuts each store down to the records put into it.
    void Trim()
    {
        mesh_.vertices.SetSize(vertices_);
        mesh_.facets.SetSize(facets_);
        mesh_.edges.SetSize(edges_);
    }

private:
    L_LUMOMESH& mesh_;
    uint32_t vertices_ = 0, facets_ = 0, edges_ = 0;
};

// Appends kept records to a file through a large buffer; an int is thrown when a
// write fails.
class FileSink {
public:
    explicit FileSink(FILE* file) : file_(file), buffer_(kWriteBufferBytes) {}
    template <class Record>
    void Put(const Record& record)
    {
        if (buffer_.size() - used_ < sizeof(Record)) Flush();
        std::memcpy(buffer_.data() + used_, &record, sizeof(Record));
        used_ += sizeof(Record);
    }
    void Flush()
    {
        if (used_ != 0 && std::fwrite(buffer_.data(), used_, 1, file_) != 1) throw 0;
        used_ = 0;
    }

private:
    FILE* file_;
    std::vector<unsigned char> buffer_;
    size_t used_ = 0;
};

// Which records survive and their new numbers, worked out from the live facets.
class CompactionPlan {
public:
    CompactionPlan()
        : vertexMap_(kStoreGrowth, kStorePage), facetMap_(kStoreGrowth, kStorePage),
          edgeMap_(kStoreGrowth, kStorePage), vertexEdge_(kStoreGrowth, kStorePage)
    {
        for (int k = 0; k < 3; ++k) {
            bboxMin_[k] = FLT_MAX;
            bboxMax_[k] = -FLT_MAX;
        }
    }

    // One zeroed entry per slot of the source; false when memory runs out.
    template <class Source>
    bool Prepare(const Source& source)
    {
        return vertexMap_.SetSize(source.VertexSlots()) && vertexEdge_.SetSize(source.VertexSlots()) &&
               facetMap_.SetSize(source.FacetSlots()) && edgeMap_.SetSize(source.EdgeSlots());
    }

    // Facets first, since they decide which edges stay, and edges then decide which
    // vertices stay besides the facets' corners.
    template <class Source>
    void Mark(const Source& source)
    {
        MarkFacets(source);
        MarkEdges(source);
        NumberVertices(source);
    }

    // The counts, box and group count of the compacted mesh; the magic is left as it is.
    void FillHeader(LM_MESH_HEADER& header) const
    {
        header.vertexSlots = header.vertexCount = vertexCount_;
        header.facetSlots = header.facetCount = facetCount_;
        header.edgeSlots = header.edgeCount = edgeCount_;
        std::memcpy(header.bboxMin, bboxMin_, sizeof bboxMin_);
        std::memcpy(header.bboxMax, bboxMax_, sizeof bboxMax_);
        header.groupCount = groupCount_;
    }

    // Hands the kept records to the sink in file order (vertices, facets, edges), each
    // in slot order with its links rewritten.
    template <class Source, class Sink>
    void Emit(const Source& source, Sink& sink) const
    {
        EmitKept<LM_VERTEX>(source, vertexMap_, sink);
        EmitKept<LM_FACET>(source, facetMap_, sink);
        EmitKept<LM_EDGE>(source, edgeMap_, sink);
    }

private:
    template <class Source>
    void MarkFacets(const Source& source)
    {
        LM_FACET facet;
        for (uint32_t f = 0; f < source.FacetSlots(); ++f) {
            source.Read(f, facet);
            if (!IsLive(facet.flags)) continue;
            for (int k = 0; k < 3; ++k) {
                if (uint32_t* vertex = Entry(vertexMap_, facet.vertex[k])) *vertex = 1;
                if (uint32_t* edge = Entry(edgeMap_, facet.edge[k])) *edge = 1;
            }
            *facetMap_.At(f) = ++facetCount_;
            if (groupCount_ <= facet.groupId) groupCount_ = facet.groupId + 1;
        }
    }

    // Each kept vertex ends up linked to the last kept edge that touches it.
    template <class Source>
    void MarkEdges(const Source& source)
    {
        LM_EDGE edge;
        for (uint32_t e = 0; e < source.EdgeSlots(); ++e) {
            uint32_t& newId = *edgeMap_.At(e);
            if (newId == 0) continue;
            source.Read(e, edge);
            for (int k = 0; k < 2; ++k) {
                uint32_t* vertex = Entry(vertexMap_, edge.vertex[k]);
                if (!vertex) continue;
                *vertex = 1;
                *vertexEdge_.At(edge.vertex[k]) = e;
            }
            newId = ++edgeCount_;
        }
    }

    template <class Source>
    void NumberVertices(const Source& source)
    {
        LM_VERTEX vertex;
        for (uint32_t v = 0; v < source.VertexSlots(); ++v) {
            uint32_t& newId = *vertexMap_.At(v);
            if (newId == 0) continue;
            source.Read(v, vertex);
            Widen(vertex.position);
            newId = ++vertexCount_;
        }
    }

    void Widen(const float* p)
    {
        for (int k = 0; k < 3; ++k) {
            if (p[k] < bboxMin_[k]) bboxMin_[k] = p[k];
            if (p[k] > bboxMax_[k]) bboxMax_[k] = p[k];
        }
    }

    template <class Record, class Source, class Sink>
    void EmitKept(const Source& source, const IdMap& map, Sink& sink) const
    {
        Record record;
        for (uint32_t i = 0; i < map.count; ++i) {
            if (*map.Peek(i) == 0) continue;
            source.Read(i, record);
            Relink(i, record);
            sink.Put(record);
        }
    }

    // A vertex without a kept edge reads entry 0 of its never-set vertexEdge, as the
    // working list comes zero-filled.
    void Relink(uint32_t slot, LM_VERTEX& vertex) const { vertex.edge = NewId(edgeMap_, *vertexEdge_.Peek(slot)); }

    void Relink(uint32_t, LM_FACET& facet) const
    {
        for (int k = 0; k < 3; ++k) {
            facet.vertex[k] = NewId(vertexMap_, facet.vertex[k]);
            facet.edge[k] = NewId(edgeMap_, facet.edge[k]);
        }
    }

    // LM_NONE lies past every map, so a missing twin stays LM_NONE.
    void Relink(uint32_t, LM_EDGE& edge) const
    {
        for (int k = 0; k < 2; ++k) {
            edge.vertex[k] = NewId(vertexMap_, edge.vertex[k]);
            edge.facet[k] = NewId(facetMap_, edge.facet[k]);
        }
    }

    IdMap vertexMap_, facetMap_, edgeMap_;
    IdMap vertexEdge_;  // per vertex slot: the old edge its new link comes from
    uint32_t vertexCount_ = 0, facetCount_ = 0, edgeCount_ = 0;
    uint32_t groupCount_ = 1;
    float bboxMin_[3], bboxMax_[3];
};

// Writes the compacted form of the source as a new native file.
template <class Source>
bool WriteCompacted(const Source& source, uint32_t magic, const wchar_t* target)
{
    CompactionPlan plan;
    if (!plan.Prepare(source)) return false;
    FILE* file = fwopen(target, "wb");
    if (!file) return false;
    bool written = true;
    try {
        plan.Mark(source);
        LM_MESH_HEADER header{};
        header.magic = magic;
        plan.FillHeader(header);
        if (!WriteMeshHeader(file, header)) throw 0;
        FileSink sink(file);
        plan.Emit(source, sink);
        sink.Flush();
    } catch (int) {
        written = false;
    }
    return std::fclose(file) == 0 && written;
}

// Whether both paths name one existing file, which "wb" on the target would truncate
// under the source's mapping.
bool SameFile(const wchar_t* a, const wchar_t* b)
{
    std::string pathA, pathB;
    struct stat infoA, infoB;
    return LscWideToUtf8(a, pathA) && LscWideToUtf8(b, pathB) && ::stat(pathA.c_str(), &infoA) == 0 &&
           ::stat(pathB.c_str(), &infoB) == 0 && infoA.st_dev == infoB.st_dev && infoA.st_ino == infoB.st_ino;
}

}  // namespace

void LMeshCompact(L_LUMOMESH& mesh)
{
    if (HasNoHoles(LMeshGetHeader(mesh))) return;
    const StoreRecords source(mesh);
    CompactionPlan plan;
    if (!plan.Prepare(source)) return;  // out of memory: the mesh stays as it was
    plan.Mark(source);
    StoreSink sink(mesh);
    plan.Emit(source, sink);
    sink.Trim();
    LM_MESH_HEADER header = LMeshGetHeader(mesh);
    plan.FillHeader(header);
    LMeshSetHeader(mesh, header);
}

bool LMeshCompactToFile(const wchar_t* source, const wchar_t* target, bool& alreadyCompact)
{
    if (!source || !target) return false;
    alreadyCompact = false;
    // Mapped rather than read record by record: the file is a memory image.
    LscMemoryMappedFile map;
    map.Open(source, LMMF_READ_ONLY, 0, 0, 0);
    LM_MESH_HEADER header;
    if (!ReadMappedHeader(map, header)) return false;
    if (HasNoHoles(header)) {
        alreadyCompact = true;
        return true;
    }
    if (FileBytesFor(header) > map.Size()) return false;  // truncated: never read past the mapping
    if (SameFile(source, target)) return false;           // the source must never change
    return WriteCompacted(FileRecords(static_cast<const unsigned char*>(map.Base()), header), header.magic, target);
}

bool LMeshCompactToFile(const L_LUMOMESH& mesh, const wchar_t* target)
{
    if (HasNoHoles(LMeshGetHeader(mesh))) return LMeshWriteToFile(target, mesh);
    if (!target) return false;
    return WriteCompacted(StoreRecords(mesh), mesh.magic, target);
}
