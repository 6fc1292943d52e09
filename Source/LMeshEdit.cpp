// Local edits: removing facets, collapsing an edge or a facet, merging two vertices.
// They work on the linked stores in place and never renumber: what they remove stays
// in its slot with LM_LIVE cleared until compaction.
#include "LMeshEdit.h"

namespace {

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// Live flags of vertices and edges, and the counts, follow from the live facets alone.
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
            if (facet.vertex[k] < mesh.vertices.count) mesh.vertices.At(facet.vertex[k])->flags |= LM_LIVE;
            if (facet.edge[k] < mesh.edges.count) mesh.edges.At(facet.edge[k])->flags |= LM_LIVE;
        }
    }
}

// Each live vertex ends linked to the highest-numbered live edge that touches it.
void RelinkVerticesToLiveEdges(L_LUMOMESH& mesh)
{
    uint32_t liveEdges = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (!IsLive(edge.flags)) continue;
        ++liveEdges;
        for (uint32_t v : edge.vertex)
            if (v < mesh.vertices.count) mesh.vertices.At(v)->edge = e;
    }
    uint32_t liveVertices = 0;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v)
        if (IsLive(mesh.vertices.Peek(v)->flags)) ++liveVertices;
    mesh.vertexSlots = mesh.vertices.count;
    mesh.vertexCount = liveVertices;
    mesh.edgeSlots = mesh.edges.count;
    mesh.edgeCount = liveEdges;
}

}  // namespace

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
    for (uint32_t v : gone.vertex)
        if (v < mesh.vertices.count && mesh.vertices.Peek(v)->edge == moved) mesh.vertices.At(v)->edge = kept;
    if (gone.facet[0] < mesh.facets.count) {
        LM_FACET& facet = *mesh.facets.At(gone.facet[0]);
        for (uint32_t& e : facet.edge)
            if (e == moved) e = kept;
    }
    return true;
}

bool LMeshDeleteFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets)
{
    bool allInRange = true;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t f = *facets.Peek(i);
        if (f >= mesh.facets.count) {
            allInRange = false;
            continue;
        }
        LM_FACET& facet = *mesh.facets.At(f);
        facet.flags &= uint8_t(~LM_LIVE);
        for (uint32_t e : facet.edge)
            if (e < mesh.edges.count) UnlinkFacetFromEdge(*mesh.edges.At(e), f);
    }
    ReviveWhatLiveFacetsUse(mesh);
    RelinkVerticesToLiveEdges(mesh);
    return allInRange;
}
