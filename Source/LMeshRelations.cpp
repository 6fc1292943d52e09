// Entity relations rebuild: re-derives from the live facets the links that facets
// imply, after removals have left holes and lingering links.
//
// One pass over the facets in index order. Each live facet refills a missing
// facet[0] on its sides (so the lowest live facet naming an edge takes the place of
// a removed one) and drops a facet[1] that repeats facet[0]. Then each corner whose
// fan walk does not close is pointed at the first side of this facet that touches
// it; as later facets overwrite earlier ones, a boundary vertex ends on an edge of
// the last live facet touching it, which is where the walks expect to start.
// Interior vertices keep their edge. Nothing is created, removed or recounted.
#include "LMesh.h"

namespace {

// Ids past the edge store are passed over: writing through At would grow the store.
LM_EDGE* EdgeIfInStore(L_LUMOMESH& mesh, uint32_t e) { return e < mesh.edges.count ? mesh.edges.At(e) : nullptr; }

// Refills a missing facet[0] from f, then clears a facet[1] that repeats facet[0].
// All three sides are refilled before any is cleaned, as a facet may name one edge
// twice.
void RepairSideLinks(L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t f)
{
    for (int k = 0; k < 3; ++k) {
        LM_EDGE* edge = EdgeIfInStore(mesh, facet.edge[k]);
        if (edge && edge->facet[0] == LM_NONE) edge->facet[0] = f;
    }
    for (int k = 0; k < 3; ++k) {
        LM_EDGE* edge = EdgeIfInStore(mesh, facet.edge[k]);
        if (edge && edge->facet[1] == edge->facet[0]) edge->facet[1] = LM_NONE;
    }
}

// The first of the facet's sides, in order, with v at either end; LM_NONE if none.
uint32_t FirstSideTouching(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t v)
{
    for (int k = 0; k < 3; ++k) {
        const LM_EDGE* edge = mesh.edges.Peek(facet.edge[k]);
        if (edge && (edge->vertex[0] == v || edge->vertex[1] == v)) return facet.edge[k];
    }
    return LM_NONE;
}

// Points each corner whose fan is open or broken at a side of this facet. The three
// walks share one list, so their limit counts what earlier corners listed: on a
// small mesh a later corner's walk can fail and the corner is anchored anyway.
void AnchorOpenCorners(L_LUMOMESH& mesh, const LM_FACET& facet, BaseList<uint32_t>& walked)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t v = facet.vertex[k];
        if (LMeshGetEdgesAroundVertex(mesh, v, walked) == 0) continue;
        if (v >= mesh.vertices.count) continue;  // stale corner: never grow the vertex store
        const uint32_t side = FirstSideTouching(mesh, facet, v);
        if (side != LM_NONE) mesh.vertices.At(v)->edge = side;
    }
}

}  // namespace

uint32_t LMeshRebuildEntityRelations(L_LUMOMESH& mesh)
{
    // One small working list for the pass, emptied per facet but keeping its page,
    // so the pass allocates once rather than once per facet.
    BaseList<uint32_t> walked;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        RepairSideLinks(mesh, facet, f);
        walked.count = 0;
        AnchorOpenCorners(mesh, facet, walked);
    }
    return 0;
}
