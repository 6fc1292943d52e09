// Non-manifold repair: loose facets, and facets with a border side that two or more
// sides of other facets lie on, are deleted; T-junctions (a vertex lying inside the
// border side of a facet it is not a corner of) are mended by splitting that facet at
// the vertex and welding the new halves to the vertex's own edges.
//
// Both searches go through throw-away spatial indexes: the adaptive facet boxes for
// the shadowing sides, a cell grid of edges for the vertices. Only border sides matter
// to either, so both skip everything else early: a facet without a border side has
// nothing to count (on a closed mesh the boxes are not even built), a candidate whose
// sides' bounds cannot reach a border side is not read further, and the grid's cells
// keep each border edge once, with its end positions, and drop the rest. A split never
// turns an inner edge into a border edge, so the first edge found under a vertex is
// the same as with the full cells.
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

bool LiveVertex(const L_LUMOMESH& mesh, uint32_t v)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    return vertex && IsLive(vertex->flags);
}

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

struct SideBounds {
    float min[3] = {INFINITY, INFINITY, INFINITY};
    float max[3] = {-INFINITY, -INFINITY, -INFINITY};
};

SideBounds BoundsOfSides(const L_LUMOMESH& mesh, uint32_t f)
{
    SideBounds bounds;
    const LM_FACET* facet = mesh.facets.Peek(f);
    for (int j = 0; facet && j < 3; ++j) {
        float ends[2][3];
        if (!ReadEnds(mesh, facet->edge[j], ends)) continue;
        for (const float* p : ends)
            for (int k = 0; k < 3; ++k) {
                bounds.min[k] = std::min(bounds.min[k], p[k]);
                bounds.max[k] = std::max(bounds.max[k], p[k]);
            }
    }
    return bounds;
}

// Whether a point in the bounds could be near p. Exact: for q inside them, the gap to
// the nearer wall never exceeds |p - q| once both are rounded to float.
bool Reaches(const SideBounds& bounds, const float* p, float tolerance)
{
    for (int k = 0; k < 3; ++k)
        if (!(bounds.min[k] - p[k] < tolerance && p[k] - bounds.max[k] < tolerance)) return false;
    return true;
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
        sideBounds_.resize(verdicts.size());
        for (uint32_t f = 0; f < verdicts.size(); ++f) sideBounds_[f] = BoundsOfSides(mesh, f);
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

    // False when no side of g can lie on any of the border sides: a side of g within
    // tolerance of both ends of one needs both ends inside g's bounds widened by it.
    bool MayShadow(uint32_t g, const BorderSides& sides, float tolerance) const
    {
        const SideBounds& bounds = sideBounds_[g];
        for (int k = 0; k < sides.count; ++k)
            if (Reaches(bounds, sides.ends[k][0], tolerance) && Reaches(bounds, sides.ends[k][1], tolerance))
                return true;
        return false;
    }

private:
    BaseList<LM_BOX> boxes_;
    std::vector<SideBounds> sideBounds_;          // per facet, over the ends of its three sides
    std::vector<uint32_t> rowOf_;                 // facet to its row of boxesOf_, or LM_NONE
    std::vector<std::vector<uint32_t>> boxesOf_;  // ascending boxes holding each scanned facet
    std::vector<uint32_t> seenBy_;                // the facet whose candidates last listed each id
    std::vector<uint32_t> candidates_;
};

