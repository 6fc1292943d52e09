// Orientation and normals: recomputing, reversing and negating the stored facet
// normals, and making the winding of a whole mesh consistent.
//
// LMeshOrientFacets spreads the winding of one seed per edge-connected piece breadth
// first across shared edges, reordering each neighbour's corners so that it crosses
// the shared edge against the facet it was reached from. Corners are matched by
// position, not by id, so the call's tolerance decides what counts as the same
// corner. Which way a seed faces comes from the parity of crossings of a ray cast
// from its centroid along its normal against every other live facet: an odd count
// means the normal points into a closed volume. Only the facets in the grid cells the
// ray passes through are tested, which gives the same count as testing every facet;
// the propagation touches each facet once.
//
// Reversal swaps corner ids only. Edge ids stay, so after it a facet's edge[k] no
// longer joins corners k and k + 1; the propagation therefore looks sides up by
// their end vertices.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "LMeshOrientation.h"
#include "LMeshRead.h"

namespace {

constexpr float kParallelDot = 1e-6f;       // |m . d| below this: the ray runs along the facet
constexpr float kSelfHitDistance = 1e-6f;   // nearer hits are the seed's own neighbourhood
constexpr uint32_t kWorkGrowth = 256;       // working lists take the mesh stores' shape,
constexpr uint32_t kWorkPage = 4096;        // as they hold one entry per facet slot

bool ReadCorners(const L_LUMOMESH& mesh, const LM_FACET& facet, float p[3][3])
{
    return ReadPosition(mesh, facet.vertex[0], p[0]) && ReadPosition(mesh, facet.vertex[1], p[1]) &&
           ReadPosition(mesh, facet.vertex[2], p[2]);
}

void StoreNormal(LM_FACET& facet, const float n[3])
{
    for (int k = 0; k < 3; ++k) facet.normal[k] = n[k];
}

void RefreshNormal(const L_LUMOMESH& mesh, LM_FACET& facet)
{
    float p[3][3];
    if (!ReadCorners(mesh, facet, p)) return;  // stale corner: keep the old normal, read nothing outside
    float n[3];
    ComputeFacetNormal(p[0], p[1], p[2], n);
    StoreNormal(facet, n);
}

void SwapLastCorners(const L_LUMOMESH& mesh, LM_FACET& facet)
{
    const uint32_t second = facet.vertex[1];
    facet.vertex[1] = facet.vertex[2];
    facet.vertex[2] = second;
    RefreshNormal(mesh, facet);
}

void NegateNormal(LM_FACET& facet)
{
    for (int k = 0; k < 3; ++k) facet.normal[k] = facet.normal[k] * -1.0f;
}

// Every live facet slot for a null list; otherwise each list entry in order, so a
// repeated id is acted on again.
template <class Action>
void ForEachSelectedLiveFacet(L_LUMOMESH& mesh, const BaseList<uint32_t>* list, Action act)
{
    const uint32_t steps = list ? list->count : mesh.facets.count;
    for (uint32_t i = 0; i < steps; ++i) {
        const uint32_t f = list ? *list->Peek(i) : i;
        if (f >= mesh.facets.count) continue;  // At would grow the store to a stale id: skip it
        LM_FACET& facet = *mesh.facets.At(f);
        if (facet.flags & LM_LIVE) act(facet);
    }
}

// Whether the ray c + s d crosses facet t ahead of the seed's neighbourhood.
bool RayCrossesFacet(const L_LUMOMESH& mesh, const float c[3], const float d[3], const LM_FACET& t,
                     float tolerance)
{
    const float m[3] = {t.normal[0], t.normal[1], t.normal[2]};
    const float dot = m[0] * d[0] + m[1] * d[1] + m[2] * d[2];
    if (std::fabs(dot) < kParallelDot) return false;
    float p[3][3];
    if (!ReadPosition(mesh, t.vertex[0], p[0])) return false;  // stale corner: no plane to meet
    const float s = ((p[0][0] - c[0]) * m[0] + (p[0][1] - c[1]) * m[1] + (p[0][2] - c[2]) * m[2]) / dot;
    // One test for both "not ahead" (s <= 0) and "too near" (s <= 1e-6); NaN fails it too.
    if (!(s > kSelfHitDistance)) return false;
    if (!ReadPosition(mesh, t.vertex[1], p[1]) || !ReadPosition(mesh, t.vertex[2], p[2])) return false;
    const float h[3] = {c[0] + d[0] * s, c[1] + d[1] * s, c[2] + d[2] * s};
    return PointInTriangle(h, p[0], p[1], p[2], tolerance);
}

// The live facets sorted into a uniform grid by their boxes, so that a seed's ray is
// tested only against the facets of the cells it passes through (and those too large
// for the grid). Boxes are widened far beyond the rounding of a hit point, so no facet
// the ray can hit is passed over and the count is that of testing every facet. Facets
// keep their places while the orientation runs, so one grid serves every seed.
class RayGrid {
public:
    explicit RayGrid(const L_LUMOMESH& mesh) : stamps_(mesh.facets.count, 0)
    {
        std::vector<std::pair<uint32_t, L_BOUNDSf>> boxes;
        L_BOUNDSf all = {{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
        for (uint32_t f = 0; f < mesh.facets.count; ++f) {
            const LM_FACET& facet = *mesh.facets.Peek(f);
            float p[3][3];
            if (!(facet.flags & LM_LIVE)) continue;
            L_BOUNDSf box;
            if (!ReadCorners(mesh, facet, p) || !BoxOf(p, box)) {
                everywhere_.push_back(f);  // no usable box: always tested
                continue;
            }
            for (int k = 0; k < 3; ++k) {
                all.min[k] = std::min(all.min[k], box.min[k]);
                all.max[k] = std::max(all.max[k], box.max[k]);
            }
            boxes.emplace_back(f, box);
        }
        if (boxes.empty()) return;
        const double extent = std::max({all.max[0] - all.min[0], all.max[1] - all.min[1], all.max[2] - all.min[2]});
        margin_ = 1e-4 * extent + 1e-6;
        const int perAxis = std::clamp(int(std::cbrt(double(boxes.size()) / 2.0)), 1, 100);
        for (int k = 0; k < 3; ++k) {
            origin_[k] = all.min[k] - margin_;
            const double span = all.max[k] - all.min[k] + 2.0 * margin_;
            cells_[k] = perAxis;
            size_[k] = span / perAxis;
        }
        grid_.resize(size_t(perAxis) * perAxis * perAxis);
        for (const auto& [f, box] : boxes) Insert(f, box);
    }

    // Calls visit(f) once for each facet the ray from c along d may hit.
    template <class Visit>
    void ForEachCandidate(const float c[3], const float d[3], Visit visit)
    {
        ++query_;
        for (uint32_t f : everywhere_) Once(f, visit);
        if (grid_.empty()) return;
        double enter = 0.0, exit = INFINITY;
        for (int k = 0; k < 3; ++k) {
            const double low = origin_[k], high = origin_[k] + size_[k] * cells_[k];
            if (d[k] == 0.0f) {
                if (c[k] < low || c[k] > high) return;
                continue;
            }
            const double a = (low - c[k]) / d[k], b = (high - c[k]) / d[k];
            enter = std::max(enter, std::min(a, b));
            exit = std::min(exit, std::max(a, b));
        }
        if (!(enter <= exit)) return;  // the ray misses the grid (NaN too)
        int cell[3], step[3];
        double next[3], delta[3];
        for (int k = 0; k < 3; ++k) {
            const double at = (c[k] + d[k] * enter - origin_[k]) / size_[k];
            cell[k] = std::clamp(int(std::floor(at)), 0, cells_[k] - 1);
            step[k] = d[k] > 0.0f ? 1 : d[k] < 0.0f ? -1 : 0;
            const double boundary = origin_[k] + size_[k] * (cell[k] + (step[k] > 0 ? 1 : 0));
            next[k] = step[k] == 0 ? INFINITY : (boundary - c[k]) / d[k];
            delta[k] = step[k] == 0 ? INFINITY : size_[k] / std::fabs(double(d[k]));
        }
        for (;;) {
            for (uint32_t f : grid_[Index(cell)]) Once(f, visit);
            const int k = next[0] <= next[1] && next[0] <= next[2] ? 0 : next[1] <= next[2] ? 1 : 2;
            if (!(next[k] <= exit) || step[k] == 0) return;  // past the grid, or a ray of no direction
            cell[k] += step[k];
            if (cell[k] < 0 || cell[k] >= cells_[k]) return;
            next[k] += delta[k];
        }
    }

private:
    static constexpr int kMostCellsPerFacet = 64;

    static bool BoxOf(const float p[3][3], L_BOUNDSf& box)
    {
        for (int k = 0; k < 3; ++k) {
            box.min[k] = std::min({p[0][k], p[1][k], p[2][k]});
            box.max[k] = std::max({p[0][k], p[1][k], p[2][k]});
            if (!std::isfinite(box.min[k]) || !std::isfinite(box.max[k])) return false;
        }
        return true;
    }

    size_t Index(const int cell[3]) const { return (size_t(cell[0]) * cells_[1] + cell[1]) * cells_[2] + cell[2]; }

    int CellOf(int k, double x) const { return std::clamp(int(std::floor((x - origin_[k]) / size_[k])), 0, cells_[k] - 1); }

    void Insert(uint32_t f, const L_BOUNDSf& box)
    {
        int low[3], high[3], count = 1;
        for (int k = 0; k < 3; ++k) {
            low[k] = CellOf(k, box.min[k] - margin_);
            high[k] = CellOf(k, box.max[k] + margin_);
            count *= high[k] - low[k] + 1;
        }
        if (count > kMostCellsPerFacet) {
            everywhere_.push_back(f);
            return;
        }
        int cell[3];
        for (cell[0] = low[0]; cell[0] <= high[0]; ++cell[0])
            for (cell[1] = low[1]; cell[1] <= high[1]; ++cell[1])
                for (cell[2] = low[2]; cell[2] <= high[2]; ++cell[2]) grid_[Index(cell)].push_back(f);
    }

    template <class Visit>
    void Once(uint32_t f, Visit& visit)
    {
        if (stamps_[f] == query_) return;
        stamps_[f] = query_;
        visit(f);
    }

    double origin_[3] = {}, size_[3] = {1, 1, 1}, margin_ = 0.0;
    int cells_[3] = {1, 1, 1};
    std::vector<std::vector<uint32_t>> grid_;
    std::vector<uint32_t> everywhere_;
    std::vector<uint32_t> stamps_;
    uint32_t query_ = 0;
};

// Crossings of the seed's ray with every other live facet it may reach.
uint32_t CountRayCrossings(const L_LUMOMESH& mesh, RayGrid& grid, uint32_t seed, float tolerance)
{
    const LM_FACET& facet = *mesh.facets.Peek(seed);
    float p[3][3];
    if (!ReadCorners(mesh, facet, p)) return 0;  // stale corner: no centroid to cast from
    float c[3];
    for (int k = 0; k < 3; ++k) c[k] = (p[0][k] + p[1][k] + p[2][k]) / 3.0f;
    const float d[3] = {facet.normal[0], facet.normal[1], facet.normal[2]};
    uint32_t crossings = 0;
    grid.ForEachCandidate(c, d, [&](uint32_t f) {
        if (f != seed && RayCrossesFacet(mesh, c, d, *mesh.facets.Peek(f), tolerance)) ++crossings;
    });
    return crossings;
}

// Turns the seed outward (direction 1) or inward (0) by the parity of its ray; any
// other direction keeps it as found. A kept seed's normal is normalised once more,
// which turns a normal too short to trust into zero.
void OrientSeed(L_LUMOMESH& mesh, RayGrid& grid, uint32_t seed, float tolerance, short direction)
{
    if (direction == 0 || direction == 1) {
        const bool odd = (CountRayCrossings(mesh, grid, seed, tolerance) & 1u) != 0;
        if (odd == (direction == 1)) {
            LMeshReverseFacet(mesh, seed);
            return;
        }
    }
    LM_FACET& facet = *mesh.facets.At(seed);
    float n[3] = {facet.normal[0], facet.normal[1], facet.normal[2]};
    NormalizeVector(n);
    StoreNormal(facet, n);
}

// For each side of f, in the order {a,b}, {b,c}, {a,c}: which two corners it joins,
// and the two passes that bring a neighbour's ids into the order crossing that side
// against f: (a,?,b), (c,b,?) and (a,c,?). Corners are 0 a, 1 b, 2 c.
struct SideTurn {
    int ends[2];
    int firstCorner, firstSlot, secondCorner, secondSlot;
};
constexpr SideTurn kSideTurns[3] = {{{0, 1}, 0, 0, 1, 2}, {{1, 2}, 2, 0, 1, 1}, {{0, 2}, 0, 0, 2, 1}};

// The first of the facet's edges joining v and w, in either direction; LM_NONE if none.
uint32_t FindSide(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t v, uint32_t w)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t e = facet.edge[k];
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!edge) continue;  // stale edge id: it joins nothing
        const uint32_t e0 = edge->vertex[0], e1 = edge->vertex[1];
        if ((e0 == v && e1 == w) || (e0 == w && e1 == v)) return e;
    }
    return LM_NONE;
}

