// Removal of badly shaped facets: skinny and degenerate facets, caps (one angle near
// 180 degrees), and facets in a range of shape factors.
//
// Skinny facets and caps are handed to the guarded edge collapse of the
// simplification, which refuses any collapse that would fold or shrink the surface
// too much. Skinny facets go shortest edge first, the one place where a collapse
// order is chosen by measure. A cap whose edges all refuse may still go when its
// obtuse corner is the centre of a fan of exactly three facets: the corner is taken
// out and the fan becomes one facet. The shape-factor removal has a normal test of
// its own and merges the ends of each sliver's shortest side directly, zipping the
// pairs of edges that the merge lays on each other.
#include <algorithm>
#include <cmath>
#include <vector>

#include "LMeshEdit.h"

namespace {

constexpr double kRadiansPerDegree = 0.0174532925199433;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

bool IsLiveFacet(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET* facet = mesh.facets.Peek(f);
    return facet && IsLive(facet->flags);
}

void Kill(uint8_t& flags) { flags &= uint8_t(~LM_LIVE); }

bool HasEnd(const LM_EDGE& edge, uint32_t v) { return edge.vertex[0] == v || edge.vertex[1] == v; }

bool Joins(const LM_EDGE& edge, uint32_t a, uint32_t b)
{
    return (edge.vertex[0] == a && edge.vertex[1] == b) || (edge.vertex[0] == b && edge.vertex[1] == a);
}

// The facet's edge joining a and b, or LM_NONE (also for edge ids past the store).
uint32_t FindFacetEdge(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t a, uint32_t b)
{
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (edge && Joins(*edge, a, b)) return facet.edge[k];
    }
    return LM_NONE;
}

bool IsBorder(const LM_EDGE& edge) { return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE; }

void ReadPosition(const L_LUMOMESH& mesh, uint32_t v, float* p)
{
    const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
    for (int k = 0; k < 3; ++k) p[k] = vertex.position[k];
}

// ---- Skinny facets

struct EdgeAndLength {
    uint32_t edge;
    float length;
};

// Shorter first; not-a-number lengths last, so that the sort sees a consistent order.
bool ShorterThan(const EdgeAndLength& a, const EdgeAndLength& b)
{
    return a.length < b.length || (!std::isnan(a.length) && std::isnan(b.length));
}

// Whether an inner angle (radians) lies strictly within `tolerance` degrees of 0 or 180.
bool HasFlatAngle(const float* angles, float tolerance)
{
    for (int k = 0; k < 3; ++k) {
        const double degrees = double(angles[k]) / kRadiansPerDegree;
        if (degrees < tolerance || 180.0 - degrees < tolerance) return true;
    }
    return false;
}

// Sorts one facet into the urgent list (degenerate or small) or the list of edges
// to collapse by length (skinny, or with a short side).
void ClassifyFacet(const L_LUMOMESH& mesh, uint32_t f, const LM_TOLERANCES& tolerances, float angleTolerance,
                   BaseList<uint32_t>& urgent, std::vector<EdgeAndLength>& byLength)
{
    float largest = 0.0f, angles[3];
    uint32_t corner = 0, shortest = LM_NONE;
    if (LMeshLargestInnerAngleOfTriangle(mesh, f, largest, corner, angles) == LM_NONE) return;  // broken facet
    const float length = LMeshShortestEdgeLength(mesh, f, shortest);
    if (HasFlatAngle(angles, angleTolerance)) {
        AppendTo(urgent, shortest);
    } else if (LMeshTriangleAspectRatio(mesh, f) > tolerances.skinnyAspectRatio) {
        byLength.push_back({shortest, length});
    } else if (LMeshTriangleArea(mesh, f) < tolerances.minimumArea) {
        AppendTo(urgent, shortest);
    } else if (!(length > tolerances.skinnyEdgeLength)) {
        byLength.push_back({shortest, length});
    }
}

BaseList<uint32_t> EdgesShortestFirst(std::vector<EdgeAndLength>& byLength)
{
    std::stable_sort(byLength.begin(), byLength.end(), ShorterThan);
    BaseList<uint32_t> edges;
    for (const EdgeAndLength& entry : byLength) AppendTo(edges, entry.edge);
    return edges;
}

// ---- Caps

