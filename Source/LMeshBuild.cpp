// Building a mesh: single triangles with private edges, indexed triangles with
// shared edges, and triangle soup welded within a tolerance.
//
// Shared edges are found through a chain per vertex of the edges whose smaller end
// it is (the valence is small, so a chain is a handful of steps); corners are welded
// by VertexWelder.
#include "LMeshBuild.h"

#include "LMeshWeld.h"

#include <algorithm>
#include <vector>

namespace {

// The store's next record, or an int thrown when memory runs out.
template <class T>
T* AppendRecord(BaseList<T>& store)
{
    T* record = store.At(store.count);
    if (!record) throw 0;
    return record;
}

void WidenBox(L_LUMOMESH& mesh, const float* p)
{
    for (int k = 0; k < 3; ++k) {
        if (p[k] < mesh.bboxMin[k]) mesh.bboxMin[k] = p[k];
        if (p[k] > mesh.bboxMax[k]) mesh.bboxMax[k] = p[k];
    }
}

uint32_t AppendVertex(L_LUMOMESH& mesh, const float* p)
{
    const uint32_t id = mesh.vertices.count;
    LM_VERTEX* vertex = AppendRecord(mesh.vertices);
    for (int k = 0; k < 3; ++k) vertex->position[k] = p[k];
    vertex->edge = LM_NONE;
    vertex->flags |= LM_LIVE;
    ++mesh.vertexSlots;
    ++mesh.vertexCount;
    WidenBox(mesh, p);
    return id;
}

uint32_t AppendEdge(L_LUMOMESH& mesh, uint32_t a, uint32_t b, uint32_t facet)
{
    const uint32_t id = mesh.edges.count;
    LM_EDGE* edge = AppendRecord(mesh.edges);
    edge->vertex[0] = a;
    edge->vertex[1] = b;
    edge->facet[0] = facet;
    edge->facet[1] = LM_NONE;
    edge->flags |= LM_LIVE;
    ++mesh.edgeSlots;
    ++mesh.edgeCount;
    return id;
}

void CopyPosition(const L_LUMOMESH& mesh, uint32_t v, float* p)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    for (int k = 0; k < 3; ++k) p[k] = vertex->position[k];
}

// Writes corners, sides, normal and the live bit; groupId is left as the slot holds it.
void WriteFacet(L_LUMOMESH& mesh, uint32_t f, const uint32_t* corner, const uint32_t* side)
{
    LM_FACET* facet = mesh.facets.At(f);
    if (!facet) throw 0;
    float p[3][3];
    for (int k = 0; k < 3; ++k) {
        facet->vertex[k] = corner[k];
        facet->edge[k] = side[k];
        CopyPosition(mesh, corner[k], p[k]);
    }
    float normal[3];
    ComputeFacetNormal(p[0], p[1], p[2], normal);
    for (int k = 0; k < 3; ++k) facet->normal[k] = normal[k];
    facet->flags |= LM_LIVE;
}

// Edges created by one build, found by their two ends. Each edge is chained under
// its smaller end, and the chains live in the records themselves so that a build
// needs no memory beyond the mesh: while the build runs, a vertex's `edge` holds the
// newest edge chained under it and an edge's `vertex[0]`, which the chain implies,
// holds the next edge of the chain. Settle (run by the destructor, so also after a
// failure) restores `vertex[0]` and gives each vertex the edge of the last facet
// touching it.
class EdgeIndex {
public:
    // Edges may only join vertices from firstVertex on, which start with no edge.
    EdgeIndex(L_LUMOMESH& mesh, uint32_t firstVertex)
        : mesh_(mesh), firstVertex_(firstVertex), firstFacet_(mesh.facets.count)
    {
    }
    EdgeIndex(const EdgeIndex&) = delete;
    EdgeIndex& operator=(const EdgeIndex&) = delete;
    ~EdgeIndex() { Settle(); }