// The facet across edge e from f: facet[0] unless it is none or f, else facet[1].
uint32_t NeighbourAcross(const L_LUMOMESH& mesh, uint32_t e, uint32_t f)
{
    const LM_EDGE& edge = *mesh.edges.Peek(e);
    const uint32_t first = edge.facet[0], second = edge.facet[1];
    uint32_t neighbour = LM_NONE;
    if (first != LM_NONE && first != f)
        neighbour = first;
    else if (second != LM_NONE && second != f)
        neighbour = second;
    return neighbour < mesh.facets.count ? neighbour : LM_NONE;  // a link past the store: no neighbour
}

bool IsNear(const float p[3], const float q[3], float tolerance)
{
    return std::fabs(p[0] - q[0]) < tolerance && std::fabs(p[1] - q[1]) < tolerance &&
           std::fabs(p[2] - q[2]) < tolerance;
}

// One pass: each slot, read as it now stands, whose vertex lies near the corner is
// exchanged into the target slot. True if any exchange happened.
bool MoveNearCornerToSlot(const L_LUMOMESH& mesh, LM_FACET& neighbour, const float corner[3], int target,
                          float tolerance)
{
    bool moved = false;
    for (int i = 0; i < 3; ++i) {
        float p[3];
        const uint32_t id = neighbour.vertex[i];
        if (i == target || !ReadPosition(mesh, id, p) || !IsNear(p, corner, tolerance)) continue;
        neighbour.vertex[i] = neighbour.vertex[target];
        neighbour.vertex[target] = id;
        moved = true;
    }
    return moved;
}