std::vector<uint32_t> CollectCaps(const L_LUMOMESH& mesh, float capAngle)
{
    std::vector<uint32_t> caps;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!IsLiveFacet(mesh, f)) continue;
        float largest = 0.0f;
        uint32_t corner = 0;
        if (LMeshLargestInnerAngleOfTriangle(mesh, f, largest, corner, nullptr) == LM_NONE) continue;
        if (double(largest) / kRadiansPerDegree > capAngle) caps.push_back(f);
    }
    return caps;
}

// True at the first of the facet's edges that the guarded collapse takes.
bool CollapseAnyEdge(L_LUMOMESH& mesh, uint32_t f, const LM_TOLERANCES& tolerances)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    const uint32_t edges[3] = {facet.edge[0], facet.edge[1], facet.edge[2]};
    for (uint32_t edge : edges)
        if (LMeshSimplifyEdge(mesh, edge, tolerances, false, false) == 0) return true;
    return false;
}

// A vertex at the centre of a closed fan of three facets, and what surrounds it.
struct ThreeFan {
    uint32_t centre;
    uint32_t facets[3];
    uint32_t spokes[3];  // the edges at the centre
    uint32_t ring[3];    // the vertices around it, in the order the walk gives
    uint32_t outer[3];   // outer[k] is the facets[k] edge away from the centre
    uint32_t side[3];    // side[k] joins ring[k] and ring[k + 1]: the new facet's edges
};

bool ListExactlyThree(short status, const BaseList<uint32_t>& list, uint32_t* ids)
{
    if (status < 0 || list.count != 3) return false;
    for (uint32_t k = 0; k < 3; ++k) ids[k] = *list.Peek(k);
    return true;
}

// The edge of facet f that does not touch v, or LM_NONE.
uint32_t EdgeAwayFrom(const L_LUMOMESH& mesh, uint32_t f, uint32_t v)
{
    const LM_FACET* facet = mesh.facets.Peek(f);
    if (!facet) return LM_NONE;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet->edge[k]);
        if (edge && !HasEnd(*edge, v)) return facet->edge[k];
    }
    return LM_NONE;
}

// The outer edge joining a and b, or LM_NONE.
uint32_t OuterEdgeJoining(const L_LUMOMESH& mesh, const uint32_t* outer, uint32_t a, uint32_t b)
{
    for (int k = 0; k < 3; ++k)
        if (Joins(*mesh.edges.Peek(outer[k]), a, b)) return outer[k];
    return LM_NONE;
}

// Whether v has exactly three facets, three edges and three neighbours around it,
// with an outer edge across each facet that closes the ring.
bool FindThreeFan(const L_LUMOMESH& mesh, uint32_t v, ThreeFan& fan)
{
    BaseList<uint32_t> facets, edges, ring;
    fan.centre = v;
    if (!ListExactlyThree(LMeshGetFacetsAroundVertex(mesh, v, facets), facets, fan.facets)) return false;
    if (!ListExactlyThree(LMeshGetEdgesAroundVertex(mesh, v, edges), edges, fan.spokes)) return false;
    if (!ListExactlyThree(LMeshGetVerticesAroundVertex(mesh, v, ring), ring, fan.ring)) return false;
    for (int k = 0; k < 3; ++k) {
        fan.outer[k] = EdgeAwayFrom(mesh, fan.facets[k], v);
        if (fan.outer[k] == LM_NONE) return false;
    }
    for (int k = 0; k < 3; ++k) {
        fan.side[k] = OuterEdgeJoining(mesh, fan.outer, fan.ring[k], fan.ring[(k + 1) % 3]);
        if (fan.side[k] == LM_NONE) return false;
    }
    return true;
}

// A ring vertex that was linked to a spoke gets a live outer edge instead, so that
// walks around it still start.
void RelinkRingVertex(L_LUMOMESH& mesh, const ThreeFan& fan, uint32_t v)
{
    LM_VERTEX& vertex = *mesh.vertices.At(v);
    if (std::find(fan.spokes, fan.spokes + 3, uint32_t(vertex.edge)) == fan.spokes + 3) return;
    for (uint32_t e : fan.side)
        if (HasEnd(*mesh.edges.Peek(e), v)) vertex.edge = e;
}

