// Local edits: removing facets, collapsing an edge or a facet, merging two vertices.
// They work on the linked stores in place and never renumber: what they remove stays
// in its slot with LM_LIVE cleared until compaction.
//
// An edge collapse touches only the fans of the edge's ends and apexes, so it saves
// each record just before changing it and a refusal writes the copies back: the
// neighbourhood ends bit for bit as it was. Merging two vertices, by contrast, scans
// the whole stores, since it must also catch vertices that share no facet.
#include "LMeshEdit.h"

#include <algorithm>

namespace {

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// Mutable access that never grows a store: null for an id past it.
template <class Record>
Record* Writable(BaseList<Record>& store, uint32_t id)
{
    return id < store.count ? store.At(id) : nullptr;
}

template <class Record>
void Kill(BaseList<Record>& store, uint32_t id)
{
    if (Record* record = Writable(store, id)) record->flags &= uint8_t(~LM_LIVE);
}

bool HasEnd(const LM_EDGE& edge, uint32_t v) { return edge.vertex[0] == v || edge.vertex[1] == v; }

uint32_t OtherEnd(const LM_EDGE& edge, uint32_t v) { return edge.vertex[0] != v ? edge.vertex[0] : edge.vertex[1]; }

// Packed records: their arrays are walked by index, never through references.
void ReplaceSide(LM_FACET& facet, uint32_t from, uint32_t to)
{
    for (int k = 0; k < 3; ++k)
        if (facet.edge[k] == from) facet.edge[k] = to;
}

bool IsInnerEdge(const L_LUMOMESH& mesh, uint32_t e)
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    return edge && edge->facet[0] != LM_NONE && edge->facet[1] != LM_NONE;
}

// Live flags of vertices and edges, and the facet counts, follow from the live facets alone.
void ReviveWhatLiveFacetsUse(L_LUMOMESH& mesh)
{
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) mesh.vertices.At(v)->flags &= uint8_t(~LM_LIVE);
    for (uint32_t e = 0; e < mesh.edges.count; ++e) mesh.edges.At(e)->flags &= uint8_t(~LM_LIVE);
    mesh.facetSlots = mesh.facets.count;
    mesh.facetCount = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        ++mesh.facetCount;
        for (int k = 0; k < 3; ++k) {
            if (LM_VERTEX* vertex = Writable(mesh.vertices, facet.vertex[k])) vertex->flags |= LM_LIVE;
            if (LM_EDGE* edge = Writable(mesh.edges, facet.edge[k])) edge->flags |= LM_LIVE;
        }
    }
}

// Each live vertex ends linked to the highest-numbered live edge that touches it.
void RelinkVerticesToLiveEdges(L_LUMOMESH& mesh)
{
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (!IsLive(edge.flags)) continue;
        for (int k = 0; k < 2; ++k)
            if (LM_VERTEX* vertex = Writable(mesh.vertices, edge.vertex[k])) vertex->edge = e;
    }
}

void RecountVerticesAndEdges(L_LUMOMESH& mesh)
{
    uint32_t liveVertices = 0, liveEdges = 0;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v)
        if (IsLive(mesh.vertices.Peek(v)->flags)) ++liveVertices;
    for (uint32_t e = 0; e < mesh.edges.count; ++e)
        if (IsLive(mesh.edges.Peek(e)->flags)) ++liveEdges;
    mesh.vertexSlots = mesh.vertices.count;
    mesh.vertexCount = liveVertices;
    mesh.edgeSlots = mesh.edges.count;
    mesh.edgeCount = liveEdges;
}

// The first corner of `facet`, in slot order, that is not a corner of `other`.
uint32_t ApexOff(const LM_FACET& facet, const LM_FACET& other)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t v = facet.vertex[k];
        if (v != other.vertex[0] && v != other.vertex[1] && v != other.vertex[2]) return v;
    }
    return LM_NONE;
}

