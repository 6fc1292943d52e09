// (in progress)
#include "LMesh.h"

uint32_t LMeshRemoveOverhangs(L_LUMOMESH&) { return 0; }
void LMeshCleanup(L_LUMOMESH&, float, uint32_t* results, bool, bool, bool, float, bool, float, bool, bool, float, bool,
                  bool)
{
    for (int i = 0; i < 7; ++i) results[i] = 0;
}
