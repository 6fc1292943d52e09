// The edge welder on meshes of separate triangles, as they come from adding facets
// one by one, on a fresh copy each time (copied outside the timing):
//
// - a torus of 1 million facets, border edges only (mode 1), tolerance 1e-4: every
//   edge finds its twin next to it in the sorted order;
// - a flat grid of about 200,000 facets in the plane x = 0, all edges (mode 0): the
//   literal scan never stops there, since no x difference exceeds the tolerance;
// - the same grid with every corner moved by up to 3e-5 in y and z, so that twins no
//   longer sit side by side and the position indexes do the work.
//
// Counters give the merges made, and for the torus the peak resident memory the call
// adds (measured in a fresh process), per facet. Run: build/Bench/lmesh_bench --benchmark_filter=Weld.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

constexpr float kTolerance = 1e-4f;

L_LUMOMESH SeparateTriangles(const std::vector<float>& corners)
{
    L_LUMOMESH mesh;
    for (size_t t = 0; t + 9 <= corners.size(); t += 9)
        LMeshAddTriangle(mesh, &corners[t], &corners[t + 3], &corners[t + 6], 0);
    return mesh;
}

// n by n unit squares in x = 0, two triangles each, corners moved by up to `noise`.
std::vector<float> PlaneGridCorners(int n, float noise)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> jitter(-noise, noise);
    std::vector<float> corners;
    const auto corner = [&](int u, int v) {
        corners.insert(corners.end(), {0.0f, float(u) + jitter(random), float(v) + jitter(random)});
    };
    for (int u = 0; u < n; ++u)
        for (int v = 0; v < n; ++v) {
            corner(u, v), corner(u + 1, v), corner(u + 1, v + 1);
            corner(u, v), corner(u + 1, v + 1), corner(u, v + 1);
        }
    return corners;
}

void Weld(benchmark::State& state, const L_LUMOMESH& original, short mode)
{
    uint32_t candidates = 0, unmatched = 0;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh(original);
        state.ResumeTiming();
        if (!LMeshOptimizeEdges(mesh, kTolerance, nullptr, &candidates, &unmatched, mode))
            state.SkipWithError("nothing welded");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * original.facetCount);
    state.counters["merges"] = (candidates - unmatched) / 2;
}

L_LUMOMESH TorusSoup() { return SeparateTriangles(SoupOf(MakeTorus(1000, 500))); }  // 1,000,000 facets

const bool kTorusProbe = RegisterPeakProbe("weld_torus_soup", [](const std::string&) -> PeakWork {
    auto mesh = std::make_shared<L_LUMOMESH>(TorusSoup());
    return [mesh] { LMeshOptimizeEdges(*mesh, kTolerance, nullptr, nullptr, nullptr, 1); };
});

void BM_WeldTorusSoup(benchmark::State& state)
{
    static const L_LUMOMESH original = TorusSoup();
    Weld(state, original, 1);
    if (kTorusProbe)
        state.counters["peak_B_per_facet"] = double(PeakBytesInFreshProcess("weld_torus_soup", "")) / original.facetCount;
}
BENCHMARK(BM_WeldTorusSoup)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_WeldPlaneGrid(benchmark::State& state)
{
    static const L_LUMOMESH original = SeparateTriangles(PlaneGridCorners(316, 0.0f));  // 199,712 facets
    Weld(state, original, 0);
}
BENCHMARK(BM_WeldPlaneGrid)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_WeldPerturbedPlaneGrid(benchmark::State& state)
{
    static const L_LUMOMESH original = SeparateTriangles(PlaneGridCorners(316, 3e-5f));
    Weld(state, original, 0);
}
BENCHMARK(BM_WeldPerturbedPlaneGrid)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
