// Neighbourhood queries: what lies around a vertex, an edge or a facet, and the two
// process-wide vertex navigation tables.
//
// The mesh has no half-edges, so everything around a vertex comes from one fan walk:
// start at the vertex's edge, cross that edge into the next facet, take the facet's
// other edge at the vertex, and repeat until the walk closes on its start facet or
// meets a free edge. On a free edge the walk goes back to the start and runs the other
// way, inserting in front, so that an open fan is listed from one boundary to the
// other. The edge, facet and combined walks are one walk that records into whichever
// lists it is given. Walks read through Peek only, so a stale id ends the walk with
// -1 instead of reading outside a store.
//
// The navigation tables need no links at all: a snapshot of (vertex, entity) pairs
// sorted by vertex, searched in logarithmic time.
#include <type_traits>

#include "LMesh.h"

namespace {

constexpr short kClosedFan = 0;
constexpr short kOpenFan = 1;
constexpr short kFailed = -1;

// Inserts id at pos, shifting the tail by one. Walk lists are as long as a valence,
// so the shift is cheap.
bool InsertId(BaseList<uint32_t>& list, uint32_t pos, uint32_t id)
{
    if (!list.At(list.count)) return false;
    for (uint32_t i = list.count - 1; i > pos; --i) *list.At(i) = *list.Peek(i - 1);
    *list.At(pos) = id;
    return true;
}

bool ContainsId(const BaseList<uint32_t>& list, uint32_t from, uint32_t to, uint32_t id)
{
    for (uint32_t i = from; i < to; ++i)
        if (*list.Peek(i) == id) return true;
    return false;
}

bool Touches(const LM_EDGE& edge, uint32_t v) { return edge.vertex[0] == v || edge.vertex[1] == v; }

// Both sides must be recorded for a walk to cross; either one missing is a boundary.
bool IsFree(const LM_EDGE& edge) { return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE; }

uint32_t FacetAcross(const LM_EDGE& edge, uint32_t from)
{
    return edge.facet[0] == from ? edge.facet[1] : edge.facet[0];
}

// The edge of `facet` that continues the fan around v after `from`: of the two other
// sides, the first if it touches v, else the second (untested). A facet that does
// not hold `from` leaves it unchanged. False when the tested side is a stale id.
bool PickNextEdge(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t from, uint32_t v, uint32_t& next)
{
    int k = 0;
    while (k < 3 && facet.edge[k] != from) ++k;
    if (k == 3) {
        next = from;
        return true;
    }
    const uint32_t first = facet.edge[k == 0 ? 1 : 0];
    const uint32_t second = facet.edge[k == 2 ? 1 : 2];
    const LM_EDGE* candidate = mesh.edges.Peek(first);
    if (!candidate) return false;  // stale edge id in the facet: never read past the store
    next = Touches(*candidate, v) ? first : second;
    return true;
}

// One output list of a walk: its limit (the store's count), where the walk began in
// it, and how many entries the backward walk has put in front so far.
class FanTrack {
public:
    FanTrack() = default;
    FanTrack(BaseList<uint32_t>& list, uint32_t limit) : list_(&list), limit_(limit) {}

    void Begin()
    {
        if (list_) base_ = list_->count;
    }
    // The only guard against a walk that never ends; it counts the caller's entries.
    bool AtLimit() const { return list_ && list_->count >= limit_; }
    bool Append(uint32_t id) { return !list_ || AppendTo(*list_, id); }
    bool InsertInFront(uint32_t id)
    {
        if (!list_) return true;
        ++frontCount_;
        return InsertId(*list_, base_, id);
    }
    // Whether the backward walk has already put id in front: it has come round.
    bool SeenInFront(uint32_t id) const { return list_ && ContainsId(*list_, base_, base_ + frontCount_, id); }

private:
    BaseList<uint32_t>* list_ = nullptr;
    uint32_t limit_ = 0;
    uint32_t base_ = 0;
    uint32_t frontCount_ = 0;
};

// The facets and edges of a fan walk, recorded in step; either may be absent.
struct FanTracks {
    FanTrack edges;
    FanTrack facets;

