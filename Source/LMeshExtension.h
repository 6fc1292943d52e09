// The steps of extension that its drivers and cleanups share.
#pragma once

#include "LMesh.h"

// The direction in which the surface continues past the record's edge, by sections
// of widening reach: the edge's facet, the facets around its corners, the near
// facets, the whole mesh. Unit vectors; false when no stage finds one.
bool FindExtensionDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, L_VECTOR& direction, bool& hasSecond,
                            L_VECTOR& secondDirection);
