// Non-manifold repair: loose facets, and facets with a border side that two or more
// sides of other facets lie on, are deleted; T-junctions (a vertex lying inside the
// border side of a facet it is not a corner of) are mended by splitting that facet at
// the vertex and welding the new halves to the vertex's own edges.
//
// Both searches go through throw-away spatial indexes: the adaptive facet boxes for
// the shadowing sides, a cell grid of edges for the vertices. Only border sides matter
// to either, so both skip everything else early: a facet without a border side has
// nothing to count (on a closed mesh the boxes are not even built), and the grid's
// cells keep each border edge once and drop the rest. A split never turns an inner
// edge into a border edge, so the first edge found under a vertex is the same as with
// the full cells.
#include "LMeshGrids.h"
#include "LMeshRead.h"
#include "LMeshSplit.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr uint32_t kFacetsPerBox = 300;
constexpr uint32_t kCellsPerAxis = 20;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

bool LiveFacet(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET* facet = mesh.facets.Peek(f);
    return facet && IsLive(facet->flags);
}

bool IsBorder(const LM_EDGE& edge) { return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE; }

// Each of |dx|, |dy|, |dz| strictly below the tolerance.
bool Near(const float* a, const float* b, float tolerance)
{
    for (int k = 0; k < 3; ++k)
        if (!(std::fabs(a[k] - b[k]) < tolerance)) return false;
    return true;
}

bool ReadEnds(const L_LUMOMESH& mesh, uint32_t e, float ends[2][3])
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    return edge && ReadPosition(mesh, edge->vertex[0], ends[0]) && ReadPosition(mesh, edge->vertex[1], ends[1]);
}

// ---- Loose and shadowed facets ----

// All three sides report the curvature of a side without a second facet (or none).
bool HasNoNeighbour(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t edge = facet.edge[k];
        float curvature = 0.0f;
        LMeshComputeEdgeMeanCurvature(mesh, edge, &curvature);
        if (!(curvature < 0.0f)) return false;
    }
    return true;
}

// The end positions of a facet's border sides (those that can be read).
struct BorderSides {
    float ends[3][2][3];
    int count = 0;
};

BorderSides CollectBorderSides(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    BorderSides sides;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (edge && IsBorder(*edge) && ReadEnds(mesh, facet.edge[k], sides.ends[sides.count])) ++sides.count;
    }
    return sides;
}

bool LiesOn(const float side[2][3], const float other[2][3], float tolerance)
{
    return (Near(side[0], other[0], tolerance) || Near(side[0], other[1], tolerance)) &&
           (Near(side[1], other[0], tolerance) || Near(side[1], other[1], tolerance));
}

// What the deletion does with a facet. Decided for all facets up front: neither test
// reads live flags, and links do not change until the deletion at the end.
enum class Verdict : uint8_t { Keep, Loose, Scan };

std::vector<Verdict> JudgeFacets(const L_LUMOMESH& mesh)
{
    std::vector<Verdict> verdicts(mesh.facets.count, Verdict::Keep);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        if (HasNoNeighbour(mesh, facet))
            verdicts[f] = Verdict::Loose;
        else if (CollectBorderSides(mesh, facet).count > 0)
            verdicts[f] = Verdict::Scan;
    }
    return verdicts;
}

// The candidates of a facet to scan: every facet of its adaptive boxes, once each.
// The boxes are built only when some facet needs them (they can be costly on meshes
// of long slivers), and inverted only for the facets that will ask.
class CandidateCollector {
public:
    CandidateCollector(const L_LUMOMESH& mesh, const std::vector<Verdict>& verdicts)
        : rowOf_(verdicts.size(), LM_NONE), seenBy_(verdicts.size(), LM_NONE)
    {
        uint32_t rows = 0;
        for (uint32_t f = 0; f < verdicts.size(); ++f)
            if (verdicts[f] == Verdict::Scan) rowOf_[f] = rows++;
        if (rows == 0) return;
        LMeshBoxFacetsNonUniform(mesh, boxes_, kFacetsPerBox);
        boxesOf_.resize(rows);
        for (uint32_t b = 0; b < boxes_.count; ++b) {
            const BaseList<uint32_t>& facets = boxes_.Peek(b)->facets;
            for (uint32_t i = 0; i < facets.count; ++i) {
                const uint32_t f = *facets.Peek(i);
                if (f < rowOf_.size() && rowOf_[f] != LM_NONE) boxesOf_[rowOf_[f]].push_back(b);
            }
        }
    }

