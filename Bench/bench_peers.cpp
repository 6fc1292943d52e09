// The same binary STL load done by two established open-source mesh libraries, in the
// same run as ours, when their packages are installed (scripts/install-bench-deps.sh).
// Each loads the file into its own structure with shared vertices and neighbour links.
#include <benchmark/benchmark.h>

#include <string>

#include "BenchSupport.h"
#include "bench_repair.h"

#ifdef LMESH_BENCH_OPENMESH
#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#endif
#ifdef LMESH_BENCH_ADMESH
#include <admesh/stl.h>
#endif

namespace {

// Times `load` on the million-facet torus and measures its peak in a fresh process
// through the probe of the same name.
template <class Load>
void MeasureLoad(benchmark::State& state, const char* probe, Load load)
{
    const std::string& path = TorusStl(1000000);
    for (auto _ : state)
        if (!load(path)) state.SkipWithError("peer load failed");
    state.SetItemsProcessed(int64_t(state.iterations()) * 1000000);
    state.counters["peak_MB"] = double(PeakBytesInFreshProcess(probe, path)) / 1e6;
}

#ifdef LMESH_BENCH_OPENMESH
bool HalfedgeLoad(const std::string& path)
{
    OpenMesh::TriMesh_ArrayKernelT<> mesh;
    const bool loaded = OpenMesh::IO::read_mesh(mesh, path);
    benchmark::DoNotOptimize(mesh.n_faces());
    return loaded;
}

const bool kHalfedgeProbe = RegisterPeakProbe("peer_halfedge_load", [](const std::string& path) -> PeakWork {
    return [path] { HalfedgeLoad(path); };
});

void BM_PeerHalfedgeLoad(benchmark::State& state) { MeasureLoad(state, "peer_halfedge_load", HalfedgeLoad); }
BENCHMARK(BM_PeerHalfedgeLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
#endif

#ifdef LMESH_BENCH_ADMESH
// Reads the facets, matches them exactly (or within the tolerance) into neighbours and
// builds the shared vertex table: the peer's equivalent of a welding load.
bool FacetListLoad(const std::string& path, bool nearby)
{
    stl_file stl{};
    stl_open(&stl, const_cast<char*>(path.c_str()));
    const bool loaded = !stl.error;
    stl_check_facets_exact(&stl);
    if (nearby) stl_check_facets_nearby(&stl, 1e-4f);
    stl_generate_shared_vertices(&stl);
    benchmark::DoNotOptimize(stl.stats.shared_vertices);
    stl_close(&stl);
    return loaded;
}

const bool kFacetListProbes =
    RegisterPeakProbe("peer_facet_list_load_0",
                      [](const std::string& path) -> PeakWork { return [path] { FacetListLoad(path, false); }; }) &&
    RegisterPeakProbe("peer_facet_list_load_1e-4",
                      [](const std::string& path) -> PeakWork { return [path] { FacetListLoad(path, true); }; });

void BM_PeerFacetListLoad(benchmark::State& state)
{
    const bool nearby = state.range(0) != 0;
    MeasureLoad(state, nearby ? "peer_facet_list_load_1e-4" : "peer_facet_list_load_0",
                [nearby](const std::string& path) { return FacetListLoad(path, nearby); });
}
BENCHMARK(BM_PeerFacetListLoad)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// The peer's full repair of the repair benchmark's broken torus, the file read
// untimed: exact and nearby facet matching, removal of unconnected facets, hole
// filling, normal directions and values.
void BM_PeerFacetListRepair(benchmark::State& state)
{
    uint32_t facets = 0;
    for (auto _ : state) {
        state.PauseTiming();
        stl_file stl{};
        stl_open(&stl, const_cast<char*>(BrokenTorusStl().c_str()));
        if (stl.error) state.SkipWithError("peer load failed");
        state.ResumeTiming();
        stl_repair(&stl, 1, 0, 0, 0.0f, 0, 0.0f, 0, 2, 0, 0, 0, 0, 0, 0);
        facets = uint32_t(stl.stats.number_of_facets);
        state.PauseTiming();
        stl_close(&stl);
        state.ResumeTiming();
    }
    state.counters["facets"] = facets;
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(BrokenTorusSoup().size() / 9));
}
BENCHMARK(BM_PeerFacetListRepair)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
#endif

}  // namespace
