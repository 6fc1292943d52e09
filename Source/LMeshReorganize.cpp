// (in progress)
#include "LMesh.h"

void LMeshReorganizeVertices(L_LUMOMESH&, float) {}
