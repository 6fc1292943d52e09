// Patches and components: flood fills across shared edges, the questions that look at
// a mesh's border, facet lists by group, and the split of a mesh into its connected
// pieces.
//
// A fill keeps one byte per facet slot, cleared when the facet is reached; a refused
// crossing leaves the byte set, so the neighbour can still be reached from another
// side.
//
// The split peels one component at a time off a working copy: every result is the
// input, dead slots included, with each earlier component deleted and then everything
// but its own component deleted, by LMeshDeleteFacets. Those deletions rebuild vertex
// links from the edges still live at each step, and revive dead edges that live facets
// still name (joining pieces the input kept apart), so the results depend on the order
// of the peeling: neither one labelling pass nor a single deletion from the input gives
// them. One working mesh replaces the second copy per component and the recursion of
// the plain form, so the stack stays flat however many components there are; each
// component still costs one copy of the whole store and two whole-store deletions.
#include <unordered_set>
#include <utility>
#include <vector>

#include "LMesh.h"

namespace {

// The shape of a mesh store, used by the fills' per-slot lists.
constexpr uint32_t kStoreGrowth = 256;
constexpr uint32_t kStorePage = 4096;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// The first link of the edge that is neither empty nor `facet` itself.
uint32_t FacetAcross(const LM_EDGE& edge, uint32_t facet)
{
    const uint32_t first = edge.facet[0], second = edge.facet[1];
    if (first != LM_NONE && first != facet) return first;
    if (second != LM_NONE && second != facet) return second;
    return LM_NONE;
}

bool Joins(const LM_EDGE& edge, uint32_t a, uint32_t b)
{
    return (edge.vertex[0] == a && edge.vertex[1] == b) || (edge.vertex[0] == b && edge.vertex[1] == a);
}

// The first of the facet's edges that joins corners a and b; null if none does.
const LM_EDGE* SideJoining(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t a, uint32_t b)
{
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (edge && Joins(*edge, a, b)) return edge;
    }
    return nullptr;
}

// The facets across the sides of f, found corner pair by corner pair, in that order.
struct Neighbours {
    uint32_t ids[3];
    int count = 0;
};

Neighbours NeighboursByCorners(const L_LUMOMESH& mesh, uint32_t f)
{
    Neighbours neighbours;
    const LM_FACET* facet = mesh.facets.Peek(f);
    if (!facet) return neighbours;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* side = SideJoining(mesh, *facet, facet->vertex[k], facet->vertex[(k + 1) % 3]);
        const uint32_t across = side ? FacetAcross(*side, f) : LM_NONE;
        if (across != LM_NONE) neighbours.ids[neighbours.count++] = across;
    }
    return neighbours;
}

// The fill's state: a byte per facet slot, nonzero while the facet can still be reached.
class FacetFill {
public:
    FacetFill(const L_LUMOMESH& mesh, LM_FACET_FILTER filter, const void* data)
        : mesh_(mesh), filter_(filter), data_(data), reachable_(kStoreGrowth, kStorePage)
    {
    }

    bool MarkLiveFacets()
    {
        if (!reachable_.SetSize(mesh_.facets.count)) return false;
        for (uint32_t f = 0; f < mesh_.facets.count; ++f) *reachable_.At(f) = mesh_.facets.Peek(f)->flags & LM_LIVE;
        return true;
    }

    void Take(uint32_t f) { *reachable_.At(f) = 0; }

    // Whether the fill crosses from `from` to `to` now; if so, `to` is taken.
    bool Crosses(uint32_t from, uint32_t to)
    {
        if (to >= reachable_.count || *reachable_.Peek(to) == 0) return false;  // also a link past the store
        if (filter_ && !filter_(mesh_, from, to, data_)) return false;
        Take(to);
        return true;
    }