// The side of `facet` other than `skipped` that has `end` as an end; LM_NONE if none.
uint32_t SideAt(const L_LUMOMESH& mesh, uint32_t facet, uint32_t skipped, uint32_t end)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return LM_NONE;
    for (int k = 0; k < 3; ++k) {
        const uint32_t e = record->edge[k];
        if (e == skipped) continue;
        const LM_EDGE* edge = mesh.edges.Peek(e);  // a stale id is passed over
        if (edge && HasEnd(*edge, end)) return e;
    }
    return LM_NONE;
}

uint32_t FirstEdgeOtherThan(const BaseList<uint32_t>& edges, uint32_t a, uint32_t b)
{
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t e = *edges.Peek(i);
        if (e != a && e != b) return e;
    }
    return LM_NONE;
}

// Facets around `removed` take `kept` in place of it; f0 and f1 keep their corners
// and only yield their sides at `removed`.
void MoveFacetsOntoKept(L_LUMOMESH& mesh, EdgeCollapse& collapse, RecordBackup& undo)
{
    const BaseList<uint32_t>& facets = *collapse.facetsAtRemoved;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t t = *facets.Peek(i);
        if (t == collapse.facets[0] || t == collapse.facets[1]) {
            const int side = t == collapse.facets[0] ? 0 : 1;
            collapse.removedSides[side] = SideAt(mesh, t, collapse.edge, collapse.removed);
            continue;
        }
        LM_FACET* facet = Writable(mesh.facets, t);
        if (!facet) continue;
        for (int k = 0; k < 3; ++k) {
            if (facet->vertex[k] != collapse.removed) continue;
            undo.SaveFacet(mesh, t);
            facet->vertex[k] = collapse.kept;
            break;
        }
    }
}

void MoveEdgesOntoKept(L_LUMOMESH& mesh, const EdgeCollapse& collapse, RecordBackup& undo)
{
    const BaseList<uint32_t>& edges = *collapse.edgesAtRemoved;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t e = *edges.Peek(i);
        if (e == collapse.edge || e == collapse.removedSides[0] || e == collapse.removedSides[1]) continue;
        LM_EDGE* edge = Writable(mesh.edges, e);
        if (!edge) continue;
        undo.SaveEdge(mesh, e);
        edge->vertex[edge->vertex[0] == collapse.removed ? 0 : 1] = collapse.kept;
    }
}

// Across the dying side at `removed` of facet `side` lies a facet N; it takes the side
// at `kept` instead, which thus joins N to the facet beyond it. False when N is missing.
bool BridgeOverFacet(L_LUMOMESH& mesh, const EdgeCollapse& collapse, int side, uint32_t keptSide,
                     RecordBackup& undo)
{
    const uint32_t f0 = collapse.facets[0], f1 = collapse.facets[1];
    const uint32_t removedSide = collapse.removedSides[side];
    const LM_EDGE& dying = *mesh.edges.Peek(removedSide);
    uint32_t beyond = LM_NONE;
    for (int k = 0; k < 2 && beyond == LM_NONE; ++k)
        if (dying.facet[k] != f0 && dying.facet[k] != f1) beyond = dying.facet[k];
    LM_FACET* facet = Writable(mesh.facets, beyond);  // also refuses a link past the store
    if (!facet) return false;
    LM_EDGE& bridge = *mesh.edges.At(keptSide);
    undo.SaveEdge(mesh, keptSide);
    const int link = bridge.facet[0] == f0 || bridge.facet[0] == f1 ? 0 : 1;
    if (bridge.facet[link] == f0 || bridge.facet[link] == f1) bridge.facet[link] = beyond;
    undo.SaveFacet(mesh, beyond);
    ReplaceSide(*facet, removedSide, keptSide);
    return true;
}