    bool AtLimit() const { return edges.AtLimit() || facets.AtLimit(); }
};

// From the start facet f0, walks the other way round v and inserts what it meets in
// front of the forward part. Entered once the forward walk has met a free edge.
short WalkBackward(const L_LUMOMESH& mesh, uint32_t v, uint32_t start, uint32_t f0, FanTracks& tracks)
{
    uint32_t e = start;
    if (!PickNextEdge(mesh, *mesh.facets.Peek(f0), start, v, e)) return kFailed;
    const LM_EDGE* edge = mesh.edges.Peek(e);
    if (!edge) return kFailed;  // stale edge id in the start facet
    if (!tracks.edges.InsertInFront(e)) return kFailed;
    uint32_t f = f0;
    for (;;) {
        if (IsFree(*edge)) return kOpenFan;
        f = FacetAcross(*edge, f);
        const LM_FACET* facet = mesh.facets.Peek(f);
        if (!facet) return kFailed;  // stale facet link on the edge
        if (!PickNextEdge(mesh, *facet, e, v, e)) return kFailed;
        if (tracks.AtLimit()) return kFailed;
        if (tracks.edges.SeenInFront(e) || tracks.facets.SeenInFront(f)) return kOpenFan;
        edge = mesh.edges.Peek(e);
        if (!edge) return kFailed;  // stale edge id in the facet
        if (!tracks.edges.InsertInFront(e) || !tracks.facets.InsertInFront(f)) return kFailed;
    }
}

// The fan walk shared by every vertex query. Lists each edge before crossing it and
// each facet before leaving it; 0 when the walk closes on its start facet, 1 when it
// meets a free edge (after the backward walk), -1 on failure.
short WalkFan(const L_LUMOMESH& mesh, uint32_t v, FanTracks& tracks)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    if (!vertex) return kFailed;  // vertex id past the store
    const uint32_t start = vertex->edge;
    if (int32_t(start) < 0) return kFailed;  // no edge: LM_NONE or any id read as negative
    const LM_EDGE* edge = mesh.edges.Peek(start);
    if (!edge || !(edge->flags & LM_LIVE)) return kFailed;
    // A removed facet[0] leaves facet[1] as the way in.
    const uint32_t f0 = edge->facet[0] != LM_NONE ? edge->facet[0] : edge->facet[1];
    if (!mesh.facets.Peek(f0)) return kFailed;  // orphaned edge, or a stale facet link
    tracks.edges.Begin();
    tracks.facets.Begin();

    uint32_t e = start, f = f0;
    for (;;) {
        if (tracks.AtLimit()) return kFailed;
        edge = mesh.edges.Peek(e);
        if (!edge) return kFailed;  // stale edge id in the last facet
        if (!tracks.edges.Append(e) || !tracks.facets.Append(f)) return kFailed;
        if (IsFree(*edge)) return WalkBackward(mesh, v, start, f0, tracks);
        f = FacetAcross(*edge, f);
        const LM_FACET* facet = mesh.facets.Peek(f);
        if (!facet) return kFailed;  // stale facet link on the edge
        if (!PickNextEdge(mesh, *facet, e, v, e)) return kFailed;
        if (f == f0) return kClosedFan;
    }
}

short WalkEdges(const L_LUMOMESH& mesh, uint32_t v, BaseList<uint32_t>& edges)
{
    FanTracks tracks;
    tracks.edges = FanTrack(edges, mesh.edges.count);
    return WalkFan(mesh, v, tracks);
}

short WalkFacets(const L_LUMOMESH& mesh, uint32_t v, BaseList<uint32_t>& facets)
{
    FanTracks tracks;
    tracks.facets = FanTrack(facets, mesh.facets.count);
    return WalkFan(mesh, v, tracks);
}

