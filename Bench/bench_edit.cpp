// Local edits and simplification on closed tori.
//
// - LMeshSimplify, one pass over a torus of 1 million facets with the cleanup
//   driver's tolerances, on a fresh copy each time (copied outside the timing), in
//   edge slots per second; counters give the edges removed and the facets left.
// - LMeshDeleteFacets with an empty list on 2 million facets: the whole-store rebuild
//   of flags, links and counts that callers use after batched deletions.
//
// Run: build/Bench/lmesh_bench --benchmark_filter=Edit.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

void BM_EditSimplify(benchmark::State& state)
{
    static const L_LUMOMESH original = TorusMesh(1000, 500);  // 1,000,000 facets
    const LM_TOLERANCES tolerances = LMeshCleanupTolerances(0.0f);
    uint32_t removed = 0, facetsLeft = 0;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        if (LMeshSimplify(mesh, removed, tolerances, false, false) != 0) state.SkipWithError("curvature failed");
        facetsLeft = mesh.facetCount;
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.edgeSlots);
    state.counters["edges_removed"] = removed;
    state.counters["facets_left"] = facetsLeft;
}
BENCHMARK(BM_EditSimplify)->Unit(benchmark::kSecond)->Iterations(1);

void BM_EditDeleteFacetsEmptyList(benchmark::State& state)
{
    static L_LUMOMESH mesh = TorusMesh(1000, 1000);  // 2,000,000 facets
    const BaseList<uint32_t> none;
    for (auto _ : state) LMeshDeleteFacets(mesh, none);
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh.facetSlots);
}
BENCHMARK(BM_EditDeleteFacetsEmptyList)->Unit(benchmark::kMillisecond);

}  // namespace