    // The edge joining a and b: an existing one gets `facet` as its second facet,
    // a new one gets it as its first.
    uint32_t Join(uint32_t a, uint32_t b, uint32_t facet)
    {
        const uint32_t low = std::min(a, b), high = std::max(a, b);
        LM_VERTEX* lowVertex = mesh_.vertices.At(low);
        for (uint32_t e = lowVertex->edge; e != LM_NONE;) {
            LM_EDGE* edge = mesh_.edges.At(e);
            if (edge->vertex[1] == high) {
                edge->facet[1] = facet;
                return e;
            }
            e = edge->vertex[0];
        }
        const uint32_t e = AppendEdge(mesh_, lowVertex->edge, high, facet);
        lowVertex->edge = e;
        return e;
    }

private:
    void Settle()
    {
        for (uint32_t v = firstVertex_; v < mesh_.vertices.count; ++v) {
            for (uint32_t e = mesh_.vertices.At(v)->edge; e != LM_NONE;) {
                LM_EDGE* edge = mesh_.edges.At(e);
                e = edge->vertex[0];
                edge->vertex[0] = v;
            }
        }
        for (uint32_t f = firstFacet_; f < mesh_.facets.count; ++f) {
            const LM_FACET& facet = *mesh_.facets.Peek(f);
            for (int k = 0; k < 3; ++k) mesh_.vertices.At(facet.vertex[k])->edge = facet.edge[k];
        }
    }

    L_LUMOMESH& mesh_;
    uint32_t firstVertex_;
    uint32_t firstFacet_;
};

// Adds the facet on corners a, b, c: shared edges, facet record and counts. The
// vertex-to-edge links follow when the edge index settles.
void AddFacetOnVertices(L_LUMOMESH& mesh, EdgeIndex& edgeIndex, const uint32_t* corner)
{
    const uint32_t f = mesh.facets.count;
    uint32_t side[3];
    for (int k = 0; k < 3; ++k) side[k] = edgeIndex.Join(corner[k], corner[(k + 1) % 3], f);
    WriteFacet(mesh, f, corner, side);
    ++mesh.facetSlots;
    ++mesh.facetCount;
}

void AddIndexedFacets(L_LUMOMESH& mesh, const int* indices, uint32_t indexCount)
{
    if (indexCount < 3) return;
    EdgeIndex edgeIndex(mesh, 0);
    const int64_t vertexLimit = mesh.vertices.count;
    for (uint32_t i = 2; i < indexCount; i += 3) {
        const int* triple = indices + (i - 2);
        // An index outside the vertex table would grow the store without bound: skip the triangle.
        bool valid = true;
        for (int k = 0; k < 3; ++k) valid = valid && triple[k] >= 0 && triple[k] < vertexLimit;
        if (!valid) continue;
        const uint32_t corner[3] = {uint32_t(triple[0]), uint32_t(triple[1]), uint32_t(triple[2])};
        AddFacetOnVertices(mesh, edgeIndex, corner);
    }
}

template <class Real>
bool CreateFromIndexed(L_LUMOMESH& mesh, const Real* coords, uint32_t vertexCount, const int* indices,
                       uint32_t indexCount)
{
    mesh.Reset();
    if (!coords) vertexCount = 0;
    if (!indices) indexCount = 0;
    try {
        for (uint32_t v = 0; v < vertexCount; ++v) {
            const float p[3] = {float(coords[3 * size_t(v)]), float(coords[3 * size_t(v) + 1]),
                                float(coords[3 * size_t(v) + 2])};
            AppendVertex(mesh, p);
        }
        AddIndexedFacets(mesh, indices, indexCount);
    } catch (...) {
        // Out of memory: the mesh keeps what was built so far.
    }
    return true;
}

}  // namespace

struct MergingInserter::State {
    State(L_LUMOMESH& target, float tolerance, uint32_t expectedTriangles)
        : mesh(target), edgeIndex(target, target.vertices.count),
          welder(target.vertices, target.vertices.count, tolerance, expectedTriangles / 2 + 16)
    {
    }

