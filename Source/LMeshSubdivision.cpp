// Refining a mesh: facets cut in four at their edge midpoints, facets cut in three at
// their centroids, and the slicing of a whole mesh into grid-sized facets for
// finite-element use.
#include <cmath>

#include "LMeshBuild.h"
#include "LMeshEdit.h"
#include "LMeshPlane.h"
#include "LMeshRead.h"
#include "LMeshSubdivision.h"

namespace {

constexpr int kStoreFull = 0;  // raised when a store cannot grow; caught by the exported step

// ---- Appending records -------------------------------------------------------------

uint32_t AppendVertex(L_LUMOMESH& mesh, const float position[3], uint32_t edge)
{
    const uint32_t id = mesh.vertices.count;
    LM_VERTEX* vertex = mesh.vertices.At(id);
    if (!vertex) throw kStoreFull;
    for (int k = 0; k < 3; ++k) vertex->position[k] = position[k];
    vertex->edge = edge;
    vertex->flags = LM_LIVE;
    return id;
}

uint32_t AppendEdge(L_LUMOMESH& mesh, uint32_t from, uint32_t to, uint32_t facet0, uint32_t facet1)
{
    const uint32_t id = AppendEdgeRecord(mesh, from, to, facet0, facet1);
    if (id == LM_NONE) throw kStoreFull;
    return id;
}

// The normal from the corners as they stand; a corner past the store leaves it zero.
void WriteNormal(const L_LUMOMESH& mesh, LM_FACET& facet)
{
    float corner[3][3];
    float normal[3] = {0.0f, 0.0f, 0.0f};
    bool readable = true;
    for (int k = 0; k < 3; ++k) readable = ReadPosition(mesh, facet.vertex[k], corner[k]) && readable;
    if (readable) ComputeFacetNormal(corner[0], corner[1], corner[2], normal);
    for (int k = 0; k < 3; ++k) facet.normal[k] = normal[k];
}

uint32_t AppendFacet(L_LUMOMESH& mesh, const uint32_t vertex[3], const uint32_t edge[3])
{
    const uint32_t id = mesh.facets.count;
    LM_FACET* facet = mesh.facets.At(id);
    if (!facet) throw kStoreFull;
    for (int k = 0; k < 3; ++k) {
        facet->vertex[k] = vertex[k];
        facet->edge[k] = edge[k];
    }
    facet->groupId = 0;
    facet->flags = LM_LIVE;
    WriteNormal(mesh, *facet);
    return id;
}

void CountNew(L_LUMOMESH& mesh, uint32_t vertices, uint32_t edges, uint32_t facets)
{
    mesh.vertexSlots += vertices;
    mesh.vertexCount += vertices;
    mesh.edgeSlots += edges;
    mesh.edgeCount += edges;
    mesh.facetSlots += facets;
    mesh.facetCount += facets;
}

bool IsLiveFacet(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    return record && (record->flags & LM_LIVE);
}

// The three corner positions of a facet; false if the facet or a corner lies past its store.
bool ReadCorners(const L_LUMOMESH& mesh, uint32_t facet, uint32_t vertex[3], float corner[3][3])
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int k = 0; k < 3; ++k) {
        vertex[k] = record->vertex[k];
        if (!ReadPosition(mesh, vertex[k], corner[k])) return false;
    }
    return true;
}

// ---- Centroid split ------------------------------------------------------------------

// The facet's edge that joins p and q either way round, or LM_NONE.
uint32_t SideJoining(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t p, uint32_t q)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t id = facet.edge[k];
        const LM_EDGE* edge = mesh.edges.Peek(id);
        if (!edge) continue;
        if ((edge->vertex[0] == p && edge->vertex[1] == q) || (edge->vertex[0] == q && edge->vertex[1] == p))
            return id;
    }
    return LM_NONE;
}

void ReplaceFacetLink(L_LUMOMESH& mesh, uint32_t edge, uint32_t from, uint32_t to)
{
    LM_EDGE* record = mesh.edges.At(edge);  // found through Peek, so inside the store
    for (int k = 0; k < 2; ++k)
        if (record->facet[k] == from) record->facet[k] = to;
}