// Working state shared by all seeds of one call.
class Propagation {
public:
    Propagation(L_LUMOMESH& mesh, float tolerance)
        : mesh_(mesh), tolerance_(tolerance), visited_(kWorkGrowth, kWorkPage), queue_(kWorkGrowth, kWorkPage)
    {
    }

    // Both lists hold one entry per facet slot, as a facet enters the queue at most
    // once. Fresh pages read as zero, so every facet starts unvisited.
    bool Reserve()
    {
        const uint32_t slots = mesh_.facets.count;
        return visited_.SetSize(slots) && queue_.SetSize(slots);
    }

    bool IsVisited(uint32_t f) { return *visited_.At(f) != 0; }
    void MarkVisited(uint32_t f) { *visited_.At(f) = 1; }
    bool Changed() const { return changed_; }
    bool QueueHoldsEverySlot() const { return queued_ >= mesh_.facets.count; }

    void Enqueue(uint32_t f) { *queue_.At(queued_++) = f; }

    // Runs the read index to the moving end of the queue.
    void Drain()
    {
        while (read_ < queued_) SpreadFrom(*queue_.At(read_++));
    }

private:
    // Brings each unvisited neighbour of f into f's winding and queues it. A facet
    // with a side that cannot be found, or a stale corner, spreads nothing.
    void SpreadFrom(uint32_t f)
    {
        MarkVisited(f);
        const LM_FACET& facet = *mesh_.facets.At(f);
        const uint32_t corner[3] = {facet.vertex[0], facet.vertex[1], facet.vertex[2]};
        uint32_t neighbour[3];
        for (int k = 0; k < 3; ++k) {
            const uint32_t side = FindSide(mesh_, facet, corner[kSideTurns[k].ends[0]], corner[kSideTurns[k].ends[1]]);
            if (side == LM_NONE) return;
            neighbour[k] = NeighbourAcross(mesh_, side, f);
        }
        float position[3][3];
        if (!ReadCorners(mesh_, facet, position)) return;  // stale corner: stop here as at a missing side
        for (int k = 0; k < 3; ++k) {
            const uint32_t n = neighbour[k];
            if (n == LM_NONE || IsVisited(n)) continue;
            TurnNeighbour(*mesh_.facets.At(n), kSideTurns[k], position);
            MarkVisited(n);
            Enqueue(n);
        }
    }