void Relink(L_LUMOMESH& mesh, uint32_t v, uint32_t edge, RecordBackup& undo)
{
    LM_VERTEX* vertex = Writable(mesh.vertices, v);
    if (!vertex || edge == LM_NONE) return;  // no other edge: the link stays as it is
    undo.SaveVertex(mesh, v);
    vertex->edge = edge;
}

struct MovedEdge {
    uint32_t otherEnd;
    uint32_t edge;
};

void AppendUnique(BaseList<uint32_t>& list, uint32_t id)
{
    for (uint32_t i = 0; i < list.count; ++i)
        if (*list.Peek(i) == id) return;
    *list.At(list.count) = id;
}

// Sorts the live edges at the pair: edges at kept alone, edges at dropped alone (which
// move to kept), and the facets of edges joining the two, which will collapse.
void MoveEdgesOfDropped(L_LUMOMESH& mesh, uint32_t kept, uint32_t dropped, std::vector<uint32_t>& keptEdges,
                        std::vector<MovedEdge>& movedEdges, BaseList<uint32_t>& doomed)
{
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        LM_EDGE& edge = *mesh.edges.At(e);
        if (!IsLive(edge.flags)) continue;
        const bool atKept = HasEnd(edge, kept), atDropped = HasEnd(edge, dropped);
        if (atKept && !atDropped) {
            keptEdges.push_back(e);
        } else if (atDropped && !atKept) {
            movedEdges.push_back({OtherEnd(edge, dropped), e});
            for (int k = 0; k < 2; ++k)
                if (edge.vertex[k] == dropped) edge.vertex[k] = kept;
        } else if (atKept && atDropped) {
            for (int k = 0; k < 2; ++k)
                if (edge.facet[k] != LM_NONE) AppendUnique(doomed, edge.facet[k]);
        }
    }
}

void MoveFacetsOfDropped(L_LUMOMESH& mesh, uint32_t kept, uint32_t dropped, BaseList<uint32_t>& doomed)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        LM_FACET& facet = *mesh.facets.At(f);
        if (!IsLive(facet.flags)) continue;
        int at = 0;
        while (at < 3 && facet.vertex[at] != dropped) ++at;
        if (at == 3) continue;
        if (facet.vertex[(at + 1) % 3] == kept || facet.vertex[(at + 2) % 3] == kept) {
            AppendUnique(doomed, f);
            continue;
        }
        for (int k = 0; k < 3; ++k)
            if (facet.vertex[k] == dropped) facet.vertex[k] = kept;
    }
}

// A moved edge that now joins the same two vertices as an edge at kept is zipped into it.
void ZipMovedEdges(L_LUMOMESH& mesh, uint32_t kept, const std::vector<uint32_t>& keptEdges,
                   std::vector<MovedEdge>& movedEdges)
{
    if (keptEdges.empty() || movedEdges.empty()) return;
    const auto byOtherEnd = [](const MovedEdge& a, const MovedEdge& b) { return a.otherEnd < b.otherEnd; };
    std::stable_sort(movedEdges.begin(), movedEdges.end(), byOtherEnd);
    for (uint32_t e : keptEdges) {
        const MovedEdge key{OtherEnd(*mesh.edges.Peek(e), kept), LM_NONE};
        const auto match = std::lower_bound(movedEdges.begin(), movedEdges.end(), key, byOtherEnd);
        if (match != movedEdges.end() && match->otherEnd == key.otherEnd) ZipBorderEdges(mesh, e, match->edge);
    }
}

float SquaredDistance(const L_LUMOMESH& mesh, uint32_t a, uint32_t b)
{
    const LM_VERTEX& p = *mesh.vertices.Peek(a);
    const LM_VERTEX& q = *mesh.vertices.Peek(b);
    float sum = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float d = p.position[k] - q.position[k];
        sum += d * d;
    }
    return sum;
}

