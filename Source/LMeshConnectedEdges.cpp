// Connected edges: growing a chain of edges from a seed by mean curvature, ordering an
// unordered edge list into a walk, and finding every chain of a mesh (its free
// boundaries among them).
//
// The chain is grown breadth-first, the list itself being the queue, with a hash set
// for membership so a long chain stays linear. The sort keeps a deliberately simple
// rule, the lowest remaining list position that continues the walk, but answers it
// with per-vertex ascending position lists and lazy deletion: moving the chosen edge
// to the front of the unwalked tail leaves the tail's relative order unchanged, so
// "lowest current position" is always "lowest original position not yet walked".
#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "LMesh.h"
#include "LMeshRead.h"

namespace {

constexpr short kChainDone = 0;
constexpr short kNoSeed = -1;
constexpr short kNoNeighbours = -2;
constexpr float kFreeEdgeValue = -1.0f;

void Assign(BaseList<uint32_t>& list, const std::vector<uint32_t>& ids)
{
    if (!list.SetSize(uint32_t(ids.size()))) return;
    for (uint32_t i = 0; i < ids.size(); ++i) *list.At(i) = ids[i];
}

// Mean curvature, or not-a-number (which no comparison admits) when it cannot be read.
float EdgeCurvature(const L_LUMOMESH& mesh, uint32_t edge)
{
    float curvature = std::numeric_limits<float>::quiet_NaN();
    if (edge < mesh.edges.count) LMeshComputeEdgeMeanCurvature(mesh, edge, &curvature);
    return curvature;
}

struct EdgeEnds {
    uint32_t v[2];
    bool valid;
};

// Ends of each listed edge; an id past the store touches nothing.
std::vector<EdgeEnds> CollectEnds(const L_LUMOMESH& mesh, const std::vector<uint32_t>& edges)
{
    std::vector<EdgeEnds> ends(edges.size());
    for (size_t i = 0; i < edges.size(); ++i) {
        const LM_EDGE* edge = mesh.edges.Peek(edges[i]);
        ends[i] = edge ? EdgeEnds{{edge->vertex[0], edge->vertex[1]}, true} : EdgeEnds{{LM_NONE, LM_NONE}, false};
    }
    return ends;
}

using EndUses = std::unordered_map<uint32_t, uint32_t>;

EndUses CountEndUses(const std::vector<EdgeEnds>& ends)
{
    EndUses uses;
    uses.reserve(ends.size() * 2);
    for (const EdgeEnds& e : ends)
        if (e.valid) {
            ++uses[e.v[0]];
            ++uses[e.v[1]];
        }
    return uses;
}

// Whether another listed edge touches vertex `end` of edge e (its own ends discounted).
bool TouchedByOthers(const EndUses& uses, const EdgeEnds& e, uint32_t end)
{
    const uint32_t own = 1 + (e.v[0] == e.v[1] ? 1 : 0);
    return uses.at(e.v[end]) > own;
}

// First position whose edge has an end no other edge touches; 0 for a closed chain.
size_t FindDanglingStart(const std::vector<EdgeEnds>& ends, const EndUses& uses)
{
    for (size_t i = 0; i < ends.size(); ++i)
        if (ends[i].valid && (!TouchedByOthers(uses, ends[i], 0) || !TouchedByOthers(uses, ends[i], 1))) return i;
    return 0;
}

// Ascending positions of the edges at each vertex, each consumed from the front as
// the walk takes edges; taken positions are skipped when met.
struct PositionsByVertex {
    std::unordered_map<uint32_t, std::vector<uint32_t>> positions;
    std::unordered_map<uint32_t, size_t> next;

    explicit PositionsByVertex(const std::vector<EdgeEnds>& ends)
    {
        positions.reserve(ends.size() * 2);
        for (uint32_t i = 0; i < ends.size(); ++i) {
            if (!ends[i].valid) continue;
            positions[ends[i].v[0]].push_back(i);
            if (ends[i].v[1] != ends[i].v[0]) positions[ends[i].v[1]].push_back(i);
        }
    }