// -1 when the facet's edges do not join its corners; the centroid vertex and its three
// edges are in the stores by then.
int SplitOneAtCentroid(L_LUMOMESH& mesh, uint32_t f, BaseList<uint32_t>& newFacets)
{
    uint32_t v[3];
    float corner[3][3];
    if (!ReadCorners(mesh, f, v, corner)) return -1;
    const uint32_t a = v[0], b = v[1], c = v[2];
    float centroid[3];
    for (int k = 0; k < 3; ++k)
        centroid[k] = float((double(corner[0][k]) + double(corner[1][k]) + double(corner[2][k])) / 3.0);

    const uint32_t e0 = mesh.edges.count, e1 = e0 + 1, e2 = e0 + 2;
    const uint32_t m = AppendVertex(mesh, centroid, e0);
    const uint32_t first = mesh.facets.count, second = first + 1;
    AppendEdge(mesh, a, m, first, f);
    AppendEdge(mesh, b, m, second, first);
    AppendEdge(mesh, c, m, second, f);

    const LM_FACET old = *mesh.facets.Peek(f);
    const uint32_t ab = SideJoining(mesh, old, a, b);
    const uint32_t bc = SideJoining(mesh, old, b, c);
    const uint32_t ca = SideJoining(mesh, old, c, a);
    if (ab == LM_NONE || bc == LM_NONE || ca == LM_NONE) return -1;

    const uint32_t firstCorners[3] = {a, m, b}, firstSides[3] = {e0, e1, ab};
    const uint32_t secondCorners[3] = {b, m, c}, secondSides[3] = {e1, e2, bc};
    AppendFacet(mesh, firstCorners, firstSides);
    AppendFacet(mesh, secondCorners, secondSides);
    // The old facet becomes (c, m, a) with its sides in corner order, so that a later
    // round of the repeat finds them again.
    LM_FACET& rewritten = *mesh.facets.At(f);
    const uint32_t keptCorners[3] = {c, m, a}, keptSides[3] = {e2, e0, ca};
    for (int k = 0; k < 3; ++k) {
        rewritten.vertex[k] = keptCorners[k];
        rewritten.edge[k] = keptSides[k];
    }
    WriteNormal(mesh, rewritten);
    ReplaceFacetLink(mesh, ab, f, first);
    ReplaceFacetLink(mesh, bc, f, second);

    *newFacets.At(newFacets.count) = f;
    *newFacets.At(newFacets.count) = first;
    *newFacets.At(newFacets.count) = second;
    CountNew(mesh, 1, 3, 2);
    return 0;
}

// Heron's formula as the centroid subdivision weighs facets: the sides in double, then
// everything in float.
float CentroidSplitArea(const L_LUMOMESH& mesh, uint32_t facet)
{
    uint32_t v[3];
    float p[3][3];
    if (!ReadCorners(mesh, facet, v, p)) return 0.0f;
    float side[3];
    for (int k = 0; k < 3; ++k) {
        const float* from = p[k];
        const float* to = p[(k + 1) % 3];
        double squares = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            const double d = double(from[axis]) - double(to[axis]);
            squares += d * d;
        }
        side[k] = float(std::sqrt(squares));
    }
    const float s = (side[0] + side[1] + side[2]) * 0.5f;
    return std::sqrt((s - side[0]) * s * (s - side[1]) * (s - side[2]));
}

// The smallest live facet area, starting from the cap: larger facets never raise it.
float SmallestArea(const L_LUMOMESH& mesh, uint32_t facets)
{
    constexpr float kAreaCap = 10000.0f;
    float smallest = kAreaCap;
    for (uint32_t f = 0; f < facets; ++f) {
        if (!IsLiveFacet(mesh, f)) continue;
        const float area = CentroidSplitArea(mesh, f);
        if (area < smallest) smallest = area;
    }
    return smallest;
}

// ---- Slicing -----------------------------------------------------------------------

// Imprints the planes normal to `axis` from the box's minimum, `slices` steps apart, in
// float, up to the maximum. A step that does not advance (no slices, a negative count,
// a flat box) leaves the first plane alone.
void ImprintAxisPlanes(L_LUMOMESH& mesh, int axis, int16_t slices, float splitTolerance)
{
    const float low = mesh.bboxMin[axis], high = mesh.bboxMax[axis];
    const float step = (high - low) / float(slices);
    L_PLANE plane{{mesh.bboxMin[0], mesh.bboxMin[1], mesh.bboxMin[2]}, {0.0, 0.0, 0.0}};
    double* normal[3] = {&plane.normal.x, &plane.normal.y, &plane.normal.z};
    double* at[3] = {&plane.point.x, &plane.point.y, &plane.point.z};
    *normal[axis] = 1.0;
    PlaneEquation equation;
    for (double coordinate = low;;) {
        *at[axis] = coordinate;
        ImprintPlaneOnFacets(mesh, plane, splitTolerance, equation);
        const double next = coordinate + step;
        if (!(next > coordinate) || !(next < high)) break;
        coordinate = next;
    }
}