// A facet with one free side: its inner corner goes to the nearer end of that side,
// to w at equal distance, so both ends of the free side survive.
bool MergeInnerCorner(L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t u, uint32_t w)
{
    uint32_t inner = LM_NONE;
    for (int k = 0; k < 3 && inner == LM_NONE; ++k)
        if (facet.vertex[k] != u && facet.vertex[k] != w) inner = facet.vertex[k];
    // No third corner (a degenerate or stale facet), or a corner past the store.
    const uint32_t slots = mesh.vertices.count;
    if (inner == LM_NONE || inner >= slots || u >= slots || w >= slots) return false;
    const bool keepU = SquaredDistance(mesh, inner, w) > SquaredDistance(mesh, inner, u);
    return LMeshMergeVertices(mesh, keepU ? u : w, inner);
}

// Otherwise the shortest side closes, by fixed comparisons of the squared sides.
bool MergeShortestSide(L_LUMOMESH& mesh, const LM_FACET& facet)
{
    const uint32_t c0 = facet.vertex[0], c1 = facet.vertex[1], c2 = facet.vertex[2];
    const uint32_t slots = mesh.vertices.count;
    if (c0 >= slots || c1 >= slots || c2 >= slots) return false;  // corner past the store
    const float d01 = SquaredDistance(mesh, c0, c1);
    const float d12 = SquaredDistance(mesh, c1, c2);
    const float d02 = SquaredDistance(mesh, c0, c2);
    if (d02 > d01) return d12 > d01 ? LMeshMergeVertices(mesh, c0, c1) : LMeshMergeVertices(mesh, c1, c2);
    return d12 > d02 ? LMeshMergeVertices(mesh, c0, c2) : LMeshMergeVertices(mesh, c1, c2);
}

}  // namespace

void RecordBackup::Clear()
{
    vertices_.clear();
    edges_.clear();
    facets_.clear();
}

void RecordBackup::SaveVertex(const L_LUMOMESH& mesh, uint32_t id)
{
    if (const LM_VERTEX* record = mesh.vertices.Peek(id)) vertices_.push_back({id, *record});
}

void RecordBackup::SaveEdge(const L_LUMOMESH& mesh, uint32_t id)
{
    if (const LM_EDGE* record = mesh.edges.Peek(id)) edges_.push_back({id, *record});
}

void RecordBackup::SaveFacet(const L_LUMOMESH& mesh, uint32_t id)
{
    if (const LM_FACET* record = mesh.facets.Peek(id)) facets_.push_back({id, *record});
}

void RecordBackup::Restore(L_LUMOMESH& mesh) const
{
    for (auto it = edges_.rbegin(); it != edges_.rend(); ++it) *mesh.edges.At(it->id) = it->record;
    for (auto it = facets_.rbegin(); it != facets_.rend(); ++it) *mesh.facets.At(it->id) = it->record;
    for (auto it = vertices_.rbegin(); it != vertices_.rend(); ++it) *mesh.vertices.At(it->id) = it->record;
}

bool PrepareEdgeCollapse(const L_LUMOMESH& mesh, uint32_t edge, uint32_t kept, uint32_t removed,
                         EdgeCollapse& collapse)
{
    const LM_EDGE* record = mesh.edges.Peek(edge);
    if (!record || kept == removed) return false;
    // A border edge has LM_NONE here, which lies past the store too.
    const LM_FACET* f0 = mesh.facets.Peek(record->facet[0]);
    const LM_FACET* f1 = mesh.facets.Peek(record->facet[1]);
    if (!f0 || !f1) return false;
    collapse.edge = edge;
    collapse.kept = kept;
    collapse.removed = removed;
    collapse.facets[0] = record->facet[0];
    collapse.facets[1] = record->facet[1];
    collapse.apexes[0] = ApexOff(*f0, *f1);
    collapse.apexes[1] = ApexOff(*f1, *f0);
    collapse.removedSides[0] = collapse.removedSides[1] = LM_NONE;
    return collapse.apexes[0] != LM_NONE && collapse.apexes[1] != LM_NONE;
}