    const std::vector<uint32_t>& Collect(uint32_t f)
    {
        candidates_.clear();
        if (f >= rowOf_.size() || rowOf_[f] == LM_NONE) return candidates_;
        for (uint32_t b : boxesOf_[rowOf_[f]]) {
            const BaseList<uint32_t>& facets = boxes_.Peek(b)->facets;
            for (uint32_t i = 0; i < facets.count; ++i) {
                const uint32_t g = *facets.Peek(i);
                if (g >= seenBy_.size() || seenBy_[g] == f) continue;
                seenBy_[g] = f;
                candidates_.push_back(g);
            }
        }
        return candidates_;
    }

private:
    BaseList<LM_BOX> boxes_;
    std::vector<uint32_t> rowOf_;                 // facet to its row of boxesOf_, or LM_NONE
    std::vector<std::vector<uint32_t>> boxesOf_;  // ascending boxes holding each scanned facet
    std::vector<uint32_t> seenBy_;                // the facet whose candidates last listed each id
    std::vector<uint32_t> candidates_;
};

// Whether two or more sides of the other live candidates lie on one border side of f.
bool IsShadowed(const L_LUMOMESH& mesh, uint32_t f, const BorderSides& sides, const std::vector<uint32_t>& candidates,
                float tolerance)
{
    int shadows[3] = {0, 0, 0};
    for (uint32_t g : candidates) {
        if (g == f || !LiveFacet(mesh, g)) continue;
        const LM_FACET& other = *mesh.facets.Peek(g);
        for (int j = 0; j < 3; ++j) {
            float ends[2][3];
            if (!ReadEnds(mesh, other.edge[j], ends)) continue;
            for (int k = 0; k < sides.count; ++k)
                if (LiesOn(sides.ends[k], ends, tolerance) && ++shadows[k] > 1) return true;
        }
    }
    return false;
}

// ---- T-junctions ----

struct JunctionTolerances {
    float distance;
    float end;
};

// The one facet of a border edge with exactly one facet link, else LM_NONE.
uint32_t SoleFacet(const LM_EDGE& edge)
{
    const bool first = edge.facet[0] != LM_NONE, second = edge.facet[1] != LM_NONE;
    if (first == second) return LM_NONE;
    return first ? edge.facet[0] : edge.facet[1];
}

bool IsCornerOf(const L_LUMOMESH& mesh, uint32_t f, uint32_t v)
{
    const LM_FACET* facet = mesh.facets.Peek(f);
    if (!facet) return true;  // a facet past the store cannot be split: treat as taken
    return facet->vertex[0] == v || facet->vertex[1] == v || facet->vertex[2] == v;
}

// Whether p lies strictly inside segment a b (by its projection parameter) and
// nearer to it than the distance, all in float.
bool LiesInside(const float* p, const float ends[2][3], float distance)
{
    float d[3], w[3];
    for (int k = 0; k < 3; ++k) {
        d[k] = ends[1][k] - ends[0][k];
        w[k] = p[k] - ends[0][k];
    }
    const float s = (w[0] * d[0] + w[1] * d[1] + w[2] * d[2]) / (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    if (!(s > 0.0f && s < 1.0f)) return false;
    float squared = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float gap = p[k] - (ends[0][k] + d[k] * s);
        squared += gap * gap;
    }
    return std::sqrt(squared) < distance;
}