// Feeds a copy of every live facet back into the mesh through the merging insert, so
// the pieces that slicing left on private vertices come out welded beside the old ones.
void ReinsertWelded(L_LUMOMESH& mesh)
{
    constexpr float kWeldTolerance = 1e-6f;
    BaseList<float> corners;
    uint32_t triangles = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        uint32_t v[3];
        float p[3][3];
        if (!IsLiveFacet(mesh, f) || !ReadCorners(mesh, f, v, p)) continue;
        for (int k = 0; k < 9; ++k) *corners.At(corners.count) = p[k / 3][k % 3];
        ++triangles;
    }
    MergingInserter inserter(mesh, kWeldTolerance, triangles);
    for (uint32_t t = 0; t < triangles; ++t) {
        float triangle[9];
        for (int k = 0; k < 9; ++k) triangle[k] = *corners.Peek(9 * t + k);
        if (!inserter.AddMergedFacet(triangle)) return;
    }
}

void DeleteAreaZeroFacetsUntilNone(L_LUMOMESH& mesh, float tolerance)
{
    while (LMeshDeleteAreaZeroFacets(mesh, tolerance)) {
    }
}

// Repeats while a call removed something and the removals reach the given share of the
// edges, as an integer quotient: in practice once.
void RemoveSkinnyWhileShareRemains(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances)
{
    constexpr double kShare = 1e-07;
    const uint32_t edges = mesh.edges.count;
    for (;;) {
        const uint32_t removed = LMeshRemoveSkinnyTriangles(mesh, tolerances, tolerances.coordinateTolerance);
        if (removed == 0 || edges == 0 || double(removed / edges) < kShare) return;
    }
}

void DeleteEqualFacets(L_LUMOMESH& mesh, float tolerance)
{
    BaseList<uint32_t> equal;
    if (LMeshFindEqualFacets(mesh, tolerance, &equal)) LMeshDeleteFacets(mesh, equal);
}

}  // namespace

int SplitFacetInFour(L_LUMOMESH& mesh, uint32_t facet, BaseList<uint32_t>& newFacets, BaseList<uint32_t>& oldFacets)
{
    uint32_t v[3];
    float p[3][3];
    if (!ReadCorners(mesh, facet, v, p)) return -1;
    const uint32_t a = v[0], b = v[1], c = v[2];
    float mid[3][3];  // m0 on a-b, m1 on b-c, m2 on c-a
    for (int side = 0; side < 3; ++side)
        for (int k = 0; k < 3; ++k) mid[side][k] = (p[side][k] + p[(side + 1) % 3][k]) * 0.5f;

    try {
        const uint32_t e = mesh.edges.count, f = mesh.facets.count;
        const uint32_t m0 = AppendVertex(mesh, mid[0], e), m1 = AppendVertex(mesh, mid[1], e + 2),
                       m2 = AppendVertex(mesh, mid[2], e + 4);
        const uint32_t edgeEnds[9][2] = {{a, m0}, {m0, b}, {b, m1}, {m1, c}, {c, m2},
                                         {m2, a}, {m0, m2}, {m0, m1}, {m1, m2}};
        const uint32_t edgeFacets[9][2] = {{f + 1, LM_NONE}, {f + 2, LM_NONE}, {f + 2, LM_NONE},
                                           {f + 3, LM_NONE}, {f + 3, LM_NONE}, {f + 1, LM_NONE},
                                           {f, f + 1},       {f, f + 2},       {f, f + 3}};
        for (int k = 0; k < 9; ++k)
            AppendEdge(mesh, edgeEnds[k][0], edgeEnds[k][1], edgeFacets[k][0], edgeFacets[k][1]);
        // The centre piece lists its edges as made, not in corner order; the orientation
        // that ends the subdivision finds sides by their ends, so it is not misled.
        const uint32_t corners[4][3] = {{m0, m1, m2}, {a, m0, m2}, {m0, b, m1}, {m1, c, m2}};
        const uint32_t sides[4][3] = {
            {e + 6, e + 7, e + 8}, {e, e + 6, e + 5}, {e + 1, e + 2, e + 7}, {e + 3, e + 4, e + 8}};
        for (int piece = 0; piece < 4; ++piece)
            *newFacets.At(newFacets.count) = AppendFacet(mesh, corners[piece], sides[piece]);
        mesh.vertices.At(a)->edge = e + 5;
        mesh.vertices.At(b)->edge = e + 1;
        mesh.vertices.At(c)->edge = e + 3;
    } catch (int) {
        return -1;
    }
    *oldFacets.At(oldFacets.count) = facet;
    CountNew(mesh, 3, 9, 4);
    return 0;
}

