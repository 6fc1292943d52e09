// Compaction of a closed torus of 2 million facets with every third facet removed
// (a third of the facet slots dead, and the edges between two dead facets with them).
//
// - LMeshCompact in place, on a fresh copy each time (copied outside the timing).
// - LMeshCompactToFile from a saved file to a new one, in bytes of output per second.
//
// Run: build/Bench/lmesh_bench --benchmark_filter=Compact. TMPDIR chooses the file folder.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

const L_LUMOMESH& HoledTorus()
{
    static const L_LUMOMESH mesh = [] {
        const Torus torus = MakeTorus(1000, 1000);
        L_LUMOMESH built;
        LMeshCreateFromIndexedTriangles(built, torus.coords.data(), uint32_t(torus.coords.size() / 3),
                                        torus.indices.data(), uint32_t(torus.indices.size()));
        BaseList<uint32_t> dead;
        for (uint32_t f = 0; f < built.facets.count; f += 3) *dead.At(dead.count) = f;
        LMeshDeleteFacets(built, dead);
        return built;
    }();
    return mesh;
}

void BM_Compact(benchmark::State& state)
{
    const L_LUMOMESH& original = HoledTorus();
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        LMeshCompact(mesh);
        benchmark::DoNotOptimize(mesh.facetCount);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.facetSlots);
    state.counters["facet_slots"] = original.facetSlots;
}

void BM_CompactToFile(benchmark::State& state)
{
    const std::wstring source = Wide(TempFile("lmesh_bench_holed.lmesh"));
    const std::wstring target = Wide(TempFile("lmesh_bench_compacted.lmesh"));
    LMeshWriteToFile(source.c_str(), HoledTorus());
    for (auto _ : state) {
        bool alreadyCompact = false;
        if (!LMeshCompactToFile(source.c_str(), target.c_str(), alreadyCompact))
            state.SkipWithError("compaction to file failed");
    }
    LM_MESH_HEADER header;
    LMeshReadFileHeader(target.c_str(), &header);
    const int64_t outputBytes =
        56 + 17 * (int64_t(header.vertexSlots) + header.edgeSlots) + 41 * int64_t(header.facetSlots);
    state.SetBytesProcessed(int64_t(state.iterations()) * outputBytes);
    std::remove(std::string(source.begin(), source.end()).c_str());
    std::remove(std::string(target.begin(), target.end()).c_str());
}

}  // namespace

BENCHMARK(BM_Compact)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_CompactToFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
