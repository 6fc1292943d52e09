// The cleanup driver: the library's repairs run in one fixed order, each behind a flag.
//
// Welding comes first so that every later step sees shared edges, and again after the
// removal of bad facets, which leaves borders that now meet. Skinny facets are
// simplified before holes are filled, so that the patches are cut against the final
// rims, and orientation comes last, over the finished surface, so that patches and
// the facets around them agree.
//
// The overhang removal is this family's own step. A flap is a facet with two free
// sides that hangs by its third side; it is an overhang when it lies folded back onto
// the facet across that side, as the leftover of a bad export or a failed stitch
// does. Folding is judged in the plane across the hinge, from the two apexes, so the
// test does not depend on how either facet is wound.
#include <algorithm>
#include <cmath>

#include "LMeshRead.h"

namespace {

constexpr int kResultCount = 7;
// The id list shared by the area and duplicate steps, in long pages: it may hold a
// good share of a bad mesh.
constexpr uint32_t kIdListGrowth = 16;
constexpr uint32_t kIdListPage = 2048;
// Border edges take the mean curvature -1; this small band selects exactly them.
constexpr float kFreeEdgeCurvature = -1.0f;
constexpr float kFreeEdgeBand = 0.000001f;
constexpr short kBorderEdgesOnly = 1;
constexpr short kOutward = 1;
// Apexes closer than this angle, seen along the hinge, mean the flap is folded back:
// with consistent winding, normals more than 150 degrees apart.
constexpr double kFoldAngleDegrees = 30.0;
constexpr double kRadiansPerDegree = 0.0174532925199433;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

bool IsBorder(const LM_EDGE& edge) { return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE; }

// ---- Overhangs

// Counts the facet's border and inner sides; false when a side lies past the store.
bool CountSides(const L_LUMOMESH& mesh, const LM_FACET& facet, int& border, int& inner)
{
    border = inner = 0;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (!edge) return false;  // broken link: leave the facet to other repairs
        ++(IsBorder(*edge) ? border : inner);
    }
    return true;
}

// The one inner side of a facet with two border sides, or LM_NONE.
uint32_t HingeOfFlap(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    int border = 0, inner = 0;
    if (!CountSides(mesh, facet, border, inner) || border != 2) return LM_NONE;
    for (int k = 0; k < 3; ++k)
        if (!IsBorder(*mesh.edges.Peek(facet.edge[k]))) return facet.edge[k];
    return LM_NONE;
}

// A neighbour that is part of the surface, not another flap or a lone pair.
bool IsAnchored(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    int border = 0, inner = 0;
    return IsLive(facet.flags) && CountSides(mesh, facet, border, inner) && inner >= 2;
}

// The facet's corner that is not an end of the edge, or LM_NONE.
uint32_t ApexOff(const LM_FACET& facet, const LM_EDGE& edge)
{
    for (int k = 0; k < 3; ++k)
        if (facet.vertex[k] != edge.vertex[0] && facet.vertex[k] != edge.vertex[1]) return facet.vertex[k];
    return LM_NONE;
}

// The part of apex - a at right angles to the line a b, in double; false when it
// vanishes (the apex lies on the line, or the hinge has no length).
bool AcrossHinge(const float a[3], const float b[3], const float apex[3], double across[3])
{
    double d[3], r[3], dd = 0.0, rd = 0.0;
    for (int k = 0; k < 3; ++k) {
        d[k] = double(b[k]) - a[k];
        r[k] = double(apex[k]) - a[k];
        dd += d[k] * d[k];
        rd += r[k] * d[k];
    }
    if (dd == 0.0) return false;
    double length2 = 0.0;
    for (int k = 0; k < 3; ++k) {
        across[k] = r[k] - d[k] * (rd / dd);
        length2 += across[k] * across[k];
    }
    return length2 > 0.0;
}

// Whether the two facets on the hinge lie folded onto each other: their apexes leave
// the hinge in nearly the same direction.
bool FoldedOnto(const L_LUMOMESH& mesh, const LM_EDGE& hinge, const LM_FACET& flap, const LM_FACET& base)
{
    float a[3], b[3], p[3], q[3];
    if (!ReadPosition(mesh, hinge.vertex[0], a) || !ReadPosition(mesh, hinge.vertex[1], b) ||
        !ReadPosition(mesh, ApexOff(flap, hinge), p) || !ReadPosition(mesh, ApexOff(base, hinge), q))
        return false;
    double u[3], w[3];
    if (!AcrossHinge(a, b, p, u) || !AcrossHinge(a, b, q, w)) return false;
    const double uw = u[0] * w[0] + u[1] * w[1] + u[2] * w[2];
    const double uu = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
    const double ww = w[0] * w[0] + w[1] * w[1] + w[2] * w[2];
    return uw / std::sqrt(uu * ww) > std::cos(kFoldAngleDegrees * kRadiansPerDegree);
}

bool IsOverhang(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET& flap = *mesh.facets.Peek(f);
    const uint32_t hinge = HingeOfFlap(mesh, flap);
    if (hinge == LM_NONE) return false;
    const LM_EDGE& edge = *mesh.edges.Peek(hinge);
    const LM_FACET* base = mesh.facets.Peek(edge.facet[0] == f ? edge.facet[1] : edge.facet[0]);
    if (!base || !IsAnchored(mesh, *base)) return false;  // a link past the store names no base
    return FoldedOnto(mesh, edge, flap, *base);
}

// ---- Steps of the driver

