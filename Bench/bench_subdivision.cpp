// Subdivision and slicing on closed tori.
//
// - LMeshRemesh1to4Subdivision of every facet of a 250,000-facet torus, on a fresh copy
//   each time (copied outside the timing); counters give the facets after.
// - LMeshRemeshFEMAnalysis of a 50,000-facet torus with 20 slices per axis.
//
// Run: build/Bench/lmesh_bench --benchmark_filter=Subdivision.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

L_LUMOMESH BoxedTorus(int n, int m)
{
    L_LUMOMESH mesh = TorusMesh(n, m);
    LMeshComputeAbsoluteBoundingBox(mesh);
    return mesh;
}

void BM_Subdivision1to4(benchmark::State& state)
{
    static const L_LUMOMESH original = BoxedTorus(500, 250);  // 250,000 facets
    uint32_t facetsAfter = 0;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        uint32_t added = 0;
        LMeshRemesh1to4Subdivision(mesh, 1e-5f, added, nullptr);
        facetsAfter = mesh.facetCount;
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.facetCount);
    state.counters["facets_after"] = facetsAfter;
}
BENCHMARK(BM_Subdivision1to4)->Unit(benchmark::kSecond)->Iterations(1);

void BM_SubdivisionFEMRemesh(benchmark::State& state)
{
    static const L_LUMOMESH original = BoxedTorus(250, 100);  // 50,000 facets
    const LM_TOLERANCES tolerances = LMeshCleanupTolerances(0.0f);
    uint32_t facetsAfter = 0;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        LMeshRemeshFEMAnalysis(mesh, tolerances, nullptr);
        facetsAfter = mesh.facetCount;
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.facetCount);
    state.counters["facets_after"] = facetsAfter;
}
BENCHMARK(BM_SubdivisionFEMRemesh)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
