// Whole-mesh measures: area, enclosed volume, lowest height, bounding boxes and edge
// lengths.
//
// Each is one pass over a store with no allocation, and the width in which it sums
// is part of its result: areas and volume terms are added in float, in id order, so
// callers comparing against earlier results see the same rounding. The volume is
// the divergence-theorem sum of signed tetrahedra from the middle of the stored box,
// which keeps the terms small; facets that disagree in winding cancel, and only the
// sign of the total is dropped. The float box skips dead vertices and the double box
// does not: the box grids are built on the latter and expect every slot inside it.
#include "LMesh.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace {

L_POINT3f PositionOf(const LM_VERTEX& vertex)
{
    return {vertex.position[0], vertex.position[1], vertex.position[2]};
}

// Calls visit(p0, p1, p2) for a live facet whose corners lie in the vertex store.
// Corners travel by value in registers: copying them through a small array made
// the compiler's choices, and the speed, depend on inlining.
template <class Visit>
inline void VisitLiveFacet(const L_LUMOMESH& mesh, const LM_FACET* facet, Visit& visit)
{
    if (!facet) return;  // listed id past the store: skipped
    if (!(facet->flags & LM_LIVE)) return;
    const LM_VERTEX* v0 = mesh.vertices.Peek(facet->vertex[0]);
    const LM_VERTEX* v1 = mesh.vertices.Peek(facet->vertex[1]);
    const LM_VERTEX* v2 = mesh.vertices.Peek(facet->vertex[2]);
    if (!v0 || !v1 || !v2) return;  // corner past the vertex store: skipped
    visit(PositionOf(*v0), PositionOf(*v1), PositionOf(*v2));
}

// Visits the live facets among ids 0..count-1, or among the listed ids in list order.
// The whole store is walked page by page, which saves a lookup per facet.
template <class Visit>
void ForEachLiveFacet(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, Visit visit)
{
    if (facets) {
        for (uint32_t i = 0; i < facets->count; ++i) VisitLiveFacet(mesh, mesh.facets.Peek(*facets->Peek(i)), visit);
        return;
    }
    const BaseList<LM_FACET>& store = mesh.facets;
    for (uint64_t first = 0; first < store.count; first += store.pageSize) {
        const LM_FACET* page = store.Peek(uint32_t(first));
        const uint64_t onPage = std::min<uint64_t>(store.pageSize, store.count - first);
        for (uint32_t k = 0; k < onPage; ++k) VisitLiveFacet(mesh, page + k, visit);
    }
}

// Heron's formula on sides taken in double from the float corners. Defined here so
// that the area loop inlines it; HeronTriangleArea is the exported face of it.
inline float HeronArea(const L_POINT3f& p0, const L_POINT3f& p1, const L_POINT3f& p2)
{
    const double x0 = p0.x, y0 = p0.y, z0 = p0.z;
    const double x1 = p1.x, y1 = p1.y, z1 = p1.z;
    const double x2 = p2.x, y2 = p2.y, z2 = p2.z;
    const double a = std::sqrt((x0 - x1) * (x0 - x1) + (y0 - y1) * (y0 - y1) + (z0 - z1) * (z0 - z1));
    const double b = std::sqrt((x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2) + (z1 - z2) * (z1 - z2));
    const double c = std::sqrt((x2 - x0) * (x2 - x0) + (y2 - y0) * (y2 - y0) + (z2 - z0) * (z2 - z0));
    const double s = (a + b + c) * 0.5;
    // No clamp: a needle whose product rounds negative gives NaN on purpose.
    return float(std::sqrt((s - a) * s * (s - b) * (s - c)));
}

// Signed volume of the tetrahedron (c, p1, p2, p3): a sixth of
// (p1 - c) . ((p2 - c) x (p3 - c)), all in float.
inline float SignedTetraVolume(const L_POINT3f& c, const L_POINT3f& p1, const L_POINT3f& p2, const L_POINT3f& p3)
{
    const float x1 = p1.x - c.x, y1 = p1.y - c.y, z1 = p1.z - c.z;
    const float x2 = p2.x - c.x, y2 = p2.y - c.y, z2 = p2.z - c.z;
    const float x3 = p3.x - c.x, y3 = p3.y - c.y, z3 = p3.z - c.z;
    const float cx = y2 * z3 - z2 * y3;
    const float cy = z2 * x3 - x2 * z3;
    const float cz = x2 * y3 - y2 * x3;
    return (x1 * cx + y1 * cy + z1 * cz) / 6.0f;
}

float EdgeLength(const L_LUMOMESH& mesh, const LM_EDGE& edge)
{
    const LM_VERTEX* start = mesh.vertices.Peek(edge.vertex[0]);
    const LM_VERTEX* end = mesh.vertices.Peek(edge.vertex[1]);
    if (!start || !end) return 0.0f;  // an end past the vertex store: a neutral length
    const L_POINT3f p = PositionOf(*start), q = PositionOf(*end);
    const float dx = q.x - p.x;
    const float dy = q.y - p.y;
    const float dz = q.z - p.z;
    const float squares = dy * dy + dx * dx + dz * dz;
    return float(std::sqrt(double(squares)));
}

// The side (0..2) that `beats` picks from lengths a, b, c, ties going to the later
// side; with beats = "greater" it is the longest, with "less" the shortest.
template <class Beats>
int PickSide(float a, float b, float c, Beats beats)
{
    if (beats(a, b)) return beats(b, c) || beats(a, c) ? 0 : 2;
    return beats(b, c) ? 1 : 2;
}

