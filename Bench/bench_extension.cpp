// Extension of an open tube of 100,000 facets, with its two rims of 1,000 edges each,
// cleanups included. The facets are far smaller than the direction search's reach, so
// every edge falls through to the whole-mesh cut.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "LMesh.h"

namespace {

// A tube of `around` by `along` quads (two facets each), 0.05 long either way.
L_LUMOMESH OpenTube(int around, int along)
{
    const double step = 0.05, radius = around * step / (2 * std::acos(-1.0));
    std::vector<float> coords;
    for (int j = 0; j <= along; ++j)
        for (int i = 0; i < around; ++i) {
            const double angle = 2 * std::acos(-1.0) * i / around;
            coords.insert(coords.end(), {float(radius * std::cos(angle)), float(radius * std::sin(angle)),
                                         float(j * step)});
        }
    std::vector<int> indices;
    for (int j = 0; j < along; ++j)
        for (int i = 0; i < around; ++i) {
            const int a = j * around + i, b = j * around + (i + 1) % around, c = b + around, d = a + around;
            indices.insert(indices.end(), {a, b, c, a, c, d});
        }
    L_LUMOMESH mesh;
    LMeshCreateFromIndexedTriangles(mesh, coords.data(), uint32_t(coords.size() / 3), indices.data(),
                                    uint32_t(indices.size()));
    LMeshComputeAbsoluteBoundingBox(mesh);
    return mesh;
}

void BM_ExtendMesh(benchmark::State& state)
{
    static L_LUMOMESH tube = OpenTube(1000, 50);
    uint32_t strips = 0;
    for (auto _ : state) {
        BaseList<L_LUMOMESH> results;
        LMeshExtendMesh(tube, 1.0f, results, false, true);
        strips = results.count;
    }
    state.counters["facets"] = double(tube.facetCount);
    state.counters["strips"] = strips;
}

}  // namespace

BENCHMARK(BM_ExtendMesh)->Unit(benchmark::kMillisecond);