    bool BreadthFirst(BaseList<uint32_t>& queue)
    {
        for (uint32_t i = 0; i < queue.count; ++i) {
            const uint32_t f = *queue.Peek(i);
            const Neighbours around = NeighboursByCorners(mesh_, f);
            for (int k = 0; k < around.count; ++k)
                if (Crosses(f, around.ids[k]) && !AppendTo(queue, around.ids[k])) return false;
        }
        return true;
    }

    bool DepthFirst(uint32_t seed, BaseList<uint32_t>* output)
    {
        std::vector<uint32_t> stack{seed};
        while (!stack.empty()) {
            const uint32_t f = stack.back();
            stack.pop_back();
            const Neighbours around = NeighboursByCorners(mesh_, f);
            for (int k = 0; k < around.count; ++k) {
                const uint32_t next = around.ids[k];
                if (!Crosses(f, next)) continue;
                if (output && !AppendTo(*output, next)) return false;
                stack.push_back(next);
            }
        }
        return true;
    }

private:
    const L_LUMOMESH& mesh_;
    LM_FACET_FILTER filter_;
    const void* data_;
    BaseList<uint8_t> reachable_;
};

bool WithinAngleOfNeighbour(const L_LUMOMESH& mesh, uint32_t from, uint32_t to, const void* data)
{
    const LM_FACET* a = mesh.facets.Peek(from);
    const LM_FACET* b = mesh.facets.Peek(to);
    if (!a || !b) return false;
    const L_VECTOR u{double(a->normal[0]), double(a->normal[1]), double(a->normal[2])};
    const L_VECTOR v{double(b->normal[0]), double(b->normal[1]), double(b->normal[2])};
    return real_vector_angle(u, v, nullptr) < *static_cast<const float*>(data);
}

bool HasFreeLink(const LM_EDGE& edge) { return edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE; }

bool HasFreeSide(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (edge && HasFreeLink(*edge)) return true;
    }
    return false;
}

// The patch's facets: the list, else the group's table entry, else the group's live facets.
std::vector<uint32_t> PatchFacets(const L_LUMOMESH& mesh, const uint32_t* groupId, const BaseList<uint32_t>* facets,
                                  const BaseList<BaseList<uint32_t>>* table)
{
    if (facets) return ToVector(*facets);
    if (!groupId) return {};
    if (table) {
        const BaseList<uint32_t>* entry = table->Peek(*groupId);
        return entry ? ToVector(*entry) : std::vector<uint32_t>();
    }
    std::vector<uint32_t> members;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (IsLive(facet.flags) && facet.groupId == *groupId) members.push_back(f);
    }
    return members;
}

// A side of facet f bounds the group when it has a free link or the facet across it
// belongs to another group. A link past the store is passed over.
bool BoundsGroup(const L_LUMOMESH& mesh, const LM_EDGE& edge, uint32_t f, uint32_t group)
{
    if (HasFreeLink(edge)) return true;
    const LM_FACET* other = mesh.facets.Peek(edge.facet[0] != f ? edge.facet[0] : edge.facet[1]);
    return other && other->groupId != group;
}

// Each boundary edge once, where it is first reported: two facets of a mixed list may
// both report one edge, and the path cutting expects a set.
BaseList<uint32_t> CollectPatchBoundary(const L_LUMOMESH& mesh, const std::vector<uint32_t>& patch, uint32_t group)
{
    BaseList<uint32_t> boundary;
    std::unordered_set<uint32_t> reported;
    for (uint32_t f : patch) {
        const LM_FACET* facet = mesh.facets.Peek(f);
        if (!facet) continue;  // id past the store
        for (int k = 0; k < 3; ++k) {
            const uint32_t e = facet->edge[k];
            const LM_EDGE* edge = mesh.edges.Peek(e);
            if (edge && BoundsGroup(mesh, *edge, f, group) && reported.insert(e).second) AppendTo(boundary, e);
        }
    }
    return boundary;
}

