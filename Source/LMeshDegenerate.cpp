// Degenerate and duplicate facets: facets of (near) zero area, facets that repeat
// another within a coordinate tolerance, and looping triangles that hang on the
// surface by one vertex. Each repair lists ids and leaves the removal to
// LMeshDeleteFacets, so nothing is renumbered.
//
// Duplicates are found by sorting one key per live facet (its three corners sorted,
// so that orientation and starting corner are forgotten) and sweeping the sorted keys
// once: a sweep, not a nearest-neighbour query, so two facets within tolerance that a
// third key separates in the order are not matched. Of a set of duplicates the facet
// with the most live neighbours survives, keeping the one that is woven into the
// surface.
#include <algorithm>
#include <cmath>
#include <vector>

#include "LMesh.h"

namespace {

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// The positions of the facet's corners in stored order; false when a corner lies
// past the vertex store.
bool ReadCorners(const L_LUMOMESH& mesh, const LM_FACET& facet, float corners[3][3])
{
    for (int c = 0; c < 3; ++c) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[c]);
        if (!vertex) return false;
        for (int k = 0; k < 3; ++k) corners[c][k] = vertex->position[k];
    }
    return true;
}

// ---- Equal facets

struct FacetKey {
    float corners[9];  // three corners, ascending by x, then y, then z
    uint32_t facet;
};

// Exact comparison of two coordinates. Not-a-number sorts above every number, so
// that the sort sees a consistent order even on a broken mesh; among numbers this
// is plain < and >, so -0 and +0 are equal.
int CompareCoordinates(float a, float b)
{
    if (a < b) return -1;
    if (a > b) return 1;
    return int(std::isnan(a)) - int(std::isnan(b));
}

int CompareFloats(const float* a, const float* b, int n)
{
    for (int k = 0; k < n; ++k)
        if (const int order = CompareCoordinates(a[k], b[k])) return order;
    return 0;
}

void SwapCornersIfAfter(float* corners, int first, int second)
{
    float* a = corners + 3 * first;
    float* b = corners + 3 * second;
    if (CompareFloats(a, b, 3) > 0) std::swap_ranges(a, a + 3, b);
}

void SortCorners(float* corners)
{
    SwapCornersIfAfter(corners, 0, 1);
    SwapCornersIfAfter(corners, 1, 2);
    SwapCornersIfAfter(corners, 0, 1);
}

bool KeyBefore(const FacetKey& a, const FacetKey& b) { return CompareFloats(a.corners, b.corners, 9) < 0; }

// One key per live facet, and the alive byte of every slot (1 for a live slot). A
// live facet with a corner past the vertex store gets no key and cannot match.
std::vector<FacetKey> CollectKeys(const L_LUMOMESH& mesh, std::vector<uint8_t>& alive)
{
    std::vector<FacetKey> keys;
    keys.reserve(std::min(mesh.facetCount, mesh.facets.count));  // the header count may be stale
    alive.assign(mesh.facets.count, 0);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        alive[f] = 1;
        FacetKey key;
        float corners[3][3];
        if (!ReadCorners(mesh, facet, corners)) continue;
        std::copy(&corners[0][0], &corners[0][0] + 9, key.corners);
        SortCorners(key.corners);
        key.facet = f;
        keys.push_back(key);
    }
    return keys;
}

// The facets across the three edges that are still alive in this search, 0 to 3.
uint32_t CountAliveNeighbours(const L_LUMOMESH& mesh, uint32_t f, const std::vector<uint8_t>& alive)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    uint32_t count = 0;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (!edge) continue;  // edge id past the store: no neighbour there
        uint32_t neighbour = edge->facet[0];
        if (neighbour == LM_NONE || neighbour == f) neighbour = edge->facet[1];
        if (neighbour == LM_NONE || neighbour == f) continue;
        if (neighbour < alive.size() && alive[neighbour]) ++count;
    }
    return count;
}

bool WithinTolerance(const FacetKey& a, const FacetKey& b, float tolerance)
{
    for (int k = 0; k < 9; ++k)
        if (std::fabs(a.corners[k] - b.corners[k]) > tolerance) return false;
    return true;
}

struct EqualFacetSweep {
    const L_LUMOMESH& mesh;
    const std::vector<FacetKey>& keys;
    std::vector<uint8_t>& alive;
    float tolerance;
    BaseList<uint32_t>& found;

    void Reject(uint32_t facet)
    {
        alive[facet] = 0;
        AppendTo(found, facet);
    }

    // From key i on, rejects the alive keys that follow within tolerance, keeping the
    // one with more alive neighbours (the earlier at equal counts). The scan stops at
    // the first alive key outside the tolerance. Returns the key that ended as the
    // survivor, from which the caller goes on.
    size_t ScanFrom(size_t i)
    {
        uint32_t survivorCount = CountAliveNeighbours(mesh, keys[i].facet, alive);
        for (size_t j = i + 1; j < keys.size(); ++j) {
            if (!alive[keys[j].facet]) continue;
            if (!WithinTolerance(keys[i], keys[j], tolerance)) break;
            const uint32_t count = CountAliveNeighbours(mesh, keys[j].facet, alive);
            if (survivorCount >= count) {
                Reject(keys[j].facet);
            } else {
                Reject(keys[i].facet);
                i = j;
                survivorCount = count;
            }
        }
        return i;
    }

