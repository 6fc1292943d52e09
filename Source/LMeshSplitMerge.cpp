// (in progress)
#include "LMesh.h"

short LMeshSplitTriangleByPointOnEdge(L_LUMOMESH&, const float*, uint32_t, float) { return 0; }
bool LMeshMerge(const L_LUMOMESH&, L_LUMOMESH&, float, bool) { return true; }
void LMeshCopyFacets(L_LUMOMESH&, BaseList<uint32_t>&, float, L_LUMOMESH*) {}