// Replaces the three facets of the fan with one facet on the ring, appended to the
// store; the centre and its three edges die. False, with nothing changed, when the
// store cannot grow.
bool ReplaceThreeFan(L_LUMOMESH& mesh, const ThreeFan& fan)
{
    const uint32_t merged = mesh.facets.count;
    LM_FACET* facet = mesh.facets.At(merged);
    if (!facet) return false;
    for (int k = 0; k < 3; ++k) {
        UnlinkFacetFromEdge(*mesh.edges.At(fan.outer[k]), fan.facets[k]);
        Kill(mesh.facets.At(fan.facets[k])->flags);
        Kill(mesh.edges.At(fan.spokes[k])->flags);
    }
    Kill(mesh.vertices.At(fan.centre)->flags);
    for (int k = 0; k < 3; ++k) {
        facet->vertex[k] = fan.ring[k];
        facet->edge[k] = fan.side[k];
        facet->normal[k] = 0.0f;  // left for the caller's recomputation
        LM_EDGE& side = *mesh.edges.At(fan.side[k]);
        // The free link: facet[1] on an inner side, facet[0] on a side that was a border.
        if (side.facet[0] == LM_NONE)
            side.facet[0] = merged;
        else
            side.facet[1] = merged;
    }
    facet->groupId = 0;
    facet->flags = LM_LIVE;
    for (uint32_t v : fan.ring) RelinkRingVertex(mesh, fan, v);
    mesh.facetSlots = mesh.facets.count;
    mesh.facetCount -= 2;
    mesh.vertexCount -= 1;
    mesh.edgeCount -= 3;
    return true;
}

bool RemoveThreeFanAtLargestAngle(L_LUMOMESH& mesh, uint32_t f)
{
    float largest = 0.0f;
    uint32_t corner = 0;
    const uint32_t v = LMeshLargestInnerAngleOfTriangle(mesh, f, largest, corner, nullptr);
    ThreeFan fan;
    if (v >= mesh.vertices.count || !FindThreeFan(mesh, v, fan)) return false;
    return ReplaceThreeFan(mesh, fan);
}

// ---- Shape-factor range

// Vertices merged into each survivor so far, as chains, so that the facets now at a
// vertex can be found from the navigation table's snapshot of the start: they are
// the snapshot's facets of the vertex and of everything merged into it.
class MergeChains {
public:
    explicit MergeChains(uint32_t vertexCount) : next_(vertexCount, LM_NONE), tail_(vertexCount)
    {
        for (uint32_t v = 0; v < vertexCount; ++v) tail_[v] = v;
    }

    void Merge(uint32_t from, uint32_t into)
    {
        next_[tail_[into]] = from;
        tail_[into] = tail_[from];
    }

    template <class Visit>
    void ForEach(uint32_t v, Visit visit) const
    {
        for (uint32_t u = v; u != LM_NONE; u = next_[u]) visit(u);
    }

private:
    std::vector<uint32_t> next_;
    std::vector<uint32_t> tail_;
};

struct ShapeFactorCollapse {
    L_LUMOMESH& mesh;
    float angleLimit;  // radians
    MergeChains chains;
    std::vector<uint8_t> noted;      // per facet slot: to be deleted at the end
    std::vector<uint32_t> edgeTo;    // per edge slot: a lower edge of the same seam, or itself
    BaseList<uint32_t> deletions;
    std::vector<uint32_t> fan;       // scratch: the facets at the vertex being moved
    std::vector<float> fanNormals;   // scratch: their normals after the move
    bool moved = false;

    ShapeFactorCollapse(L_LUMOMESH& target, float limit)
        : mesh(target), angleLimit(limit), chains(target.vertices.count), noted(target.facets.count, 0),
          edgeTo(target.edges.count)
    {
        for (uint32_t e = 0; e < edgeTo.size(); ++e) edgeTo[e] = e;
    }

    bool IsUsable(uint32_t f) const { return IsLiveFacet(mesh, f) && !noted[f]; }

    bool HasCornerIds(const LM_FACET& facet) const
    {
        for (int k = 0; k < 3; ++k)
            if (facet.vertex[k] >= mesh.vertices.count) return false;
        return true;
    }

    // The facets now holding x, other than g0, g1 and those noted, each once.
    void CollectFan(uint32_t x, uint32_t g0, uint32_t g1)
    {
        fan.clear();
        chains.ForEach(x, [&](uint32_t u) {
            uint32_t f = LM_NONE;
            for (bool more = LMeshGetFirstFacetByVertex(u, &f); more; more = LMeshGetNextFacetByVertex(u, &f)) {
                if (f == g0 || f == g1 || !IsUsable(f)) continue;
                const LM_FACET& facet = *mesh.facets.Peek(f);
                if (facet.vertex[0] == x || facet.vertex[1] == x || facet.vertex[2] == x) fan.push_back(f);
            }
        });
        std::sort(fan.begin(), fan.end());
        fan.erase(std::unique(fan.begin(), fan.end()), fan.end());
    }