template <class Beats>
float PickEdge(const L_LUMOMESH& mesh, uint32_t facet, uint32_t& edge, Beats beats)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) {  // facet id past the store: no edge
        edge = LM_NONE;
        return 0.0f;
    }
    const uint32_t ids[3] = {record->edge[0], record->edge[1], record->edge[2]};
    const float lengths[3] = {LMeshEdgeLength(mesh, ids[0]), LMeshEdgeLength(mesh, ids[1]),
                              LMeshEdgeLength(mesh, ids[2])};
    const int side = PickSide(lengths[0], lengths[1], lengths[2], beats);
    edge = ids[side];
    return lengths[side];
}

// Grows a double box by every vertex slot, dead ones included, each passed through
// the matrix when there is one.
void FoldAllSlots(const L_LUMOMESH& mesh, const L_MATRIX* matrix, L_BOUNDS& bounds)
{
    for (int k = 0; k < 3; ++k) {
        bounds.min[k] = DBL_MAX;
        bounds.max[k] = -DBL_MAX;
    }
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        L_POINT p = {vertex->position[0], vertex->position[1], vertex->position[2]};
        if (matrix) mat_transform_point(&p, matrix, &p);
        const double coords[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k) {
            if (coords[k] < bounds.min[k]) bounds.min[k] = coords[k];
            if (coords[k] > bounds.max[k]) bounds.max[k] = coords[k];
        }
    }
}

}  // namespace

float HeronTriangleArea(const float* p0, const float* p1, const float* p2)
{
    return HeronArea({p0[0], p0[1], p0[2]}, {p1[0], p1[1], p1[2]}, {p2[0], p2[1], p2[2]});
}

float LMeshComputeArea(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    float area = 0.0f;
    ForEachLiveFacet(mesh, facets, [&](const L_POINT3f& p0, const L_POINT3f& p1, const L_POINT3f& p2) {
        area += HeronArea(p0, p1, p2);
    });
    return area;
}

float LMeshComputeVolume(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    // The box as it stands: a stale one only moves the reference point.
    const L_POINT3f centre = {(mesh.bboxMin[0] + mesh.bboxMax[0]) * 0.5f, (mesh.bboxMin[1] + mesh.bboxMax[1]) * 0.5f,
                              (mesh.bboxMin[2] + mesh.bboxMax[2]) * 0.5f};
    float volume = 0.0f;
    ForEachLiveFacet(mesh, facets, [&](const L_POINT3f& p0, const L_POINT3f& p1, const L_POINT3f& p2) {
        volume += SignedTetraVolume(centre, p0, p1, p2);
    });
    return std::fabs(volume);
}

float LMeshComputeZMin(const L_LUMOMESH& mesh)
{
    float zMin = FLT_MAX;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        if (!(vertex->flags & LM_LIVE)) continue;
        const float z = vertex->position[2];
        if (z < zMin) zMin = z;
    }
    return zMin;
}

void LMeshComputeAbsoluteBoundingBox(L_LUMOMESH& mesh)
{
    for (int k = 0; k < 3; ++k) {
        mesh.bboxMin[k] = FLT_MAX;
        mesh.bboxMax[k] = -FLT_MAX;
    }
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        if (!(vertex->flags & LM_LIVE)) continue;
        for (int k = 0; k < 3; ++k) {
            const float value = vertex->position[k];
            if (value < mesh.bboxMin[k]) mesh.bboxMin[k] = value;
            if (value > mesh.bboxMax[k]) mesh.bboxMax[k] = value;
        }
    }
}

void LMeshComputeAbsoluteBoundingBox(const L_LUMOMESH& mesh, L_BOUNDS& bounds)
{
    FoldAllSlots(mesh, nullptr, bounds);
}

void LMeshComputeRelativeBoundingBox(const L_WORKPLANE& plane, const L_LUMOMESH& mesh, L_BOUNDS& bounds)
{
    L_MATRIX toPlane;
    mat_WorkPlane_World(&plane, &toPlane, nullptr);
    // Mesh coordinates relate to the work plane with a unit factor of a thousand.
    for (int k = 12; k < 15; ++k) toPlane.m[k] *= 1000.0;
    FoldAllSlots(mesh, &toPlane, bounds);
}

float LMeshEdgeLength(const L_LUMOMESH& mesh, uint32_t edge)
{
    const LM_EDGE* record = mesh.edges.Peek(edge);
    if (!record) return 0.0f;  // edge id past the store: a neutral length
    return EdgeLength(mesh, *record);
}

float LMeshLongestEdgeLength(const L_LUMOMESH& mesh, uint32_t facet, uint32_t& edge)
{
    return PickEdge(mesh, facet, edge, [](float x, float y) { return x > y; });
}

float LMeshShortestEdgeLength(const L_LUMOMESH& mesh, uint32_t facet, uint32_t& edge)
{
    return PickEdge(mesh, facet, edge, [](float x, float y) { return x < y; });
}

short LMeshComputeAverageEdgeLength(const L_LUMOMESH& mesh, float& average)
{
    float sum = 0.0f;
    uint32_t live = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!(edge->flags & LM_LIVE)) continue;
        sum += EdgeLength(mesh, *edge);
        ++live;
    }
    average = sum / float(live);  // no live edge: 0/0, a NaN, as documented
    return 0;
}