    uint32_t WeldCorner(const float* p)
    {
        const uint32_t found = welder.Find(p);
        if (found != LM_NONE) return found;
        const uint32_t v = AppendVertex(mesh, p);
        welder.Add();
        return v;
    }

    L_LUMOMESH& mesh;
    EdgeIndex edgeIndex;
    VertexWelder welder;
};

MergingInserter::MergingInserter(L_LUMOMESH& mesh, float tolerance, uint32_t expectedTriangles)
    : state_(std::make_unique<State>(mesh, tolerance, expectedTriangles))
{
}

MergingInserter::~MergingInserter() = default;

bool MergingInserter::AddMergedFacet(const float* corners)
{
    try {
        uint32_t corner[3];
        for (int k = 0; k < 3; ++k) corner[k] = state_->WeldCorner(corners + 3 * k);
        AddFacetOnVertices(state_->mesh, state_->edgeIndex, corner);
        return true;
    } catch (...) {
        return false;
    }
}

uint32_t LMeshAddTriangle(L_LUMOMESH& mesh, uint32_t p, uint32_t q, uint32_t r, uint32_t groupId)
{
    const uint32_t corner[3] = {p, q, r};
    // Unknown vertex ids would reach past the vertex store: refuse the facet.
    for (uint32_t v : corner)
        if (v >= mesh.vertices.count) return LM_NONE;
    const uint32_t f = mesh.facets.count, e = mesh.edges.count;
    try {
        uint32_t side[3];
        for (int k = 0; k < 3; ++k) side[k] = AppendEdge(mesh, corner[k], corner[(k + 1) % 3], f);
        WriteFacet(mesh, f, corner, side);
        mesh.facets.At(f)->groupId = groupId;
    } catch (...) {
        return LM_NONE;
    }
    for (int k = 0; k < 3; ++k) {
        LM_VERTEX* vertex = mesh.vertices.At(corner[k]);
        if (vertex->edge == LM_NONE) vertex->edge = e + k;
    }
    ++mesh.facetSlots;
    ++mesh.facetCount;
    if (groupId >= mesh.groupCount) mesh.groupCount = groupId + 1;
    return f;
}

uint32_t LMeshAddTriangle(L_LUMOMESH& mesh, const float* p0, const float* p1, const float* p2, uint32_t groupId)
{
    if (!p0 || !p1 || !p2) return LM_NONE;
    const float* point[3] = {p0, p1, p2};
    const uint32_t w = mesh.vertices.count;
    try {
        for (const float* p : point) AppendVertex(mesh, p);
    } catch (...) {
        return LM_NONE;
    }
    // The new vertices have no edge yet, so each gets the edge that starts at it.
    return LMeshAddTriangle(mesh, w, w + 1, w + 2, groupId);
}

bool LMeshCreateFromIndexedTriangles(L_LUMOMESH& mesh, const float* coords, uint32_t vertexCount,
                                     const int* indices, uint32_t indexCount)
{
    return CreateFromIndexed(mesh, coords, vertexCount, indices, indexCount);
}

bool LMeshCreateFromIndexedTriangles(L_LUMOMESH& mesh, const double* coords, uint32_t vertexCount,
                                     const int* indices, uint32_t indexCount)
{
    return CreateFromIndexed(mesh, coords, vertexCount, indices, indexCount);
}

short LMeshReadVertexListIntoLumoMesh(const float* triangles, int triangleCount, L_LUMOMESH& mesh, float tolerance,
                                      short units)
{
    if (!triangles || triangleCount <= 0) return 0;
    constexpr float kInch = 25.4f;
    try {
        MergingInserter inserter(mesh, tolerance, uint32_t(triangleCount));
        for (int t = 0; t < triangleCount; ++t) {
            float corners[9];
            for (int k = 0; k < 9; ++k) corners[k] = triangles[9 * size_t(t) + k];
            if (units == 1)
                for (float& c : corners) c *= kInch;
            if (!inserter.AddMergedFacet(corners)) break;
        }
    } catch (...) {
        // Out of memory while sizing the lookups: nothing was added.
    }
    return 0;
}