// The first candidate edge under vertex v: live, with exactly one facet, which v is not
// a corner of, v inside it and off both its ends. Dead edges are passed over, so a side
// split earlier hands its vertices on to its halves.
uint32_t FindEdgeUnderVertex(const L_LUMOMESH& mesh, uint32_t v, const BaseList<uint32_t>& candidates,
                             const JunctionTolerances& tolerances)
{
    float p[3];
    if (!ReadPosition(mesh, v, p)) return LM_NONE;
    for (uint32_t i = 0; i < candidates.count; ++i) {
        const uint32_t e = *candidates.Peek(i);
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!edge || !IsLive(edge->flags)) continue;
        const uint32_t facet = SoleFacet(*edge);
        float ends[2][3];
        if (facet == LM_NONE || IsCornerOf(mesh, facet, v) || !ReadEnds(mesh, e, ends)) continue;
        if (Near(p, ends[0], tolerances.end) || Near(p, ends[1], tolerances.end)) continue;
        if (LiesInside(p, ends, tolerances.distance)) return e;
    }
    return LM_NONE;
}

// Keeps, in order, the first entry of each live edge with exactly one facet: only those
// can lie under a vertex. `listedIn` remembers per edge the last list (by `stamp`)
// that kept it.
void KeepSingleFacetEdgesOnce(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges, std::vector<uint32_t>& listedIn,
                              uint32_t stamp)
{
    uint32_t kept = 0;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t e = *edges.Peek(i);
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!edge || !IsLive(edge->flags) || SoleFacet(*edge) == LM_NONE || listedIn[e] == stamp) continue;
        listedIn[e] = stamp;
        *edges.At(kept++) = e;
    }
    edges.SetSize(kept);
}

// Splits the facet of the edge under vertex v, if any, and counts the split.
bool MendJunction(L_LUMOMESH& mesh, uint32_t v, const BaseList<uint32_t>& candidates,
                  const JunctionTolerances& tolerances, BaseList<uint32_t>& scratch, SplitPieces& pieces)
{
    const uint32_t e = FindEdgeUnderVertex(mesh, v, candidates, tolerances);
    if (e == LM_NONE) return false;
    scratch.Clear();
    LMeshGetEdgesAroundVertex(mesh, v, scratch);
    if (scratch.count == 0) return false;  // a vertex without facets is not welded to the halves
    const uint32_t facet = SoleFacet(*mesh.edges.Peek(e));
    if (SplitFacetAtVertex(mesh, facet, e, v, pieces) != SideSplit::Done) return false;
    mesh.edges.At(e)->flags &= uint8_t(~LM_LIVE);
    mesh.facets.At(facet)->flags &= uint8_t(~LM_LIVE);
    mesh.edgeSlots += 3;
    mesh.edgeCount += 2;
    mesh.facetSlots += 2;
    mesh.facetCount += 1;
    return true;
}

bool LiveVertex(const L_LUMOMESH& mesh, uint32_t v)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    return vertex && IsLive(vertex->flags);
}

// The corners and sides of the listed facets, each sorted with repeats removed.
void CollectListedWork(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, std::vector<uint32_t>& vertices,
                       BaseList<uint32_t>& edges)
{
    std::vector<uint32_t> sides;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const LM_FACET* facet = mesh.facets.Peek(*facets.Peek(i));
        if (!facet) continue;  // id past the store: nothing listed
        for (int k = 0; k < 3; ++k) {
            vertices.push_back(facet->vertex[k]);
            sides.push_back(facet->edge[k]);
        }
    }
    for (std::vector<uint32_t>* list : {&vertices, &sides}) {
        std::sort(list->begin(), list->end());
        list->erase(std::unique(list->begin(), list->end()), list->end());
    }
    for (uint32_t e : sides) AppendTo(edges, e);
}

uint32_t MendListedJunctions(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, const JunctionTolerances& tolerances)
{
    std::vector<uint32_t> vertices;
    BaseList<uint32_t> candidates, scratch;
    CollectListedWork(mesh, facets, vertices, candidates);
    std::vector<uint32_t> listedIn(mesh.edges.count, LM_NONE);
    KeepSingleFacetEdgesOnce(mesh, candidates, listedIn, 0);
    uint32_t splits = 0;
    SplitPieces pieces;
    for (uint32_t v : vertices)
        if (LiveVertex(mesh, v) && MendJunction(mesh, v, candidates, tolerances, scratch, pieces)) ++splits;
    return splits;
}