// Appends, for every listed edge, its end that is not v (vertex[1] when both ends
// are v). False on an edge id past the store, which only a caller's own entries can
// hold, or when memory runs out.
bool AppendOtherEnds(const L_LUMOMESH& mesh, uint32_t v, const BaseList<uint32_t>& edges,
                     BaseList<uint32_t>& vertices)
{
    const uint32_t end = edges.count;  // fixed first: the two lists may be one
    for (uint32_t i = 0; i < end; ++i) {
        const LM_EDGE* edge = mesh.edges.Peek(*edges.Peek(i));
        if (!edge) return false;  // a stale id among the caller's entries
        if (!AppendTo(vertices, edge->vertex[0] != v ? edge->vertex[0] : edge->vertex[1])) return false;
    }
    return true;
}

// Walks each centre into one local list and appends to `out` what each walk added,
// leaving out `self`; after the first centre also what `out` already holds from the
// call's start. Used around the two ends of an edge and the three corners of a facet.
template <class Walk>
short CollectAroundCentres(const uint32_t* centres, int centreCount, uint32_t self, Walk walk,
                           BaseList<uint32_t>& out)
{
    BaseList<uint32_t> local;
    const uint32_t start = out.count;
    for (int c = 0; c < centreCount; ++c) {
        const uint32_t from = local.count;
        if (walk(centres[c], local) == kFailed) return kFailed;
        for (uint32_t i = from; i < local.count; ++i) {
            const uint32_t id = *local.Peek(i);
            if (id == self) continue;
            if (c > 0 && ContainsId(out, start, out.count, id)) continue;
            if (!AppendTo(out, id)) return kFailed;
        }
    }
    return kClosedFan;
}

struct VertexPair {
    uint32_t vertex;
    uint32_t entity;
};

// A snapshot of pairs sorted by vertex, with the cursor of the last answer. Mesh
// store shape, as it can hold three pairs per facet of a large mesh.
struct NavigationTable {
    BaseList<VertexPair> pairs{256, 4096};
    uint32_t cursor = 0;
};

NavigationTable gEdgeNavigation;
NavigationTable gFacetNavigation;

uint32_t VertexOf(const NavigationTable& table, uint32_t i) { return table.pairs.Peek(i)->vertex; }

void SwapPairs(BaseList<VertexPair>& pairs, uint32_t a, uint32_t b)
{
    VertexPair* pa = pairs.At(a);
    VertexPair* pb = pairs.At(b);
    const VertexPair held = *pa;
    *pa = *pb;
    *pb = held;
}

void InsertionSortPairs(BaseList<VertexPair>& pairs, uint32_t low, uint32_t high)
{
    for (uint32_t i = low + 1; i <= high; ++i) {
        const VertexPair held = *pairs.Peek(i);
        uint32_t j = i;
        for (; j > low && pairs.Peek(j - 1)->vertex > held.vertex; --j) *pairs.At(j) = *pairs.Peek(j - 1);
        *pairs.At(j) = held;
    }
}

// Orders first, middle and last, so the middle is the pivot and the two ends bound
// the partition scans.
uint32_t MedianOfThree(BaseList<VertexPair>& pairs, uint32_t low, uint32_t high)
{
    const uint32_t middle = low + (high - low) / 2;
    if (pairs.Peek(middle)->vertex < pairs.Peek(low)->vertex) SwapPairs(pairs, middle, low);
    if (pairs.Peek(high)->vertex < pairs.Peek(low)->vertex) SwapPairs(pairs, high, low);
    if (pairs.Peek(high)->vertex < pairs.Peek(middle)->vertex) SwapPairs(pairs, high, middle);
    return pairs.Peek(middle)->vertex;
}

