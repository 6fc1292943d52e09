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

#include <cfloat>
#include <cmath>

namespace {

// Copies a vertex position into p; false for an id past the store.
bool FetchPosition(const L_LUMOMESH& mesh, uint32_t v, float* p)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    if (!vertex) return false;
    for (int k = 0; k < 3; ++k) p[k] = vertex->position[k];
    return true;
}

// Calls visit(corners) for a live facet whose corners lie in the vertex store.
template <class Visit>
inline void VisitLiveFacet(const L_LUMOMESH& mesh, const LM_FACET* facet, Visit& visit)
{
    if (!facet) return;  // listed id past the store: skipped
    if (!(facet->flags & LM_LIVE)) return;
    float corners[3][3];
    const uint32_t v0 = facet->vertex[0], v1 = facet->vertex[1], v2 = facet->vertex[2];
    if (!FetchPosition(mesh, v0, corners[0]) || !FetchPosition(mesh, v1, corners[1]) ||
        !FetchPosition(mesh, v2, corners[2]))
        return;  // corner past the vertex store: skipped
    visit(corners);
}

// Visits the live facets among ids 0..count-1, or among the listed ids in list order.
template <class Visit>
void ForEachLiveFacet(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, Visit visit)
{
    if (facets) {
        for (uint32_t i = 0; i < facets->count; ++i) VisitLiveFacet(mesh, mesh.facets.Peek(*facets->Peek(i)), visit);
        return;
    }
    for (uint32_t f = 0; f < mesh.facets.count; ++f) VisitLiveFacet(mesh, mesh.facets.Peek(f), visit);
}

// Heron's formula on sides taken in double from the float corners. Defined here so
// that the area loop inlines it; HeronTriangleArea is the exported face of it.
inline float HeronArea(const float* p0, const float* p1, const float* p2)
{
    const double x0 = p0[0], y0 = p0[1], z0 = p0[2];
    const double x1 = p1[0], y1 = p1[1], z1 = p1[2];
    const double x2 = p2[0], y2 = p2[1], z2 = p2[2];
    const double a = std::sqrt((x0 - x1) * (x0 - x1) + (y0 - y1) * (y0 - y1) + (z0 - z1) * (z0 - z1));
    const double b = std::sqrt((x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2) + (z1 - z2) * (z1 - z2));
    const double c = std::sqrt((x2 - x0) * (x2 - x0) + (y2 - y0) * (y2 - y0) + (z2 - z0) * (z2 - z0));
    const double s = (a + b + c) * 0.5;
    // No clamp: a needle whose product rounds negative gives NaN on purpose.
    return float(std::sqrt((s - a) * s * (s - b) * (s - c)));
}

// Six times the signed volume of the tetrahedron (0, p1, p2, p3) is p1 . (p2 x p3).
float SignedTetraVolume(const float* p1, const float* p2, const float* p3)
{
    const float cx = p2[1] * p3[2] - p2[2] * p3[1];
    const float cy = p2[2] * p3[0] - p2[0] * p3[2];
    const float cz = p2[0] * p3[1] - p2[1] * p3[0];
    return (p1[0] * cx + p1[1] * cy + p1[2] * cz) / 6.0f;
}

float EdgeLength(const L_LUMOMESH& mesh, const LM_EDGE& edge)
{
    float p[3], q[3];
    // An end past the vertex store gives a neutral length.
    if (!FetchPosition(mesh, edge.vertex[0], p) || !FetchPosition(mesh, edge.vertex[1], q)) return 0.0f;
    const float dx = q[0] - p[0];
    const float dy = q[1] - p[1];
    const float dz = q[2] - p[2];
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

float HeronTriangleArea(const float* p0, const float* p1, const float* p2) { return HeronArea(p0, p1, p2); }

float LMeshComputeArea(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    float area = 0.0f;
    ForEachLiveFacet(mesh, facets,
                     [&](const float (*p)[3]) { area += HeronArea(p[0], p[1], p[2]); });
    return area;
}

float LMeshComputeVolume(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    // The box as it stands: a stale one only moves the reference point.
    float centre[3];
    for (int k = 0; k < 3; ++k) centre[k] = (mesh.bboxMin[k] + mesh.bboxMax[k]) * 0.5f;
    float volume = 0.0f;
    ForEachLiveFacet(mesh, facets, [&](const float (*p)[3]) {
        float r[3][3];
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k) r[c][k] = p[c][k] - centre[k];
        volume += SignedTetraVolume(r[0], r[1], r[2]);
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