    // Lowest position not yet taken with an edge at v, or LM_NONE.
    uint32_t LowestUntaken(uint32_t v, const std::vector<bool>& taken)
    {
        auto found = positions.find(v);
        if (found == positions.end()) return LM_NONE;
        size_t& cursor = next[v];
        while (cursor < found->second.size() && taken[found->second[cursor]]) ++cursor;
        return cursor < found->second.size() ? found->second[cursor] : LM_NONE;
    }
};

// Walks from the edge at position 0 and returns the new order: walked edges first,
// the others behind them in their own order.
std::vector<uint32_t> WalkChain(const std::vector<uint32_t>& edges, const std::vector<EdgeEnds>& ends,
                                const EndUses& uses, BaseList<uint32_t>* vertices)
{
    if (!ends[0].valid) return edges;
    const bool startsAtFirstEnd = TouchedByOthers(uses, ends[0], 0);
    uint32_t current = ends[0].v[startsAtFirstEnd ? 0 : 1];
    if (vertices) {
        AppendTo(*vertices, ends[0].v[startsAtFirstEnd ? 1 : 0]);
        AppendTo(*vertices, current);
    }
    std::vector<bool> taken(edges.size(), false);
    taken[0] = true;
    std::vector<uint32_t> order{edges[0]};
    order.reserve(edges.size());
    PositionsByVertex byVertex(ends);
    for (uint32_t j = byVertex.LowestUntaken(current, taken); j != LM_NONE;
         j = byVertex.LowestUntaken(current, taken)) {
        taken[j] = true;
        order.push_back(edges[j]);
        current = ends[j].v[0] == current ? ends[j].v[1] : ends[j].v[0];
        if (vertices) AppendTo(*vertices, current);
    }
    for (size_t i = 0; i < edges.size(); ++i)
        if (!taken[i]) order.push_back(edges[i]);
    return order;
}

// One chain of the batch: from the seed, cut into simple paths, each ordered with its
// vertices and delivered. Paths with fewer than two vertices (no readable edge) are dropped.
void DeliverChain(const L_LUMOMESH& mesh, const BaseList<uint32_t>& chain, BaseList<BaseList<uint32_t>>& edgeChains,
                  BaseList<BaseList<uint32_t>>& vertexChains)
{
    BaseList<BaseList<uint32_t>> paths;
    LMeshClassifyConnectedEdgesToPaths(mesh, chain, paths);
    for (uint32_t p = 0; p < paths.count; ++p) {
        BaseList<uint32_t> path(16, 128);
        path = *paths.Peek(p);
        BaseList<uint32_t> vertices(16, 128);
        LMeshSortEdges(mesh, path, &vertices);
        if (vertices.count < 2) continue;
        BaseList<uint32_t>* edgeSlot = edgeChains.At(edgeChains.count);
        BaseList<uint32_t>* vertexSlot = vertexChains.At(vertexChains.count);
        if (!edgeSlot || !vertexSlot) return;
        *edgeSlot = std::move(path);
        *vertexSlot = std::move(vertices);
    }
}

bool Qualifies(const L_LUMOMESH& mesh, uint32_t e, const LM_EDGE& edge, bool freeEdges, float value, float tolerance)
{
    if (freeEdges) return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE;
    return std::fabs(EdgeCurvature(mesh, e) - value) < tolerance;
}

// ---- Joining chains ----

struct Chain {
    std::vector<uint32_t> edges;
    std::vector<uint32_t> vertices;
};

bool Near(const L_LUMOMESH& mesh, uint32_t a, uint32_t b, float tolerance)
{
    float pa[3], pb[3];
    if (!ReadPosition(mesh, a, pa) || !ReadPosition(mesh, b, pb)) return false;
    for (int k = 0; k < 3; ++k)
        if (!(std::fabs(pa[k] - pb[k]) < tolerance)) return false;
    return true;
}

bool IsOpen(const Chain& chain)
{
    return chain.vertices.size() >= 2 && chain.vertices.front() != chain.vertices.back();
}

void Reverse(Chain& chain)
{
    std::reverse(chain.edges.begin(), chain.edges.end());
    std::reverse(chain.vertices.begin(), chain.vertices.end());
}

// Appends `tail` (already facing the right way) after `head`; tail's first vertex is
// represented by head's last.
void Append(Chain& head, const Chain& tail)
{
    head.edges.insert(head.edges.end(), tail.edges.begin(), tail.edges.end());
    head.vertices.insert(head.vertices.end(), tail.vertices.begin() + 1, tail.vertices.end());
}

// Finds an open chain still free to join with an end near vertex v; `atStart` says which end.
size_t FindChainNear(const L_LUMOMESH& mesh, const std::vector<Chain>& chains, const std::vector<bool>& settled,
                     uint32_t v, float tolerance, bool& atStart)
{
    for (size_t j = 0; j < chains.size(); ++j) {
        if (settled[j] || !IsOpen(chains[j])) continue;
        atStart = Near(mesh, v, chains[j].vertices.front(), tolerance);
        if (atStart || Near(mesh, v, chains[j].vertices.back(), tolerance)) return j;
    }
    return chains.size();
}

// Grows chain i at its end by every chain that fits there, one after the other.
void GrowAtEnd(const L_LUMOMESH& mesh, std::vector<Chain>& chains, std::vector<bool>& settled,
               std::vector<bool>& joined, size_t i, float tolerance)
{
    while (IsOpen(chains[i])) {
        bool atStart = false;
        const size_t j = FindChainNear(mesh, chains, settled, chains[i].vertices.back(), tolerance, atStart);
        if (j == chains.size()) return;
        settled[j] = joined[j] = true;
        if (!atStart) Reverse(chains[j]);
        Append(chains[i], chains[j]);
    }
}

std::vector<Chain> ReadChains(const BaseList<BaseList<uint32_t>>& edgeChains,
                              const BaseList<BaseList<uint32_t>>& vertexChains)
{
    std::vector<Chain> chains(std::max(edgeChains.count, vertexChains.count));
    for (uint32_t i = 0; i < chains.size(); ++i) {
        if (const BaseList<uint32_t>* edges = edgeChains.Peek(i)) chains[i].edges = ToVector(*edges);
        if (const BaseList<uint32_t>* vertices = vertexChains.Peek(i)) chains[i].vertices = ToVector(*vertices);
    }
    return chains;
}

void WriteChains(const std::vector<Chain>& chains, const std::vector<bool>& joined,
                 BaseList<BaseList<uint32_t>>& edgeChains, BaseList<BaseList<uint32_t>>& vertexChains)
{
    edgeChains.Clear();
    vertexChains.Clear();
    for (size_t i = 0; i < chains.size(); ++i) {
        if (joined[i]) continue;
        BaseList<uint32_t>* edges = edgeChains.At(edgeChains.count);
        BaseList<uint32_t>* vertices = vertexChains.At(vertexChains.count);
        if (!edges || !vertices) return;
        Assign(*edges, chains[i].edges);
        Assign(*vertices, chains[i].vertices);
    }
}

}  // namespace

