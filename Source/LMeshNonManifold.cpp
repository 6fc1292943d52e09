// (in progress)
#include "LMesh.h"

uint32_t LMeshDeleteNonManifoldFacets(L_LUMOMESH&, float) { return 0; }
uint32_t LMeshRepairVertexEdgeDisjoints(L_LUMOMESH&, const BaseList<uint32_t>*, float, float, float) { return 0; }