int SplitFacetsAtCentroid(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, BaseList<uint32_t>& newFacets)
{
    try {
        for (uint32_t i = 0; i < facets.count; ++i)
            if (SplitOneAtCentroid(mesh, *facets.Peek(i), newFacets) != 0) return -1;
    } catch (int) {
        return -1;
    }
    return 0;
}

short LMeshRemesh1to4Subdivision(L_LUMOMESH& mesh, float tolerance, uint32_t& newFacets,
                                 const BaseList<uint32_t>* facets)
{
    constexpr uint32_t kPiecesPerSplit = 4;
    newFacets = 0;
    BaseList<uint32_t> pieces, oldFacets;
    const uint32_t visits = facets ? facets->count : mesh.facets.count;
    for (uint32_t i = 0; i < visits; ++i) {
        const uint32_t f = facets ? *facets->Peek(i) : i;
        if (!IsLiveFacet(mesh, f)) continue;
        if (SplitFacetInFour(mesh, f, pieces, oldFacets) == 0) newFacets += kPiecesPerSplit;
    }
    LMeshOptimizeEdges(mesh, tolerance, facets ? &oldFacets : nullptr, nullptr, nullptr, 0);
    LMeshDeleteFacets(mesh, oldFacets);
    LMeshOrientFacets(mesh, tolerance, 1);
    return 0;
}

short LMeshRemeshCentroidSubdivision(L_LUMOMESH& mesh, bool repeat, uint32_t& newFacets,
                                     const LM_TOLERANCES& tolerances)
{
    newFacets = 0;
    const uint32_t facets = mesh.facets.count;
    const float smallest = SmallestArea(mesh, facets);
    const auto exceedsMargin = [&](float area) { return std::fabs(area - smallest) >= tolerances.reorganizeDistance; };
    BaseList<uint32_t> work, pieces;
    for (uint32_t f = 0; f < facets; ++f) {
        if (!IsLiveFacet(mesh, f)) continue;
        const float area = CentroidSplitArea(mesh, f);
        if (!(area > smallest)) continue;
        if (repeat && !exceedsMargin(area)) continue;
        work.Clear();
        *work.At(0) = f;
        do {
            pieces.Clear();
            if (SplitFacetsAtCentroid(mesh, work, pieces) != 0) return -1;
            work.Clear();
            newFacets += pieces.count;
            if (!repeat) break;
            for (uint32_t i = 0; i < pieces.count; ++i) {
                const uint32_t piece = *pieces.Peek(i);
                const float pieceArea = CentroidSplitArea(mesh, piece);
                if (pieceArea > smallest && exceedsMargin(pieceArea)) *work.At(work.count) = piece;
            }
        } while (work.count > 0);
    }
    return 0;
}

short LMeshRemeshFEMAnalysis(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances, const wchar_t*)
{
    ImprintAxisPlanes(mesh, 1, tolerances.slicesY, tolerances.skinnyEdgeLength);
    ImprintAxisPlanes(mesh, 0, tolerances.slicesX, tolerances.skinnyEdgeLength);
    ImprintAxisPlanes(mesh, 2, tolerances.slicesZ, tolerances.skinnyEdgeLength);
    LMeshRecomputeNormals(mesh);
    ReinsertWelded(mesh);

    const float tolerance = tolerances.coordinateTolerance;
    LMeshOptimizeEdges(mesh, tolerance, nullptr, nullptr, nullptr, 1);
    LMeshOrientFacets(mesh, tolerance, 1);
    DeleteAreaZeroFacetsUntilNone(mesh, tolerance);
    RemoveSkinnyWhileShareRemains(mesh, tolerances);
    LMeshReorganizeVertices(mesh, tolerances.reorganizeDistance);
    LMeshRemoveCapTriangles(mesh, tolerances);
    LMeshOrientFacets(mesh, tolerance, 1);

    DeleteAreaZeroFacetsUntilNone(mesh, tolerance);
    LMeshReorganizeVertices(mesh, tolerances.reorganizeDistance);
    for (int pass = 0; pass < 3; ++pass) LMeshRemoveSkinnyTriangles(mesh, tolerances, tolerance);
    DeleteEqualFacets(mesh, tolerance);
    LMeshReorganizeVertices(mesh, tolerances.reorganizeDistance);
    return 0;
}
