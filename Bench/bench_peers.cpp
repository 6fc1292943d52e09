// The same binary STL load done by two established open-source mesh libraries, in the
// same run as ours, when their packages are installed (scripts/install-bench-deps.sh).
// Each loads the file into its own structure with shared vertices and neighbour links.
#include <benchmark/benchmark.h>

#include <string>

#include "BenchSupport.h"

#ifdef LMESH_BENCH_OPENMESH
#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#endif
#ifdef LMESH_BENCH_ADMESH
#include <admesh/stl.h>
#endif

namespace {

template <class Load>
void MeasureLoad(benchmark::State& state, Load load)
{
    const std::string& path = TorusStl(1000000);
    PeakResident resident;
    uint64_t peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        resident.Reset();
        state.ResumeTiming();
        load(path);
        state.PauseTiming();
        peak = std::max(peak, resident.AddedBytes());
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * 1000000);
    state.counters["peak_MB"] = double(peak) / 1e6;
}

#ifdef LMESH_BENCH_OPENMESH
void BM_PeerHalfedgeLoad(benchmark::State& state)
{
    MeasureLoad(state, [&state](const std::string& path) {
        OpenMesh::TriMesh_ArrayKernelT<> mesh;
        if (!OpenMesh::IO::read_mesh(mesh, path)) state.SkipWithError("peer load failed");
        benchmark::DoNotOptimize(mesh.n_faces());
    });
}
BENCHMARK(BM_PeerHalfedgeLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
#endif

#ifdef LMESH_BENCH_ADMESH
// Reads the facets, matches them exactly (or within the tolerance) into neighbours and
// builds the shared vertex table: the peer's equivalent of a welding load.
void BM_PeerFacetListLoad(benchmark::State& state)
{
    const bool nearby = state.range(0) != 0;
    MeasureLoad(state, [&state, nearby](const std::string& path) {
        stl_file stl{};
        stl_open(&stl, const_cast<char*>(path.c_str()));
        if (stl.error) state.SkipWithError("peer load failed");
        stl_check_facets_exact(&stl);
        if (nearby) stl_check_facets_nearby(&stl, 1e-4f);
        stl_generate_shared_vertices(&stl);
        benchmark::DoNotOptimize(stl.stats.shared_vertices);
        stl_close(&stl);
    });
}
BENCHMARK(BM_PeerFacetListLoad)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
#endif

}  // namespace
