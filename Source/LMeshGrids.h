// Cell arithmetic of the box grids, for callers that keep a cell grid up to date
// while they add edges to the mesh.
#pragma once

#include "LMesh.h"

// The cells that LMeshBoxEdges lists the segment a b under: those of its points at
// parameters 0, 1, 0.25, 0.5 and 0.75, in that order (a cell may repeat). False when
// one of them lies off the n*n*n grid.
bool EdgeSampleCells(const L_BOUNDSf& bounds, uint32_t n, const float* a, const float* b, uint32_t cells[5]);