// Quicksort by vertex with an explicit stack: the larger part is pushed and the
// smaller one sorted next, so the stack never holds more than log2(count) ranges.
// Ranges of up to 8 pairs are sorted directly.
void SortPairsByVertex(BaseList<VertexPair>& pairs)
{
    if (pairs.count < 2) return;
    // Signed bounds: a partition may leave j one below low.
    struct Range {
        int64_t low, high;  // inclusive
    };
    Range stack[64];
    int depth = 0;
    stack[depth++] = {0, int64_t(pairs.count) - 1};
    while (depth > 0) {
        Range range = stack[--depth];
        while (range.high - range.low >= 8) {
            const uint32_t pivot = MedianOfThree(pairs, uint32_t(range.low), uint32_t(range.high));
            int64_t i = range.low, j = range.high;
            while (i <= j) {
                while (pairs.Peek(uint32_t(i))->vertex < pivot) ++i;
                while (pairs.Peek(uint32_t(j))->vertex > pivot) --j;
                if (i <= j) SwapPairs(pairs, uint32_t(i++), uint32_t(j--));
            }
            const Range left{range.low, j}, right{i, range.high};
            const bool leftLarger = left.high - left.low > right.high - right.low;
            stack[depth++] = leftLarger ? left : right;
            range = leftLarger ? right : left;
        }
        if (range.low < range.high) InsertionSortPairs(pairs, uint32_t(range.low), uint32_t(range.high));
    }
}

void StopNavigation(NavigationTable& table)
{
    table.pairs.Clear();
    table.cursor = 0;
}

bool AppendPair(NavigationTable& table, uint32_t vertex, uint32_t entity)
{
    VertexPair* pair = table.pairs.At(table.pairs.count);
    if (!pair) return false;
    *pair = {vertex, entity};
    return true;
}

// Pairs every live record of the store (edges or facets) with each of its ends or
// corners, in index order, then sorts by vertex.
template <class Record>
void StartNavigation(const BaseList<Record>& store, NavigationTable& table)
{
    constexpr int kEnds = int(std::extent<decltype(Record::vertex)>::value);
    StopNavigation(table);
    for (uint32_t id = 0; id < store.count; ++id) {
        const Record& record = *store.Peek(id);
        if (!(record.flags & LM_LIVE)) continue;
        for (int k = 0; k < kEnds; ++k) {
            // Out of memory: leave an empty table, which answers false.
            if (!AppendPair(table, record.vertex[k], id)) return StopNavigation(table);
        }
    }
    SortPairsByVertex(table.pairs);
}

// Binary search (middle low + n/2, one less when n is even), then back to the
// vertex's first entry, where the cursor stays.
bool GetFirstByVertex(NavigationTable& table, uint32_t v, uint32_t* entity)
{
    if (!entity || table.pairs.count == 0) return false;  // null out-pointer: fail instead of writing
    uint32_t low = 0, n = table.pairs.count;
    while (n > 0) {
        const uint32_t middle = low + n / 2 - (n % 2 == 0 ? 1 : 0);
        const uint32_t found = VertexOf(table, middle);
        if (found == v) {
            uint32_t first = middle;
            while (first > 0 && VertexOf(table, first - 1) == v) --first;
            table.cursor = first;
            *entity = table.pairs.Peek(first)->entity;
            return true;
        }
        if (found < v) {
            n -= middle - low + 1;
            low = middle + 1;
        } else {
            n = middle - low;
        }
    }
    return false;
}

// Advances the cursor even onto another vertex's entry, which then answers false.
bool GetNextByVertex(NavigationTable& table, uint32_t v, uint32_t* entity)
{
    if (!entity) return false;  // null out-pointer: fail instead of writing
    // An empty or stopped table has no last entry to compare with.
    if (table.pairs.count == 0 || table.cursor >= table.pairs.count - 1) return false;
    const VertexPair& pair = *table.pairs.Peek(++table.cursor);
    if (pair.vertex != v) return false;
    *entity = pair.entity;
    return true;
}

}  // namespace

short LMeshGetEdgesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& edges)
{
    return WalkEdges(mesh, v, edges);
}

short LMeshGetFacetsAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& facets)
{
    return WalkFacets(mesh, v, facets);
}

short LMeshGetFacetsAndEdgesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& facets,
                                         BaseList<uint32_t>& edges)
{
    FanTracks tracks;
    tracks.facets = FanTrack(facets, mesh.facets.count);
    tracks.edges = FanTrack(edges, mesh.edges.count);
    return WalkFan(mesh, v, tracks);
}

short LMeshGetVerticesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& vertices)
{
    const uint32_t centre = v;  // v may live in a list that the walk changes
    BaseList<uint32_t> edges;
    const short result = WalkEdges(mesh, centre, edges);
    if (result == kFailed) return kFailed;
    return AppendOtherEnds(mesh, centre, edges, vertices) ? result : kFailed;
}

short LMeshGetEdgesAndVerticesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& edges,
                                           BaseList<uint32_t>& vertices)
{
    const uint32_t centre = v;
    const short result = WalkEdges(mesh, centre, edges);
    if (result == kFailed || edges.count == 0) return result;
    // Maps from position 0: the caller's earlier entries get their vertices too.
    return AppendOtherEnds(mesh, centre, edges, vertices) ? result : kFailed;
}

short LMeshGetEdgesAroundEdge(const L_LUMOMESH& mesh, const uint32_t& e, BaseList<uint32_t>& edges)
{
    const uint32_t self = e;
    const LM_EDGE* edge = mesh.edges.Peek(self);
    if (!edge) return kFailed;  // edge id past the store
    const uint32_t ends[2] = {edge->vertex[0], edge->vertex[1]};
    return CollectAroundCentres(ends, 2, self,
                                [&mesh](uint32_t v, BaseList<uint32_t>& local) { return WalkEdges(mesh, v, local); },
                                edges);
}

short LMeshGetFacetsAroundFacetByVertices(const L_LUMOMESH& mesh, const uint32_t& f, BaseList<uint32_t>& facets)
{
    const uint32_t self = f;
    const LM_FACET* facet = mesh.facets.Peek(self);
    if (!facet) return kFailed;  // facet id past the store
    const uint32_t corners[3] = {facet->vertex[0], facet->vertex[1], facet->vertex[2]};
    return CollectAroundCentres(
        corners, 3, self, [&mesh](uint32_t v, BaseList<uint32_t>& local) { return WalkFacets(mesh, v, local); },
        facets);
}

short LMeshGetFacetsAroundFacetByEdges(const L_LUMOMESH& mesh, const uint32_t& f, BaseList<uint32_t>& facets)
{
    const uint32_t self = f;
    const LM_FACET* facet = mesh.facets.Peek(self);
    if (!facet) return kFailed;  // facet id past the store
    const uint32_t sides[3] = {facet->edge[0], facet->edge[1], facet->edge[2]};
    bool freeSide = false;
    for (uint32_t side : sides) {
        const LM_EDGE* edge = mesh.edges.Peek(side);
        if (!edge) return kFailed;  // stale edge id in the facet
        // Seen from f, the other side is facet[1] when f is facet[0], else facet[0].
        const uint32_t across = edge->facet[0] == self ? edge->facet[1] : edge->facet[0];
        if (across == LM_NONE) {
            freeSide = true;
        } else if (!AppendTo(facets, across)) {
            return kFailed;
        }
    }
    return freeSide ? kOpenFan : kClosedFan;
}

void LMeshStartEdgeByVertexNavigation(const L_LUMOMESH& mesh) { StartNavigation(mesh.edges, gEdgeNavigation); }

bool LMeshGetFirstEdgeByVertex(uint32_t v, uint32_t* e) { return GetFirstByVertex(gEdgeNavigation, v, e); }

bool LMeshGetNextEdgeByVertex(uint32_t v, uint32_t* e) { return GetNextByVertex(gEdgeNavigation, v, e); }

void LMeshStopEdgeByVertexNavigation() { StopNavigation(gEdgeNavigation); }

void LMeshStartFacetByVertexNavigation(const L_LUMOMESH& mesh) { StartNavigation(mesh.facets, gFacetNavigation); }

bool LMeshGetFirstFacetByVertex(uint32_t v, uint32_t* f) { return GetFirstByVertex(gFacetNavigation, v, f); }

bool LMeshGetNextFacetByVertex(uint32_t v, uint32_t* f) { return GetNextByVertex(gFacetNavigation, v, f); }

void LMeshStopFacetByVertexNavigation() { StopNavigation(gFacetNavigation); }
