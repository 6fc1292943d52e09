// (in progress)
#include "LMeshSubdivision.h"

int SplitFacetInFour(L_LUMOMESH&, uint32_t, BaseList<uint32_t>&, BaseList<uint32_t>&) { return 0; }
int SplitFacetsAtCentroid(L_LUMOMESH&, const BaseList<uint32_t>&, BaseList<uint32_t>&) { return 0; }
short LMeshRemesh1to4Subdivision(L_LUMOMESH&, float, uint32_t& newFacets, const BaseList<uint32_t>*)
{
    newFacets = 0;
    return 0;
}
short LMeshRemeshCentroidSubdivision(L_LUMOMESH&, bool, uint32_t& newFacets, const LM_TOLERANCES&)
{
    newFacets = 0;
    return 0;
}
short LMeshRemeshFEMAnalysis(L_LUMOMESH&, const LM_TOLERANCES&, const wchar_t*) { return 0; }