short LMeshGetConnectedEdges(const L_LUMOMESH& mesh, uint32_t seed, float tolerance, BaseList<uint32_t>& edges,
                             bool sort, BaseList<uint32_t>* vertices)
{
    if (seed == LM_NONE) return kNoSeed;
    if (!AppendTo(edges, seed)) return kChainDone;
    const float seedCurvature = EdgeCurvature(mesh, seed);
    std::unordered_set<uint32_t> listed;
    listed.reserve(edges.count * 2);
    for (uint32_t i = 0; i < edges.count; ++i) listed.insert(*edges.Peek(i));

    BaseList<uint32_t> around(16, 128);
    for (uint32_t i = 0; i < edges.count; ++i) {
        around.Clear();
        LMeshGetEdgesAroundEdge(mesh, *edges.Peek(i), around);
        if (around.count == 0) return kNoNeighbours;
        for (uint32_t k = 0; k < around.count; ++k) {
            const uint32_t neighbour = *around.Peek(k);
            if (!(std::fabs(EdgeCurvature(mesh, neighbour) - seedCurvature) < tolerance)) continue;
            if (listed.insert(neighbour).second) AppendTo(edges, neighbour);
        }
    }
    if (sort) LMeshSortEdges(mesh, edges, vertices);
    return kChainDone;
}

void LMeshSortEdges(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges, BaseList<uint32_t>* vertices)
{
    if (edges.count == 0) return;
    std::vector<uint32_t> list = ToVector(edges);
    std::vector<EdgeEnds> ends = CollectEnds(mesh, list);
    const EndUses uses = CountEndUses(ends);

    const size_t start = FindDanglingStart(ends, uses);
    std::rotate(list.begin(), list.begin() + start, list.begin() + start + 1);
    std::rotate(ends.begin(), ends.begin() + start, ends.begin() + start + 1);

    Assign(edges, WalkChain(list, ends, uses, vertices));
}

void LMeshGetConnectedEdgesBatch(L_LUMOMESH& mesh, float value, float tolerance,
                                 BaseList<BaseList<uint32_t>>& edgeChains,
                                 BaseList<BaseList<uint32_t>>& vertexChains)
{
    const bool freeEdges = std::fabs(kFreeEdgeValue - value) < tolerance;
    std::vector<bool> visited(mesh.edges.count, false);
    BaseList<uint32_t> chain(16, 128);
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!(edge->flags & LM_LIVE) || visited[e]) continue;
        if (!Qualifies(mesh, e, *edge, freeEdges, value, tolerance)) continue;
        chain.Clear();
        LMeshGetConnectedEdges(mesh, e, tolerance, chain, false, nullptr);
        for (uint32_t i = 0; i < chain.count; ++i) {
            const uint32_t id = *chain.Peek(i);
            if (id < visited.size()) visited[id] = true;
        }
        DeliverChain(mesh, chain, edgeChains, vertexChains);
    }
}

void LMeshConnectConnectedEdgesBatch(L_LUMOMESH mesh, BaseList<BaseList<uint32_t>>& edgeChains,
                                     BaseList<BaseList<uint32_t>>& vertexChains, float tolerance)
{
    std::vector<Chain> chains = ReadChains(edgeChains, vertexChains);
    std::vector<bool> joined(chains.size(), false);   // absorbed into an earlier chain
    std::vector<bool> settled(chains.size(), false);  // absorbed, or grown as far as it goes
    for (size_t i = 0; i < chains.size(); ++i) {
        if (settled[i]) continue;
        settled[i] = true;
        GrowAtEnd(mesh, chains, settled, joined, i, tolerance);
        Reverse(chains[i]);
        GrowAtEnd(mesh, chains, settled, joined, i, tolerance);
        Reverse(chains[i]);
    }
    WriteChains(chains, joined, edgeChains, vertexChains);
}