void WeldBorders(L_LUMOMESH& mesh, float tolerance)
{
    LMeshOptimizeEdges(mesh, tolerance, nullptr, nullptr, nullptr, kBorderEdgesOnly);
}

uint32_t DeleteZeroAreaFacets(L_LUMOMESH& mesh, float areaTolerance, BaseList<uint32_t>& ids)
{
    LMeshFindAreaZeroFacets(mesh, areaTolerance, &ids);
    if (ids.count != 0) LMeshDeleteFacets(mesh, ids);
    return ids.count;
}

// Equal facets and coplanar facets whose edges cross, in one list: an id may stand
// in it twice, and is counted each time.
uint32_t DeleteEqualAndOverlappingFacets(L_LUMOMESH& mesh, float tolerance, BaseList<uint32_t>& ids)
{
    ids.Clear();
    LMeshFindEqualFacets(mesh, tolerance, &ids);
    LMeshDeletePartialOverlaps(mesh, tolerance, nullptr, &ids, false);
    if (ids.count != 0) LMeshDeleteFacets(mesh, ids);
    return ids.count;
}

// Collapses the shortest side of every facet above the aspect ratio limit. Two skinny
// facets may list the same side; the simplification passes over it the second time.
uint32_t CollapseSkinnyFacets(L_LUMOMESH& mesh, float areaTolerance, float aspectRatioLimit)
{
    const LM_TOLERANCES tolerances = LMeshCleanupTolerances(areaTolerance);
    BaseList<uint32_t> shortestSides;
    const uint32_t slots = mesh.facets.count;
    for (uint32_t f = 0; f < slots; ++f) {
        if (!IsLive(mesh.facets.Peek(f)->flags)) continue;
        if (!(LMeshTriangleAspectRatio(mesh, f) > aspectRatioLimit)) continue;
        uint32_t shortest = LM_NONE;
        LMeshShortestEdgeLength(mesh, f, shortest);
        AppendTo(shortestSides, shortest);
    }
    return LMeshSimplifyEdges(mesh, shortestSides, tolerances, false, false);
}

}  // namespace

uint32_t LMeshRemoveOverhangs(L_LUMOMESH& mesh)
{
    // Judged on the mesh as it stands at entry: removing one overhang never makes
    // its neighbour qualify in the same call.
    BaseList<uint32_t> overhangs;
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (IsLive(mesh.facets.Peek(f)->flags) && IsOverhang(mesh, f)) AppendTo(overhangs, f);
    if (overhangs.count != 0) LMeshDeleteFacets(mesh, overhangs);
    return overhangs.count;
}

void LMeshCleanup(L_LUMOMESH& mesh, float tolerance, uint32_t* results, bool removeEqual, bool removeNonManifold,
                  bool removeZeroArea, float areaTolerance, bool removeSkinny, float aspectRatioLimit, bool fillHoles,
                  bool repairDisjoints, float disjointTolerance, bool orient, bool removeOverhangs)
{
    uint32_t unused[kResultCount];
    uint32_t* counts = results ? results : unused;  // no place for the counts: run the steps all the same
    std::fill(counts, counts + kResultCount, 0u);
    BaseList<uint32_t> ids(kIdListGrowth, kIdListPage);

    WeldBorders(mesh, tolerance);
    if (removeZeroArea) counts[2] = DeleteZeroAreaFacets(mesh, areaTolerance, ids);
    if (removeEqual) counts[0] = DeleteEqualAndOverlappingFacets(mesh, tolerance, ids);
    if (removeNonManifold) counts[1] = LMeshDeleteNonManifoldFacets(mesh, tolerance);
    WeldBorders(mesh, tolerance);
    if (removeOverhangs) LMeshRemoveOverhangs(mesh);
    if (removeSkinny) counts[3] = CollapseSkinnyFacets(mesh, areaTolerance, aspectRatioLimit);
    if (repairDisjoints)
        counts[5] = LMeshRepairVertexEdgeDisjoints(mesh, nullptr, disjointTolerance, tolerance, areaTolerance);
    if (fillHoles)  // a failure's -1 is kept as the unsigned all-ones value
        counts[4] = uint32_t(LMeshFillHolesInBatch(mesh, kFreeEdgeCurvature, kFreeEdgeBand, tolerance, false, false,
                                                   nullptr));
    if (orient) counts[6] = LMeshOrientFacets(mesh, tolerance, kOutward) ? 1 : 0;
}

LM_TOLERANCES LMeshCleanupTolerances(float minimumArea)
{
    LM_TOLERANCES tolerances{};
    tolerances.flatAngle = 0.000001f;
    tolerances.edgeLengthFactor = 1.5f;
    tolerances.angleBand = 30.0f;
    tolerances.featureAngleBand = 2.0f;
    tolerances.areaFactor = 2.0f;
    tolerances.turnAngle = 0.001f;
    tolerances.vertexCurvatureChange = 0.05f;
    tolerances.reorganizeDistance = 0.25f;
    tolerances.minimumArea = minimumArea;
    tolerances.capAngle = 170.0f;
    tolerances.skinnyAspectRatio = 10.0f;
    tolerances.skinnyEdgeLength = 0.00381f;
    tolerances.coordinateTolerance = 0.00001f;
    tolerances.reservedTolerance1 = 0.1f;
    tolerances.reservedTolerance2 = 0.000001f;
    tolerances.slicesX = tolerances.slicesY = tolerances.slicesZ = 20;
    return tolerances;
}
