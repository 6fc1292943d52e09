// The mesh class: construction, copy, move and reset of the header and the three
// paged stores, and the two small helpers every family shares (facet normal and
// facet recount). Stores use large pages (4096 records, table growth 256) so that a
// mesh of millions of facets grows without moving a record.
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "LMesh.h"

namespace {

constexpr uint32_t kStoreGrowth = 256;
constexpr uint32_t kStorePage = 4096;

LM_MESH_HEADER EmptyHeader()
{
    LM_MESH_HEADER header{};
    header.magic = LM_MESH_MAGIC;
    for (int k = 0; k < 3; ++k) {
        header.bboxMin[k] = FLT_MAX;
        header.bboxMax[k] = -FLT_MAX;
    }
    header.groupCount = 1;
    return header;
}

template <class T>
void TakeStore(BaseList<T>& to, BaseList<T>& from)
{
    to.Clear();
    to = std::move(from);
}

}  // namespace

// The header fields lead the class in file order, so the 56 bytes copy as one block.
static_assert(offsetof(L_LUMOMESH, magic) == 0 && offsetof(L_LUMOMESH, groupCount) == 52,
              "the mesh class must start with the file header's fields");

LM_MESH_HEADER LMeshGetHeader(const L_LUMOMESH& mesh)
{
    LM_MESH_HEADER header;
    std::memcpy(&header, reinterpret_cast<const unsigned char*>(&mesh), sizeof header);
    return header;
}

void LMeshSetHeader(L_LUMOMESH& mesh, const LM_MESH_HEADER& header)
{
    std::memcpy(reinterpret_cast<unsigned char*>(&mesh), &header, sizeof header);
}

L_LUMOMESH::L_LUMOMESH()
    : vertices(kStoreGrowth, kStorePage), edges(kStoreGrowth, kStorePage), facets(kStoreGrowth, kStorePage)
{
    LMeshSetHeader(*this, EmptyHeader());
}

L_LUMOMESH::L_LUMOMESH(const L_LUMOMESH& other) : L_LUMOMESH()
{
    LMeshSetHeader(*this, LMeshGetHeader(other));
    vertices.CopyFrom(other.vertices);
    edges.CopyFrom(other.edges);
    facets.CopyFrom(other.facets);
}

L_LUMOMESH::L_LUMOMESH(L_LUMOMESH&& other) noexcept : L_LUMOMESH()
{
    LMeshSetHeader(*this, LMeshGetHeader(other));
    vertices = std::move(other.vertices);
    edges = std::move(other.edges);
    facets = std::move(other.facets);
    LMeshSetHeader(other, EmptyHeader());
}

L_LUMOMESH& L_LUMOMESH::operator=(const L_LUMOMESH& other)
{
    LMeshSetHeader(*this, LMeshGetHeader(other));
    if (this == &other) return *this;
    vertices.CopyFrom(other.vertices);
    edges.CopyFrom(other.edges);
    facets.CopyFrom(other.facets);
    return *this;
}

// Deliberately unguarded: moving a mesh onto itself clears its stores and header.
L_LUMOMESH& L_LUMOMESH::operator=(L_LUMOMESH&& other) noexcept
{
    LMeshSetHeader(*this, LMeshGetHeader(other));
    TakeStore(vertices, other.vertices);
    TakeStore(edges, other.edges);
    TakeStore(facets, other.facets);
    LMeshSetHeader(other, EmptyHeader());
    return *this;
}

L_LUMOMESH::~L_LUMOMESH()
{
    facets.Clear();
    edges.Clear();
    vertices.Clear();
}

void L_LUMOMESH::Reset()
{
    facets.Clear();
    edges.Clear();
    vertices.Clear();
    LMeshSetHeader(*this, EmptyHeader());
}

void L_LUMOMESH::ResetGroupIds()
{
    for (uint32_t f = 0; f < facets.count; ++f) facets.At(f)->groupId = 0;
}

void L_LUMOMESH::ResetPatchGroupId(uint32_t id)
{
    for (uint32_t f = 0; f < facets.count; ++f) {
        LM_FACET* facet = facets.At(f);
        if (facet->groupId == id) facet->groupId = 0;
    }
}

bool ComputeFacetNormal(const float* p0, const float* p1, const float* p2, float* normal)
{
    const float a[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
    const float b[3] = {p2[0] - p0[0], p2[1] - p0[1], p2[2] - p0[2]};
    float n[3];
    n[0] = a[1] * b[2] - a[2] * b[1];
    n[1] = a[2] * b[0] - a[0] * b[2];
    n[2] = a[0] * b[1] - a[1] * b[0];
    const float squared = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const float length = float(std::sqrt(double(squared)));
    if (length == 0.0f) {
        for (int k = 0; k < 3; ++k) normal[k] = n[k];
        return false;
    }
    for (int k = 0; k < 3; ++k) normal[k] = n[k] / length;
    return true;
}

void RecountFacets(L_LUMOMESH& mesh)
{
    mesh.facetSlots = mesh.facets.count;
    uint32_t live = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (mesh.facets.Peek(f)->flags & LM_LIVE) ++live;
    mesh.facetCount = live;
}