    void TurnNeighbour(LM_FACET& neighbour, const SideTurn& turn, const float position[3][3])
    {
        if (MoveNearCornerToSlot(mesh_, neighbour, position[turn.firstCorner], turn.firstSlot, tolerance_))
            changed_ = true;
        if (MoveNearCornerToSlot(mesh_, neighbour, position[turn.secondCorner], turn.secondSlot, tolerance_))
            changed_ = true;
        RefreshNormal(mesh_, neighbour);
    }

    L_LUMOMESH& mesh_;
    const float tolerance_;
    BaseList<uint8_t> visited_;
    BaseList<uint32_t> queue_;
    uint32_t queued_ = 0;
    uint32_t read_ = 0;
    bool changed_ = false;
};

}  // namespace

bool PointInTriangle(const float h[3], const float a[3], const float b[3], const float c[3], float tolerance)
{
    const float e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    const float e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const float r[3] = {h[0] - a[0], h[1] - a[1], h[2] - a[2]};
    static constexpr int kPlanes[3][2] = {{0, 1}, {1, 2}, {2, 0}};
    for (const auto& plane : kPlanes) {
        const int i = plane[0], j = plane[1];
        const float det = e2[j] * e1[i] - e2[i] * e1[j];
        if (std::fabs(det) < tolerance) continue;
        const float u = (e2[j] * r[i] - e2[i] * r[j]) / det;
        const float v = (r[j] * e1[i] - r[i] * e1[j]) / det;
        return !(u < 0.0f || v < 0.0f || u + v > 1.0f);
    }
    return false;
}