// New edges go into the cells of their samples, once per cell, where later vertices find them.
void EnterEdges(const L_LUMOMESH& mesh, const L_BOUNDSf& bounds, BaseList<BaseList<uint32_t>>& cells,
                const SplitPieces& pieces)
{
    for (uint32_t e : pieces.edges) {
        float ends[2][3];
        uint32_t index[5];
        if (!ReadEnds(mesh, e, ends) || !EdgeSampleCells(bounds, kCellsPerAxis, ends[0], ends[1], index)) continue;
        for (int s = 0; s < 5; ++s) {
            if (std::find(index, index + s, index[s]) != index + s || index[s] >= cells.count) continue;
            AppendTo(*cells.At(index[s]), e);
        }
    }
}

uint32_t MendAllJunctions(L_LUMOMESH& mesh, const JunctionTolerances& tolerances)
{
    const L_BOUNDSf bounds{{mesh.bboxMin[0], mesh.bboxMin[1], mesh.bboxMin[2]},
                           {mesh.bboxMax[0], mesh.bboxMax[1], mesh.bboxMax[2]}};
    BaseList<BaseList<uint32_t>> cells;
    // A false result leaves the edges entered so far: the search goes on with them.
    LMeshBoxEdges(mesh, kCellsPerAxis, bounds, cells);
    std::vector<uint32_t> listedIn(mesh.edges.count, LM_NONE);
    for (uint32_t c = 0; c < cells.count; ++c) KeepSingleFacetEdgesOnce(mesh, *cells.At(c), listedIn, c);

    const uint32_t vertexSlots = mesh.vertices.count;
    BaseList<uint32_t> candidates, scratch;
    uint32_t splits = 0, cell = 0;
    SplitPieces pieces;
    for (uint32_t v = 0; v < vertexSlots; ++v) {
        if (!LiveVertex(mesh, v) || !LMeshQueryEdgeBox(mesh, bounds, v, kCellsPerAxis, cells, cell, candidates))
            continue;
        if (!MendJunction(mesh, v, candidates, tolerances, scratch, pieces)) continue;
        ++splits;
        EnterEdges(mesh, bounds, cells, pieces);
    }
    return splits;
}

}  // namespace

uint32_t LMeshDeleteNonManifoldFacets(L_LUMOMESH& mesh, float tolerance)
{
    const std::vector<Verdict> verdicts = JudgeFacets(mesh);
    CandidateCollector collector(mesh, verdicts);

    // A facet judged bad dies at once and shadows no later facet: of a cluster of
    // coincident loose facets, the later ones may survive.
    BaseList<uint32_t> doomed;
    for (uint32_t f = 0; f < verdicts.size(); ++f) {
        if (verdicts[f] == Verdict::Keep) continue;
        LM_FACET& facet = *mesh.facets.At(f);
        if (verdicts[f] == Verdict::Scan &&
            !IsShadowed(mesh, f, CollectBorderSides(mesh, facet), collector.Collect(f), tolerance))
            continue;
        facet.flags &= uint8_t(~LM_LIVE);
        AppendTo(doomed, f);
    }
    // Alive again for a moment, so that the deletion unhooks their links.
    for (uint32_t i = 0; i < doomed.count; ++i) mesh.facets.At(*doomed.Peek(i))->flags |= LM_LIVE;
    LMeshDeleteFacets(mesh, doomed);
    return doomed.count;
}

uint32_t LMeshRepairVertexEdgeDisjoints(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, float distance,
                                        float endTolerance, float area)
{
    const JunctionTolerances tolerances{distance, endTolerance};
    const uint32_t splits = facets ? MendListedJunctions(mesh, *facets, tolerances) : MendAllJunctions(mesh, tolerances);
    LMeshDeleteAreaZeroFacets(mesh, area);
    // Welds E1 and E2 of each split to the sides of the facets the vertex belonged to.
    LMeshOptimizeEdges(mesh, endTolerance, nullptr, nullptr, nullptr, 1);
    return splits;
}