    // The facet's edges at x must be inner edges, and its normal must be computable
    // with x at y and turn by no more than the angle limit.
    bool FacetAllowsMove(uint32_t f, uint32_t x, uint32_t y, float* normalAfter) const
    {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!HasCornerIds(facet)) return false;
        for (int k = 0; k < 3; ++k) {
            const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
            if (edge && HasEnd(*edge, x) && IsBorder(*edge)) return false;
        }
        float before[3][3], after[3][3];
        for (int k = 0; k < 3; ++k) {
            ReadPosition(mesh, facet.vertex[k], before[k]);
            ReadPosition(mesh, facet.vertex[k] == x ? y : uint32_t(facet.vertex[k]), after[k]);
        }
        float normalBefore[3];
        ComputeFacetNormal(before[0], before[1], before[2], normalBefore);
        if (!ComputeFacetNormal(after[0], after[1], after[2], normalAfter)) return false;
        const L_VECTOR a = {normalBefore[0], normalBefore[1], normalBefore[2]};
        const L_VECTOR b = {normalAfter[0], normalAfter[1], normalAfter[2]};
        return !(vector_angle(a, b) > angleLimit);
    }

    bool CanMove(uint32_t x, uint32_t y, uint32_t g0, uint32_t g1)
    {
        CollectFan(x, g0, g1);
        fanNormals.resize(fan.size() * 3);
        for (size_t i = 0; i < fan.size(); ++i)
            if (!FacetAllowsMove(fan[i], x, y, &fanNormals[3 * i])) return false;
        return true;
    }

    // The lowest edge of the seam that e belongs to.
    uint32_t SeamRoot(uint32_t e) const
    {
        while (edgeTo[e] != e) e = edgeTo[e];
        return e;
    }

    // In g (x, y, a) the edges x-a and y-a become one. A later collapse can lay a
    // third edge on the same seam (through a facet beside it), so seams are joined
    // as sets, each forwarding to its lowest edge.
    void ForwardMergingEdges(uint32_t g, uint32_t x, uint32_t y)
    {
        const LM_FACET& facet = *mesh.facets.Peek(g);
        uint32_t apex = LM_NONE;
        for (int k = 0; k < 3; ++k)
            if (facet.vertex[k] != x && facet.vertex[k] != y) apex = facet.vertex[k];
        if (apex == LM_NONE) return;
        const uint32_t ex = FindFacetEdge(mesh, facet, x, apex);
        const uint32_t ey = FindFacetEdge(mesh, facet, y, apex);
        if (ex == LM_NONE || ey == LM_NONE || ex == ey) return;
        const uint32_t rootX = SeamRoot(ex), rootY = SeamRoot(ey);
        edgeTo[std::max(rootX, rootY)] = std::min(rootX, rootY);
    }

    // Every facet of the fan and its edges at x now use y; the collapsed edge keeps
    // its ends, as it dies with g0 and g1.
    void MoveFan(uint32_t x, uint32_t y, uint32_t collapsed)
    {
        for (size_t i = 0; i < fan.size(); ++i) {
            LM_FACET& facet = *mesh.facets.At(fan[i]);
            for (int k = 0; k < 3; ++k) {
                if (facet.vertex[k] == x) facet.vertex[k] = y;
                facet.normal[k] = fanNormals[3 * i + k];
                const uint32_t e = facet.edge[k];
                if (e == collapsed || e >= mesh.edges.count) continue;
                LM_EDGE& edge = *mesh.edges.At(e);
                for (int end = 0; end < 2; ++end)
                    if (edge.vertex[end] == x) edge.vertex[end] = y;
            }
        }
    }

    void Note(uint32_t f)
    {
        noted[f] = 1;
        AppendTo(deletions, f);
    }

    bool TryMove(uint32_t x, uint32_t y, uint32_t collapsed, uint32_t g0, uint32_t g1)
    {
        if (!CanMove(x, y, g0, g1)) return false;
        Note(g0);
        Note(g1);
        ForwardMergingEdges(g0, x, y);
        ForwardMergingEdges(g1, x, y);
        MoveFan(x, y, collapsed);
        chains.Merge(x, y);
        moved = true;
        return true;
    }

    // The shortest side by squared length in float, earlier sides winning ties as the
    // comparisons fall: c0 c1, then c2 c0, then c1 c2.
    static void ShortestSide(const float p[3][3], const uint32_t* c, uint32_t& first, uint32_t& second)
    {
        auto squared = [&](int i, int j) {
            const float dx = p[j][0] - p[i][0], dy = p[j][1] - p[i][1], dz = p[j][2] - p[i][2];
            return dx * dx + dy * dy + dz * dz;
        };
        const float d01 = squared(0, 1), d20 = squared(2, 0), d12 = squared(1, 2);
        int a = 1, b = 2;
        if (d01 <= d20 && d01 <= d12) {
            a = 0;
            b = 1;
        } else if (d20 <= d12) {
            a = 2;
            b = 0;
        }
        first = c[a];
        second = c[b];
    }

    void CollapseShortestSide(uint32_t f)
    {
        if (f >= noted.size() || !IsUsable(f)) return;  // id past the store, dead, or going already
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!HasCornerIds(facet)) return;
        const uint32_t corners[3] = {facet.vertex[0], facet.vertex[1], facet.vertex[2]};
        float p[3][3];
        for (int k = 0; k < 3; ++k) ReadPosition(mesh, corners[k], p[k]);
        uint32_t first = LM_NONE, second = LM_NONE;
        ShortestSide(p, corners, first, second);
        const uint32_t side = FindFacetEdge(mesh, facet, first, second);
        if (side == LM_NONE) return;
        const LM_EDGE& edge = *mesh.edges.Peek(side);
        const uint32_t g0 = edge.facet[0], g1 = edge.facet[1];
        if (g0 == LM_NONE || g1 == LM_NONE || g0 >= noted.size() || g1 >= noted.size()) return;
        if (g0 == g1 || (f != g0 && f != g1)) return;  // the side's links are broken
        if (!IsUsable(g0) || !IsUsable(g1)) return;
        if (!TryMove(first, second, side, g0, g1)) TryMove(second, first, side, g0, g1);
    }

    // Each edge that forwards to a lower one is zipped onto the lowest edge of its
    // seam that outlived the deletion; edges that died with the slivers drop out.
    void DeleteNotedAndZip()
    {
        LMeshDeleteFacets(mesh, deletions);
        std::vector<uint32_t> kept(edgeTo.size(), LM_NONE);  // per seam root
        for (uint32_t e = 0; e < edgeTo.size(); ++e) {
            if (!IsLive(mesh.edges.Peek(e)->flags)) continue;
            const uint32_t root = SeamRoot(e);
            if (kept[root] == LM_NONE)
                kept[root] = e;
            else
                ZipBorderEdges(mesh, kept[root], e);
        }
    }
};

}  // namespace