uint32_t FirstLiveFacet(const L_LUMOMESH& mesh)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (IsLive(mesh.facets.Peek(f)->flags)) return f;
    return LM_NONE;
}

// Peels components off a mesh one at a time, lowest live facet first.
class ComponentPeeler {
public:
    explicit ComponentPeeler(const L_LUMOMESH& input)
        : input_(input), visited_(kStoreGrowth, kStorePage), component_(kStoreGrowth, kStorePage),
          rest_(kStoreGrowth, kStorePage)
    {
    }

    bool Run(uint32_t seed, BaseList<L_LUMOMESH>& meshes)
    {
        const L_LUMOMESH* current = &input_;
        if (!visited_.SetSize(input_.facets.count)) return false;
        for (;;) {
            if (!FloodComponent(*current, seed) || !CollectUnvisitedLive(*current, seed)) return false;
            L_LUMOMESH* piece = meshes.At(meshes.count);
            if (!piece) return false;
            if (rest_.count == 0) {  // the last component: the mesh as it now stands
                if (current == &input_)
                    *piece = input_;
                else
                    *piece = std::move(working_);
                return true;
            }
            *piece = *current;
            LMeshDeleteFacets(*piece, rest_);  // every id lies inside the store, so it cannot fail
            if (current == &input_) {
                working_ = input_;
                current = &working_;
            }
            LMeshDeleteFacets(working_, component_);
            ForgetVisits();
            seed = *rest_.Peek(0);
        }
    }

private:
    // From the seed across live edges to the facet across each (dead or not), in
    // queue order; `component_` receives the facets reached, the seed first.
    bool FloodComponent(const L_LUMOMESH& mesh, uint32_t seed)
    {
        component_.Clear();
        if (!AppendTo(component_, seed)) return false;
        *visited_.At(seed) = 1;
        for (uint32_t i = 0; i < component_.count; ++i) {
            const uint32_t f = *component_.Peek(i);
            const LM_FACET& facet = *mesh.facets.Peek(f);  // queued ids lie inside the store
            for (int k = 0; k < 3; ++k) {
                const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
                if (!edge || !IsLive(edge->flags)) continue;
                const uint32_t next = FacetAcross(*edge, f);
                if (next >= visited_.count || *visited_.Peek(next)) continue;  // also a link past the store
                *visited_.At(next) = 1;
                if (!AppendTo(component_, next)) return false;
            }
        }
        return true;
    }

    // Live facets the flood did not reach; none lies below the seed, the lowest live facet.
    bool CollectUnvisitedLive(const L_LUMOMESH& mesh, uint32_t seed)
    {
        rest_.Clear();
        for (uint32_t f = seed; f < mesh.facets.count; ++f)
            if (IsLive(mesh.facets.Peek(f)->flags) && !*visited_.Peek(f) && !AppendTo(rest_, f)) return false;
        return true;
    }

    // Only the component's bytes were set, so clearing them is cheaper than a new list.
    void ForgetVisits()
    {
        for (uint32_t i = 0; i < component_.count; ++i) *visited_.At(*component_.Peek(i)) = 0;
    }

    const L_LUMOMESH& input_;
    L_LUMOMESH working_;  // the input less the components peeled off so far
    BaseList<uint8_t> visited_;
    BaseList<uint32_t> component_;
    BaseList<uint32_t> rest_;
};

}  // namespace

bool LMeshFindNeighborFacets(const L_LUMOMESH& mesh, uint32_t seed, LM_FACET_FILTER filter, const void* data,
                             BaseList<uint32_t>* facets, bool depthFirst)
{
    if (seed >= mesh.facets.count) return false;  // the seed's record would be read past the store
    FacetFill fill(mesh, filter, data);
    if (!fill.MarkLiveFacets()) return false;
    if (facets) facets->Clear();
    fill.Take(seed);
    if (depthFirst) {
        if (facets && !AppendTo(*facets, seed)) return false;
        return fill.DepthFirst(seed, facets);
    }
    BaseList<uint32_t> localQueue;
    BaseList<uint32_t>& queue = facets ? *facets : localQueue;
    return AppendTo(queue, seed) && fill.BreadthFirst(queue);
}

