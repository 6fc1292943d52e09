// Small edits on the linked stores that several families finish with: unlinking a
// facet from an edge, and zipping two border edges into one inner edge.
#pragma once

#include "LMesh.h"

// Removes `facet` from the edge's facet links, keeping facet[0] filled when one remains.
void UnlinkFacetFromEdge(LM_EDGE& edge, uint32_t facet);

// Makes `kept` the inner edge of both facets when `kept` and `moved` are live border
// edges joining the same two vertices: kept takes moved's facet, moved dies, and the
// links that named moved name kept. False, with nothing changed, otherwise.
bool ZipBorderEdges(L_LUMOMESH& mesh, uint32_t kept, uint32_t moved);