bool RelinkEdgeCollapse(L_LUMOMESH& mesh, EdgeCollapse& collapse, RecordBackup& undo)
{
    MoveFacetsOntoKept(mesh, collapse, undo);
    if (!IsInnerEdge(mesh, collapse.removedSides[0]) || !IsInnerEdge(mesh, collapse.removedSides[1])) return false;
    const uint32_t keptSide0 = SideAt(mesh, collapse.facets[0], collapse.edge, collapse.kept);
    const uint32_t keptSide1 = SideAt(mesh, collapse.facets[1], collapse.edge, collapse.kept);
    if (!IsInnerEdge(mesh, keptSide0) || !IsInnerEdge(mesh, keptSide1)) return false;
    MoveEdgesOntoKept(mesh, collapse, undo);
    if (!BridgeOverFacet(mesh, collapse, 1, keptSide1, undo)) return false;
    if (!BridgeOverFacet(mesh, collapse, 0, keptSide0, undo)) return false;
    // Links come from the walks taken before the edit, so none names a moved edge twice.
    Relink(mesh, collapse.kept, FirstEdgeOtherThan(*collapse.edgesAtKept, collapse.edge, collapse.edge), undo);
    Relink(mesh, collapse.apexes[0],
           FirstEdgeOtherThan(*collapse.edgesAtApex[0], collapse.removedSides[0], keptSide0), undo);
    Relink(mesh, collapse.apexes[1],
           FirstEdgeOtherThan(*collapse.edgesAtApex[1], keptSide1, collapse.removedSides[1]), undo);
    return true;
}

void RetireEdgeCollapse(L_LUMOMESH& mesh, const EdgeCollapse& collapse)
{
    Kill(mesh.edges, collapse.edge);
    Kill(mesh.edges, collapse.removedSides[0]);
    Kill(mesh.edges, collapse.removedSides[1]);
    Kill(mesh.facets, collapse.facets[0]);
    Kill(mesh.facets, collapse.facets[1]);
    Kill(mesh.vertices, collapse.removed);
    mesh.edgeCount -= 3;
    mesh.facetCount -= 2;
    mesh.vertexCount -= 1;
}

void UnlinkFacetFromEdge(LM_EDGE& edge, uint32_t facet)
{
    if (edge.facet[0] == facet) {
        edge.facet[0] = edge.facet[1];
        edge.facet[1] = LM_NONE;
    } else if (edge.facet[1] == facet) {
        edge.facet[1] = LM_NONE;
    }
}

bool ZipBorderEdges(L_LUMOMESH& mesh, uint32_t kept, uint32_t moved)
{
    if (kept >= mesh.edges.count || moved >= mesh.edges.count || kept == moved) return false;
    LM_EDGE& keep = *mesh.edges.At(kept);
    LM_EDGE& gone = *mesh.edges.At(moved);
    if (!IsLive(keep.flags) || !IsLive(gone.flags)) return false;
    if (keep.facet[1] != LM_NONE || gone.facet[1] != LM_NONE) return false;
    const bool sameEnds = (keep.vertex[0] == gone.vertex[0] && keep.vertex[1] == gone.vertex[1]) ||
                          (keep.vertex[0] == gone.vertex[1] && keep.vertex[1] == gone.vertex[0]);
    if (!sameEnds) return false;

    keep.facet[1] = gone.facet[0];
    gone.flags &= uint8_t(~LM_LIVE);
    --mesh.edgeCount;
    for (int k = 0; k < 2; ++k) {
        LM_VERTEX* end = Writable(mesh.vertices, gone.vertex[k]);
        if (end && end->edge == moved) end->edge = kept;
    }
    if (LM_FACET* facet = Writable(mesh.facets, gone.facet[0])) ReplaceSide(*facet, moved, kept);
    return true;
}