// Whether two or more sides of the other live candidates lie on one border side of f.
bool IsShadowed(const L_LUMOMESH& mesh, uint32_t f, const BorderSides& sides, CandidateCollector& collector,
                float tolerance)
{
    int shadows[3] = {0, 0, 0};
    for (uint32_t g : collector.Collect(f)) {
        if (g == f || !collector.MayShadow(g, sides, tolerance) || !LiveFacet(mesh, g)) continue;
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

// A candidate edge with its end positions at hand: a vertex is tested against many,
// and vertices do not move until the closing weld.
struct ListedEdge {
    uint32_t edge;
    float ends[2][3];
};
using EdgeList = std::vector<ListedEdge>;

// Whether p can be within `distance` of a point of the segment: a cheap bounds test,
// widened far beyond float rounding so that it never turns away an edge that the exact
// test takes.
bool MayLieInside(const float* p, const float ends[2][3], float distance)
{
    for (int k = 0; k < 3; ++k) {
        const float low = std::min(ends[0][k], ends[1][k]), high = std::max(ends[0][k], ends[1][k]);
        const float reach = 2.0f * distance + 1e-4f * (std::fabs(p[k]) + std::fabs(low) + std::fabs(high));
        if (p[k] < low - reach || p[k] > high + reach) return false;
    }
    return true;
}

// The first candidate edge under vertex v: live, with exactly one facet, which v is not
// a corner of, v inside it and off both its ends. Dead edges are passed over, so a side
// split earlier hands its vertices on to its halves.
uint32_t FindEdgeUnderVertex(const L_LUMOMESH& mesh, uint32_t v, const EdgeList& candidates,
                             const JunctionTolerances& tolerances)
{
    float p[3];
    if (!ReadPosition(mesh, v, p)) return LM_NONE;
    for (const ListedEdge& candidate : candidates) {
        if (!MayLieInside(p, candidate.ends, tolerances.distance)) continue;
        const LM_EDGE& edge = *mesh.edges.Peek(candidate.edge);
        const uint32_t facet = SoleFacet(edge);
        if (!IsLive(edge.flags) || facet == LM_NONE || IsCornerOf(mesh, facet, v)) continue;
        if (Near(p, candidate.ends[0], tolerances.end) || Near(p, candidate.ends[1], tolerances.end)) continue;
        if (LiesInside(p, candidate.ends, tolerances.distance)) return candidate.edge;
    }
    return LM_NONE;
}

// The entries of `edges` that can lie under a vertex: live, with exactly one facet, and
// readable; each once, in order. `listedIn` remembers per edge the last list (by
// `stamp`) that took it.
EdgeList ListSingleFacetEdgesOnce(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges,
                                  std::vector<uint32_t>& listedIn, uint32_t stamp)
{
    EdgeList listed;
    for (uint32_t i = 0; i < edges.count; ++i) {
        ListedEdge entry{*edges.Peek(i), {}};
        const LM_EDGE* edge = mesh.edges.Peek(entry.edge);
        if (!edge || !IsLive(edge->flags) || SoleFacet(*edge) == LM_NONE || listedIn[entry.edge] == stamp) continue;
        if (!ReadEnds(mesh, entry.edge, entry.ends)) continue;
        listedIn[entry.edge] = stamp;
        listed.push_back(entry);
    }
    return listed;
}

// Splits the facet of the edge under vertex v, if any, and counts the split.
bool MendJunction(L_LUMOMESH& mesh, uint32_t v, const EdgeList& candidates, const JunctionTolerances& tolerances,
                  BaseList<uint32_t>& scratch, SplitPieces& pieces)
{
    if (!LiveVertex(mesh, v)) return false;
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

// The corners and sides of the listed facets, each sorted with repeats removed.
void CollectListedWork(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, std::vector<uint32_t>& vertices,
                       BaseList<uint32_t>& edges)
{
    std::vector<uint32_t> sides;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const LM_FACET* facet = mesh.facets.Peek(*facets.Peek(i));
        if (!facet) continue;  // id past the store: nothing listed
        for (int k = 0; k < 3; ++k) {
            const uint32_t corner = facet->vertex[k], side = facet->edge[k];  // packed: copied, not bound
            vertices.push_back(corner);
            sides.push_back(side);
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
    BaseList<uint32_t> sides, scratch;
    CollectListedWork(mesh, facets, vertices, sides);
    std::vector<uint32_t> listedIn(mesh.edges.count, LM_NONE);
    const EdgeList candidates = ListSingleFacetEdgesOnce(mesh, sides, listedIn, 0);
    uint32_t splits = 0;
    SplitPieces pieces;
    for (uint32_t v : vertices)
        if (MendJunction(mesh, v, candidates, tolerances, scratch, pieces)) ++splits;
    return splits;
}

// The edge cell grid over the stored box, each cell reduced to the edges that can lie
// under a vertex.
class JunctionGrid {
public:
    explicit JunctionGrid(const L_LUMOMESH& mesh)
        : bounds_{{mesh.bboxMin[0], mesh.bboxMin[1], mesh.bboxMin[2]},
                  {mesh.bboxMax[0], mesh.bboxMax[1], mesh.bboxMax[2]}}
    {
        BaseList<BaseList<uint32_t>> cells;
        // A false result leaves the edges entered so far: the search goes on with them.
        LMeshBoxEdges(mesh, kCellsPerAxis, bounds_, cells);
        std::vector<uint32_t> listedIn(mesh.edges.count, LM_NONE);
        cells_.resize(cells.count);
        for (uint32_t c = 0; c < cells.count; ++c) cells_[c] = ListSingleFacetEdgesOnce(mesh, *cells.Peek(c), listedIn, c);
    }

    // The edges of the vertex's cell; null for a vertex off the grid or an empty cell.
    const EdgeList* CellOf(const L_LUMOMESH& mesh, uint32_t v) const
    {
        float p[3];
        uint32_t cell[5];
        if (!ReadPosition(mesh, v, p) || !EdgeSampleCells(bounds_, kCellsPerAxis, p, p, cell)) return nullptr;
        if (cell[0] >= cells_.size() || cells_[cell[0]].empty()) return nullptr;
        return &cells_[cell[0]];
    }

    // New edges go into the cells of their samples, once per cell, where later vertices find them.
    void Enter(const L_LUMOMESH& mesh, const SplitPieces& pieces)
    {
        for (uint32_t e : pieces.edges) {
            ListedEdge entry{e, {}};
            uint32_t index[5];
            if (!ReadEnds(mesh, e, entry.ends) ||
                !EdgeSampleCells(bounds_, kCellsPerAxis, entry.ends[0], entry.ends[1], index))
                continue;
            for (int s = 0; s < 5; ++s)
                if (std::find(index, index + s, index[s]) == index + s && index[s] < cells_.size())
                    cells_[index[s]].push_back(entry);
        }
    }

private:
    L_BOUNDSf bounds_;
    std::vector<EdgeList> cells_;
};

uint32_t MendAllJunctions(L_LUMOMESH& mesh, const JunctionTolerances& tolerances)
{
    JunctionGrid grid(mesh);
    const uint32_t vertexSlots = mesh.vertices.count;
    BaseList<uint32_t> scratch;
    uint32_t splits = 0;
    SplitPieces pieces;
    for (uint32_t v = 0; v < vertexSlots; ++v) {
        const EdgeList* candidates = LiveVertex(mesh, v) ? grid.CellOf(mesh, v) : nullptr;
        if (!candidates || !MendJunction(mesh, v, *candidates, tolerances, scratch, pieces)) continue;
        ++splits;
        grid.Enter(mesh, pieces);
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
            !IsShadowed(mesh, f, CollectBorderSides(mesh, facet), collector, tolerance))
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
