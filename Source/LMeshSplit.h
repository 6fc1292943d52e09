// Splitting one facet in two at a vertex on one of its sides, shared by the point
// insertion on an edge and the T-junction repair.
#pragma once

#include "LMesh.h"

enum class SideSplit {
    Done,
    NoApex,      // the facet has no two other sides meeting at a corner; nothing written
    Unmatched,   // a half of the side shares no corner with the other sides; E1, E2 left dead
};

// What a split wrote. The halves of the split side are E1 (its vertex[0] to the new
// corner) and E2 (its vertex[1] to it); E3 runs from the new corner to the apex.
struct SplitPieces {
    uint32_t apex = LM_NONE;
    uint32_t edges[3] = {LM_NONE, LM_NONE, LM_NONE};  // E1, E2, E3
};

// Replaces `facet` by two facets meeting at `vertex`, which lies on its side `edge`:
// writes E1, E2 and E3 and the two facets (group 0, normals from their corners) at the
// ends of the stores, links the facet's other two sides, the three edges and the corners
// to them. The facet itself, `edge` and every header count are left to the caller.
SideSplit SplitFacetAtVertex(L_LUMOMESH& mesh, uint32_t facet, uint32_t edge, uint32_t vertex, SplitPieces& pieces);