bool LMeshDeleteFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets)
{
    bool allInRange = true;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t f = *facets.Peek(i);
        LM_FACET* facet = Writable(mesh.facets, f);
        if (!facet) {
            allInRange = false;
            continue;
        }
        facet->flags &= uint8_t(~LM_LIVE);
        for (int k = 0; k < 3; ++k)
            if (LM_EDGE* edge = Writable(mesh.edges, facet->edge[k])) UnlinkFacetFromEdge(*edge, f);
    }
    ReviveWhatLiveFacetsUse(mesh);
    RelinkVerticesToLiveEdges(mesh);
    RecountVerticesAndEdges(mesh);
    return allInRange;
}

bool LMeshCollapseEdge(L_LUMOMESH& mesh, uint32_t edge)
{
    const LM_EDGE* record = mesh.edges.Peek(edge);
    EdgeCollapse collapse;
    if (!record || !PrepareEdgeCollapse(mesh, edge, record->vertex[0], record->vertex[1], collapse)) return false;
    BaseList<uint32_t> edgesAtKept, facetsAtApex[2], edgesAtApex[2], facetsAtRemoved, edgesAtRemoved;
    if (LMeshGetEdgesAroundVertex(mesh, collapse.kept, edgesAtKept) != 0) return false;
    for (int s = 0; s < 2; ++s)
        if (LMeshGetFacetsAndEdgesAroundVertex(mesh, collapse.apexes[s], facetsAtApex[s], edgesAtApex[s]) != 0)
            return false;
    // A failed walk would leave facets at the removed end unlisted and so unmoved.
    if (LMeshGetFacetsAndEdgesAroundVertex(mesh, collapse.removed, facetsAtRemoved, edgesAtRemoved) < 0) return false;
    collapse.facetsAtRemoved = &facetsAtRemoved;
    collapse.edgesAtRemoved = &edgesAtRemoved;
    collapse.edgesAtKept = &edgesAtKept;
    collapse.edgesAtApex[0] = &edgesAtApex[0];
    collapse.edgesAtApex[1] = &edgesAtApex[1];
    RecordBackup undo;
    if (!RelinkEdgeCollapse(mesh, collapse, undo)) {
        undo.Restore(mesh);
        return false;
    }
    RetireEdgeCollapse(mesh, collapse);
    return true;
}

bool LMeshCollapseFacet(L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record || !IsLive(record->flags)) return false;
    const LM_FACET copy = *record;  // the merge rewrites the store under us
    int borderSides = 0;
    uint32_t u = LM_NONE, w = LM_NONE;
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(copy.edge[k]);
        if (!edge || edge->facet[1] != LM_NONE) continue;  // a stale side counts as inner
        ++borderSides;
        u = edge->vertex[0];
        w = edge->vertex[1];
    }
    return borderSides == 1 ? MergeInnerCorner(mesh, copy, u, w) : MergeShortestSide(mesh, copy);
}

bool LMeshMergeVertices(L_LUMOMESH& mesh, uint32_t kept, uint32_t dropped)
{
    const LM_VERTEX* keep = mesh.vertices.Peek(kept);
    const LM_VERTEX* drop = mesh.vertices.Peek(dropped);
    // A vertex merged with itself would only die under its own facets.
    if (!keep || !drop || !IsLive(keep->flags) || !IsLive(drop->flags) || kept == dropped) return false;
    std::vector<uint32_t> keptEdges;
    std::vector<MovedEdge> movedEdges;
    BaseList<uint32_t> doomed;
    MoveEdgesOfDropped(mesh, kept, dropped, keptEdges, movedEdges, doomed);
    MoveFacetsOfDropped(mesh, kept, dropped, doomed);
    Kill(mesh.vertices, dropped);
    if (doomed.count > 0) LMeshDeleteFacets(mesh, doomed);
    ZipMovedEdges(mesh, kept, keptEdges, movedEdges);
    RecountVerticesAndEdges(mesh);
    RecountFacets(mesh);
    return true;
}