bool LMeshFindFacetsByAngularDeviation(const L_LUMOMESH& mesh, uint32_t seed, float limit, BaseList<uint32_t>* facets)
{
    return LMeshFindNeighborFacets(mesh, seed, WithinAngleOfNeighbour, &limit, facets, true);
}

bool LMeshHasBoundaryEdges(const L_LUMOMESH& mesh)
{
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (IsLive(edge.flags) && edge.facet[1] == LM_NONE) return true;
    }
    return false;
}

bool LMeshFindBorderFacets(const L_LUMOMESH& mesh, BaseList<uint32_t>* facets)
{
    if (!facets) return false;
    const uint32_t before = facets->count;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (IsLive(facet.flags) && HasFreeSide(mesh, facet) && !AppendTo(*facets, f)) break;
    }
    return facets->count > before;
}

void LMeshConstructFacetHashTable(const L_LUMOMESH& mesh, uint32_t tableSize, BaseList<BaseList<uint32_t>>& table)
{
    table.Clear();
    if (!table.SetSize(tableSize)) return;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        const uint32_t group = facet.groupId;
        if (!IsLive(facet.flags) || group >= table.count) continue;  // a group past the table has no entry
        AppendTo(*table.At(group), f);
    }
}

void LMeshGetBoundaryEdgesOfAPatch(const L_LUMOMESH& mesh, const uint32_t* groupId, const BaseList<uint32_t>* facets,
                                   BaseList<BaseList<uint32_t>>& edgeChains,
                                   BaseList<BaseList<uint32_t>>& vertexChains,
                                   const BaseList<BaseList<uint32_t>>* table)
{
    const std::vector<uint32_t> patch = PatchFacets(mesh, groupId, facets, table);
    const LM_FACET* first = patch.empty() ? nullptr : mesh.facets.Peek(patch.front());
    BaseList<uint32_t> boundary;
    // Without a group id the first facet names the group; an unreadable one leaves no boundary.
    if (groupId || first) boundary = CollectPatchBoundary(mesh, patch, groupId ? *groupId : first->groupId);
    LMeshClassifyConnectedEdgesToPaths(mesh, boundary, edgeChains);
    for (uint32_t i = 0; i < edgeChains.count; ++i) LMeshSortEdges(mesh, *edgeChains.At(i), vertexChains.At(i));
}

void LMeshGetBoundaryFacetsOfAPatch(const L_LUMOMESH& mesh, uint32_t groupId, BaseList<uint32_t>& facets,
                                    const BaseList<BaseList<uint32_t>>& table)
{
    const BaseList<uint32_t>* entry = table.Peek(groupId);
    if (!entry) return;
    const std::vector<uint32_t> members = ToVector(*entry);  // the output may be that very entry
    BaseList<uint32_t> around;
    for (uint32_t f : members) {
        const LM_FACET* facet = mesh.facets.Peek(f);
        if (!facet || !IsLive(facet->flags)) continue;
        around.Clear();
        LMeshGetFacetsAroundFacetByEdges(mesh, f, around);
        for (uint32_t i = 0; i < around.count; ++i) {
            const LM_FACET* neighbour = mesh.facets.Peek(*around.Peek(i));
            if (neighbour && neighbour->groupId != facet->groupId) AppendTo(facets, f);
        }
    }
}

bool LMeshSplitIntoConnectedMeshes(const L_LUMOMESH& mesh, BaseList<L_LUMOMESH>& meshes)
{
    const uint32_t seed = FirstLiveFacet(mesh);
    if (mesh.facetCount == 0 || seed == LM_NONE) return false;
    ComponentPeeler peeler(mesh);
    return peeler.Run(seed, meshes);
}
