// Hole filling and the search for free boundaries on tori with rectangular holes cut
// into them: the rims are curved, as on a real part.
//   BM_FillHolesInBatch: 100 holes with rims of 20 to 200 vertices; the copy of the
//     holed mesh that each run starts from is not timed.
//   BM_FreeBoundaries: LMeshGetConnectedEdgesBatch for free edges on 1 million facets
//     with 1,000 holes.
//   BM_LongChain: one free boundary of 100,000 edges gathered and sorted by
//     LMeshGetConnectedEdges.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

struct Hole {
    int i, j;            // first quad
    int across, around;  // quads along the torus's two directions
};

// Deletes the quads of each hole from a torus of n by m quads.
L_LUMOMESH HoledTorus(int n, int m, const std::vector<Hole>& holes)
{
    L_LUMOMESH mesh = TorusMesh(n, m);
    BaseList<uint32_t> facets;
    for (const Hole& hole : holes)
        for (int i = hole.i; i < hole.i + hole.across; ++i)
            for (int j = hole.j; j < hole.j + hole.around; ++j) {
                const uint32_t quad = uint32_t(i * m + j);
                *facets.At(facets.count) = 2 * quad;
                *facets.At(facets.count) = 2 * quad + 1;
            }
    LMeshDeleteFacets(mesh, facets);
    LMeshComputeAbsoluteBoundingBox(mesh);
    return mesh;
}

// Hole k of 100 has a rim of about 20 + 180 k / 99 vertices (2 (across + around)), one
// hole to a block of 80 by 36 quads.
const L_LUMOMESH& HundredHoles()
{
    static const L_LUMOMESH mesh = [] {
        std::vector<Hole> holes;
        for (int k = 0; k < 100; ++k) {
            const int half = (20 + 180 * k / 99) / 2, around = std::min(half / 2, 30);
            holes.push_back({(k % 10) * 80 + 2, (k / 10) * 36 + 2, half - around, around});
        }
        return HoledTorus(800, 360, holes);
    }();
    return mesh;
}

// 1,000 holes of 4 by 4 quads, one to a block of 30 by 16 quads. Mutable only
// because the batch takes a mutable mesh; it reads it.
L_LUMOMESH& ThousandHoles()
{
    static L_LUMOMESH mesh = [] {
        std::vector<Hole> holes;
        for (int k = 0; k < 1000; ++k) holes.push_back({(k % 33) * 30 + 8, (k / 33) * 16 + 6, 4, 4});
        return HoledTorus(1000, 500, holes);
    }();
    return mesh;
}

void BM_FillHolesInBatch(benchmark::State& state)
{
    int32_t filled = 0;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh = HundredHoles();
        state.ResumeTiming();
        filled = LMeshFillHolesInBatch(mesh, -1.0f, 1e-6f, 1e-4f, false, false, nullptr);
    }
    if (filled != 100) state.SkipWithError("not every hole was filled");
    state.counters["filled"] = filled;
}

void BM_FreeBoundaries(benchmark::State& state)
{
    L_LUMOMESH& mesh = ThousandHoles();
    uint32_t chains = 0;
    for (auto _ : state) {
        BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
        LMeshGetConnectedEdgesBatch(mesh, -1.0f, 1e-6f, edgeChains, vertexChains);
        chains = edgeChains.count;
    }
    if (chains != 1000) state.SkipWithError("expected one chain per hole");
    state.counters["chains"] = chains;
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh.facetCount);
}

// A torus of 100,000 by 4 quads with one ring of quads taken out along its length:
// a band whose two rims are loops of 100,000 edges.
L_LUMOMESH& LongBand()
{
    static L_LUMOMESH mesh = HoledTorus(100000, 4, {{0, 0, 100000, 1}});
    return mesh;
}

void BM_LongChain(benchmark::State& state)
{
    L_LUMOMESH& mesh = LongBand();
    uint32_t seed = 0;
    while (seed < mesh.edges.count && mesh.edges.Peek(seed)->facet[1] != LM_NONE) ++seed;
    uint32_t length = 0;
    for (auto _ : state) {
        BaseList<uint32_t> edges, vertices;
        LMeshGetConnectedEdges(mesh, seed, 1e-6f, edges, true, &vertices);
        length = edges.count;
    }
    if (length != 100000) state.SkipWithError("expected a rim of 100,000 edges");
    state.counters["edges"] = length;
}

}  // namespace

BENCHMARK(BM_FillHolesInBatch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FreeBoundaries)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LongChain)->Unit(benchmark::kMillisecond);
