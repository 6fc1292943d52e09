// Wall thickness of a closed torus of 100,000 facets, every facet listed, short form.
// The tube's radius is 30. Each triangle's centroid lies a third of the way across
// its flat strip of the tube, so the ball that touches it there meets the next strip
// at about two thirds of that radius: a median thickness near 40, where a ray cast
// across the tube finds 60. Beside it, when the peer library is installed, its
// shape-diameter function on the same surface in the same run (raw diameters, the
// mean length of a cone of rays).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "BenchSupport.h"
#include "LMesh.h"
#ifdef LMESH_BENCH_CGAL
#include "bench_cgal.h"
#endif

namespace {

constexpr int kRing = 250, kTube = 200;  // 2 * 250 * 200 = 100,000 facets

// The median of the values that are not -1 (no result), and how many were -1.
void ReportThickness(benchmark::State& state, std::vector<double> values)
{
    const auto missing = std::count(values.begin(), values.end(), -1.0);
    values.erase(std::remove(values.begin(), values.end(), -1.0), values.end());
    std::sort(values.begin(), values.end());
    state.counters["median_thickness"] = values.empty() ? 0.0 : values[values.size() / 2];
    state.counters["without_result"] = double(missing);
    state.SetItemsProcessed(int64_t(state.iterations()) * 2 * kRing * kTube);
}

void BM_Thickness(benchmark::State& state)
{
    const L_LUMOMESH mesh = TorusMesh(kRing, kTube);
    BaseList<uint32_t> facets;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) *facets.At(f) = f;
    std::vector<double> thickness;
    for (auto _ : state) {
        BaseList<float> radius, contact;
        BaseList<uint32_t> opposite;
        LMeshComputeThickness(mesh, facets, radius, opposite, contact, 0.0);
        thickness.clear();
        for (uint32_t i = 0; i < radius.count; ++i) {
            const float r = *radius.Peek(i);
            thickness.push_back(r < 0.0f ? -1.0 : 2.0 * r);
        }
    }
    ReportThickness(state, thickness);
}

#ifdef LMESH_BENCH_CGAL
void BM_PeerShapeDiameter(benchmark::State& state)
{
    const Torus torus = MakeTorus(kRing, kTube);
    std::vector<double> diameters;
    for (auto _ : state) diameters = PeerShapeDiameters(torus.coords, torus.indices);
    ReportThickness(state, diameters);
}
#endif

}  // namespace

BENCHMARK(BM_Thickness)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
#ifdef LMESH_BENCH_CGAL
BENCHMARK(BM_PeerShapeDiameter)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
#endif