    void Run()
    {
        for (size_t i = 0; i < keys.size(); ++i)
            if (alive[keys[i].facet]) i = ScanFrom(i);
    }
};

// ---- Looping triangles

// Live facets per vertex, each facet counted once per vertex even when it repeats a
// corner. A corner past the vertex store is not counted.
std::vector<uint32_t> CountFacetsPerVertex(const L_LUMOMESH& mesh)
{
    std::vector<uint32_t> counts(mesh.vertices.count, 0);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        const uint32_t v[3] = {facet.vertex[0], facet.vertex[1], facet.vertex[2]};
        for (int c = 0; c < 3; ++c) {
            const bool repeated = (c > 0 && v[c] == v[0]) || (c > 1 && v[c] == v[1]);
            if (!repeated && v[c] < counts.size()) ++counts[v[c]];
        }
    }
    return counts;
}

bool IsBorderEdge(const L_LUMOMESH& mesh, uint32_t edge)
{
    float curvature = 0.0f;
    LMeshComputeEdgeMeanCurvature(mesh, edge, &curvature);
    return curvature < 0.0f;  // negative exactly when the edge has fewer than two facets
}

// The vertex that two edges share, or LM_NONE. The first ends are compared with each
// other and with the second ends, in that order.
uint32_t SharedVertex(const L_LUMOMESH& mesh, uint32_t first, uint32_t second)
{
    const LM_EDGE* a = mesh.edges.Peek(first);
    const LM_EDGE* b = mesh.edges.Peek(second);
    if (!a || !b) return LM_NONE;  // edge id past the store: nothing shared
    if (a->vertex[0] == b->vertex[0] || a->vertex[0] == b->vertex[1]) return a->vertex[0];
    if (a->vertex[1] == b->vertex[0] || a->vertex[1] == b->vertex[1]) return a->vertex[1];
    return LM_NONE;
}

// The vertex between the facet's two border edges, or LM_NONE when it has fewer
// than two. With three border edges the pair (e0, e1) is taken.
uint32_t TipBetweenBorderEdges(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    const uint32_t e[3] = {facet.edge[0], facet.edge[1], facet.edge[2]};
    const bool border[3] = {IsBorderEdge(mesh, e[0]), IsBorderEdge(mesh, e[1]), IsBorderEdge(mesh, e[2])};
    if (border[0] + border[1] + border[2] < 2) return LM_NONE;
    if (border[0] && border[1]) return SharedVertex(mesh, e[0], e[1]);
    if (border[1] && border[2]) return SharedVertex(mesh, e[1], e[2]);
    return SharedVertex(mesh, e[2], e[0]);
}

bool HasCorner(const LM_FACET& facet, uint32_t v)
{
    return facet.vertex[0] == v || facet.vertex[1] == v || facet.vertex[2] == v;
}

}  // namespace

bool LMeshFindAreaZeroFacets(const L_LUMOMESH& mesh, float tolerance, BaseList<uint32_t>* facets)
{
    if (!facets) return false;
    facets->Clear();
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        float corners[3][3];
        if (!IsLive(facet.flags)) continue;
        if (!ReadCorners(mesh, facet, corners)) continue;  // corner past the vertex store: skipped
        // A needle whose Heron product rounds negative has a NaN area, fails the
        // comparison and is kept: the other repairs deal with it.
        if (tolerance >= HeronTriangleArea(corners[0], corners[1], corners[2])) AppendTo(*facets, f);
    }
    return facets->count > 0;
}

bool LMeshDeleteAreaZeroFacets(L_LUMOMESH& mesh, float tolerance)
{
    BaseList<uint32_t> found;
    if (!LMeshFindAreaZeroFacets(mesh, tolerance, &found)) return false;
    return LMeshDeleteFacets(mesh, found);
}

bool LMeshFindEqualFacets(L_LUMOMESH& mesh, float tolerance, BaseList<uint32_t>* facets)
{
    if (!facets) return false;
    facets->Clear();
    std::vector<uint8_t> alive;
    std::vector<FacetKey> keys = CollectKeys(mesh, alive);
    if (keys.empty()) return false;
    std::sort(keys.begin(), keys.end(), KeyBefore);
    EqualFacetSweep{mesh, keys, alive, tolerance, *facets}.Run();
    return facets->count > 0;
}

bool LMeshDeleteEqualFacets(L_LUMOMESH& mesh, float tolerance)
{
    BaseList<uint32_t> found;
    if (!LMeshFindEqualFacets(mesh, tolerance, &found)) return false;
    return LMeshDeleteFacets(mesh, found);
}

uint32_t LMeshDeleteLoopingTriangles(L_LUMOMESH& mesh)
{
    BaseList<uint32_t> looping(16, 128);
    // The mesh does not change until the deletion, so one count per vertex answers
    // "does another live facet use this vertex" for every facet.
    const std::vector<uint32_t> facetsAt = CountFacetsPerVertex(mesh);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        const uint32_t tip = TipBetweenBorderEdges(mesh, facet);
        if (tip >= facetsAt.size()) continue;  // no shared tip, or one past the vertex store
        const uint32_t others = facetsAt[tip] - (HasCorner(facet, tip) ? 1 : 0);
        if (others > 0) AppendTo(looping, f);
    }
    // Called even with nothing listed: it rebuilds flags, links and counts.
    LMeshDeleteFacets(mesh, looping);
    return looping.count;
}
