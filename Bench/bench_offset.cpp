// Offset of a closed torus of 1 million facets by 1 mm, every vertex moved.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

void BM_Offset(benchmark::State& state)
{
    static const L_LUMOMESH torus = TorusMesh(1000, 500);
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh = torus;
        state.ResumeTiming();
        LMeshOffset(mesh, 1.0f, 1.0f, 50.0f, nullptr);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * torus.facetCount);
}

}  // namespace

BENCHMARK(BM_Offset)->Unit(benchmark::kMillisecond);
