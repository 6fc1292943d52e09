// STL in and out, whole-mesh measures and orientation on a closed torus.
//
// - Binary STL load with welding, about 1 million facets, at tolerance 0 and 1e-4, in
//   facets per second with the peak resident memory the load adds.
// - Binary STL save, in bytes per second.
// - Area plus volume, in facets per second.
// - LMeshOrientFacets on 100k and 1M facets of one closed component, and on 1,000
//   components of 100 facets (each component's seed casts a ray against all facets).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

void LoadStl(const std::string& path, float tolerance, benchmark::State* state)
{
    L_LUMOMESH mesh;
    if (!LMeshLoadFromSTL(Wide(path).c_str(), tolerance, &mesh) && state) state->SkipWithError("load failed");
    benchmark::DoNotOptimize(mesh.facetCount);
}

const bool kLoadProbes = RegisterPeakProbe("stl_load_0", [](const std::string& path) -> PeakWork {
    return [path] { LoadStl(path, 0.0f, nullptr); };
}) && RegisterPeakProbe("stl_load_1e-4", [](const std::string& path) -> PeakWork {
    return [path] { LoadStl(path, 1e-4f, nullptr); };
});

void BM_StlLoad(benchmark::State& state)
{
    const float tolerance = state.range(0) == 0 ? 0.0f : 1e-4f;
    const std::string& path = TorusStl(1000000);
    for (auto _ : state) LoadStl(path, tolerance, &state);
    state.SetItemsProcessed(int64_t(state.iterations()) * 1000000);
    const char* probe = state.range(0) == 0 ? "stl_load_0" : "stl_load_1e-4";
    state.counters["peak_MB"] = double(PeakBytesInFreshProcess(probe, path)) / 1e6;
}

void BM_StlSave(benchmark::State& state)
{
    static const L_LUMOMESH mesh = TorusMesh(1000, 500);
    const std::string path = TempFile("lmesh_bench_save.stl");
    for (auto _ : state)
        if (!LMeshSaveToStlBin(mesh, Wide(path).c_str(), nullptr, 0.0f, nullptr)) state.SkipWithError("save failed");
    state.SetBytesProcessed(int64_t(state.iterations()) * (84 + 50 * int64_t(mesh.facetCount)));
    std::remove(path.c_str());
}

void BM_AreaAndVolume(benchmark::State& state)
{
    static const L_LUMOMESH mesh = TorusMesh(1000, 500);
    for (auto _ : state) {
        benchmark::DoNotOptimize(LMeshComputeArea(mesh));
        benchmark::DoNotOptimize(LMeshComputeVolume(mesh));
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh.facetCount);
}

// Components tori side by side, each of n by m quads.
L_LUMOMESH Tori(int components, int n, int m)
{
    L_LUMOMESH mesh;
    std::vector<float> soup;
    for (int c = 0; c < components; ++c) {
        const std::vector<float> one = SoupOf(MakeTorus(n, m, 300.0f * c));
        soup.insert(soup.end(), one.begin(), one.end());
    }
    LMeshReadVertexListIntoLumoMesh(soup.data(), int(soup.size() / 9), mesh, 0.0f, 0);
    return mesh;
}

void BM_Orient(benchmark::State& state)
{
    const L_LUMOMESH original = state.range(0) == 0   ? Tori(1, 224, 224)     // ~100k facets, one component
                                : state.range(0) == 1 ? Tori(1, 1000, 500)    // 1M facets, one component
                                                      : Tori(1000, 10, 5);    // 1,000 components of 100 facets
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        LMeshOrientFacets(mesh, 1e-10f, 1);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.facetCount);
    state.counters["facets"] = original.facetCount;
}

}  // namespace

BENCHMARK(BM_StlLoad)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_StlSave)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_AreaAndVolume)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);
BENCHMARK(BM_Orient)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
