// Self-intersection search on a closed torus of 1 million facets pierced by 1,000
// small triangles, each crossing one facet of the surface: the whole mesh is searched
// (no facet list) and nothing is deleted.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

// A thin triangle through the middle of facet f, standing along its normal.
void Pierce(L_LUMOMESH& mesh, uint32_t f)
{
    float centre[3];
    ComputeFacetCentroid(mesh, f, centre);
    const LM_FACET facet = *mesh.facets.Peek(f);
    const float* corner = mesh.vertices.Peek(facet.vertex[0])->position;
    float p0[3], p1[3], p2[3];
    for (int k = 0; k < 3; ++k) {
        const float n = facet.normal[k], toward = (corner[k] - centre[k]) * 0.3f;
        p0[k] = centre[k] - n * 0.5f;
        p1[k] = centre[k] + n * 0.5f;
        p2[k] = centre[k] + toward;
    }
    LMeshAddTriangle(mesh, p0, p1, p2, 0);
}

L_LUMOMESH& PiercedTorus()
{
    static L_LUMOMESH mesh = [] {
        L_LUMOMESH torus = TorusMesh(1000, 500);
        const uint32_t facets = torus.facetCount;
        for (uint32_t k = 0; k < 1000; ++k) Pierce(torus, k * (facets / 1000) + 17);
        LMeshComputeAbsoluteBoundingBox(torus);
        return torus;
    }();
    return mesh;
}

void BM_DeleteIntersections(benchmark::State& state)
{
    L_LUMOMESH& mesh = PiercedTorus();
    uint32_t found = 0;
    for (auto _ : state) {
        BaseList<uint32_t> list;
        LMeshDeleteIntersections(mesh, 0.0f, 1e-5f, nullptr, &list, false);
        found = list.count;
    }
    state.counters["reports"] = found;
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh.facetCount);
}

}  // namespace

BENCHMARK(BM_DeleteIntersections)->Unit(benchmark::kMillisecond)->Iterations(1);
