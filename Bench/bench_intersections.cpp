// Self-intersection search on a closed torus of 1 million facets pierced by 1,000
// small triangles, each crossing one facet of the surface: the whole mesh is searched
// (no facet list) and nothing is deleted. Beside it, when the peer library is
// installed, its self-intersection search on the same surface in the same run.
#include <benchmark/benchmark.h>

#include <vector>

#include "BenchSupport.h"
#include "LMesh.h"
#ifdef LMESH_BENCH_CGAL
#include "bench_cgal.h"
#endif

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

#ifdef LMESH_BENCH_CGAL
// The live facets as a vertex table and corner indices.
void Indexed(const L_LUMOMESH& mesh, std::vector<float>& coords, std::vector<int>& indices)
{
    for (uint32_t v = 0; v < mesh.vertices.count; ++v)
        for (int k = 0; k < 3; ++k) coords.push_back(mesh.vertices.Peek(v)->position[k]);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        for (int k = 0; k < 3; ++k) indices.push_back(int(facet.vertex[k]));
    }
}

void BM_PeerSelfIntersections(benchmark::State& state)
{
    std::vector<float> coords;
    std::vector<int> indices;
    Indexed(PiercedTorus(), coords, indices);
    size_t pairs = 0;
    for (auto _ : state) pairs = PeerSelfIntersectingPairs(coords, indices);
    state.counters["pairs"] = double(pairs);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(indices.size() / 3));
}
#endif

}  // namespace

BENCHMARK(BM_DeleteIntersections)->Unit(benchmark::kMillisecond)->Iterations(1);
#ifdef LMESH_BENCH_CGAL
BENCHMARK(BM_PeerSelfIntersections)->Unit(benchmark::kMillisecond)->Iterations(1);
#endif