void LMeshRecomputeNormals(L_LUMOMESH& mesh)
{
    ForEachSelectedLiveFacet(mesh, nullptr, [&mesh](LM_FACET& facet) { RefreshNormal(mesh, facet); });
}

bool LMeshReverseFacet(L_LUMOMESH& mesh, uint32_t facet)
{
    // Both bounds: the header's slot count is the documented one, the store's keeps At from growing it.
    if (facet >= mesh.facetSlots || facet >= mesh.facets.count) return false;
    SwapLastCorners(mesh, *mesh.facets.At(facet));
    return true;
}

void LMeshReverseFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    ForEachSelectedLiveFacet(mesh, facets, [&mesh](LM_FACET& facet) { SwapLastCorners(mesh, facet); });
}

void LMeshReverseNormals(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets)
{
    ForEachSelectedLiveFacet(mesh, facets, NegateNormal);
}

bool LMeshOrientFacets(L_LUMOMESH& mesh, float tolerance, short direction)
{
    LMeshRecomputeNormals(mesh);
    if (mesh.facets.count == 0) return false;
    Propagation propagation(mesh, tolerance);
    if (!propagation.Reserve()) return false;  // out of memory: normals refreshed, windings untouched
    RayGrid grid(mesh);
    // Seeds in ascending id: each piece is seeded by its lowest live facet, as the
    // propagation has visited the rest of it by the time the loop gets there.
    for (uint32_t seed = 0; seed < mesh.facets.count && !propagation.QueueHoldsEverySlot(); ++seed) {
        if (!(mesh.facets.Peek(seed)->flags & LM_LIVE) || propagation.IsVisited(seed)) continue;
        propagation.MarkVisited(seed);
        OrientSeed(mesh, grid, seed, tolerance, direction);
        propagation.Enqueue(seed);
        propagation.Drain();
    }
    return propagation.Changed();
}