uint32_t LMeshRemoveSkinnyTriangles(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances, float angleTolerance)
{
    BaseList<uint32_t> urgent;
    std::vector<EdgeAndLength> byLength;
    const uint32_t slots = mesh.facets.count;
    for (uint32_t f = 0; f < slots; ++f)
        if (IsLiveFacet(mesh, f)) ClassifyFacet(mesh, f, tolerances, angleTolerance, urgent, byLength);
    const uint32_t urgentCollapses = LMeshSimplifyEdges(mesh, urgent, tolerances, false, false);
    const BaseList<uint32_t> shortestFirst = EdgesShortestFirst(byLength);
    return urgentCollapses + LMeshSimplifyEdges(mesh, shortestFirst, tolerances, false, false);
}

uint32_t LMeshRemoveCapTriangles(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances)
{
    uint32_t dealtWith = 0;
    for (uint32_t f : CollectCaps(mesh, tolerances.capAngle)) {
        if (!IsLiveFacet(mesh, f)) continue;  // gone with an earlier cap's collapse
        if (CollapseAnyEdge(mesh, f, tolerances) || RemoveThreeFanAtLargestAngle(mesh, f)) ++dealtWith;
    }
    mesh.facetSlots = mesh.facets.count;
    return dealtWith;
}

bool LMeshRemoveFacetsByShapeFactorRange(L_LUMOMESH& mesh, float min, float max, float angle)
{
    LMeshDeleteAreaZeroFacets(mesh, 0.0f);
    BaseList<uint32_t> listed;
    if (!LMeshFindFacetsByShapeFactorRange(mesh, min, max, &listed)) return false;
    ShapeFactorCollapse collapse(mesh, angle);
    LMeshStartFacetByVertexNavigation(mesh);
    for (uint32_t i = 0; i < listed.count; ++i) collapse.CollapseShortestSide(*listed.Peek(i));
    LMeshStopFacetByVertexNavigation();
    if (!collapse.moved) return false;
    collapse.DeleteNotedAndZip();
    return true;
}
