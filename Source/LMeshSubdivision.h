// Steps of the subdivisions, shared with their tests.
#pragma once

#include "LMesh.h"

// Replaces nothing: appends the facet's four quarters (new midpoints and edges of its
// own) to the stores and to newFacets, and the facet's id to oldFacets. 0, or -1 with
// nothing listed for a facet or corner past its store (or a store that cannot grow).
int SplitFacetInFour(L_LUMOMESH& mesh, uint32_t facet, BaseList<uint32_t>& newFacets, BaseList<uint32_t>& oldFacets);
// Splits each listed facet in three at its centroid, the facet itself becoming one piece;
// appends the three pieces to newFacets. -1 for a facet whose edges do not join its corners
// (its centroid vertex and three edges are already added) or that lies past the store.
int SplitFacetsAtCentroid(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, BaseList<uint32_t>& newFacets);
