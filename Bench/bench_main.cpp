// Throughput of the native file and of the welding soup builder.
//
// - Native write and read of a closed torus of 2 million facets, in bytes per second,
//   beside plain memcpy of the same number of bytes in the same run: once into fresh
//   memory (which, like the file's new pages, must first be faulted in) and once into
//   memory already touched. Reading is measured into a new mesh (whose pages must
//   be faulted in, like the fresh memcpy) and into a mesh whose pages are reused.
// - LMeshReadVertexListIntoLumoMesh on a torus of 1 million triangles given as soup,
//   at tolerance 0 and 1e-4, in triangles per second, with the peak resident memory
//   the call adds, per triangle (the caller's soup excluded, and included).
//
// Run: build/Bench/lmesh_bench [--benchmark_filter=...]. TMPDIR chooses the file folder.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

const L_LUMOMESH& FileMesh()
{
    static L_LUMOMESH mesh = [] {
        const Torus torus = MakeTorus(1000, 1000);  // 2,000,000 facets
        L_LUMOMESH built;
        LMeshCreateFromIndexedTriangles(built, torus.coords.data(), uint32_t(torus.coords.size() / 3),
                                        torus.indices.data(), uint32_t(torus.indices.size()));
        return built;
    }();
    return mesh;
}

uint64_t FileBytes(const L_LUMOMESH& mesh)
{
    return 56 + 17ull * (mesh.vertices.count + mesh.edges.count) + 41ull * mesh.facets.count;
}

void BM_MemcpyFresh(benchmark::State& state)
{
    const uint64_t bytes = FileBytes(FileMesh());
    std::vector<char> source(bytes, 1);
    for (auto _ : state) {
        char* target = static_cast<char*>(std::malloc(bytes));
        std::memcpy(target, source.data(), bytes);
        benchmark::DoNotOptimize(target);
        std::free(target);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}

void BM_MemcpyWarm(benchmark::State& state)
{
    const uint64_t bytes = FileBytes(FileMesh());
    std::vector<char> source(bytes, 1), target(bytes, 0);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}

void BM_NativeWrite(benchmark::State& state)
{
    const L_LUMOMESH& mesh = FileMesh();
    const std::string path = TempFile("lmesh_bench.lmesh");
    for (auto _ : state)
        if (!LMeshWriteToFile(Wide(path).c_str(), mesh)) state.SkipWithError("mapped write failed");
    state.SetBytesProcessed(int64_t(state.iterations() * FileBytes(mesh)));
    std::remove(path.c_str());
}

// Reads into a new mesh each time, or, with `reuse`, into one mesh whose pages stay.
void NativeRead(benchmark::State& state, bool reuse)
{
    const L_LUMOMESH& mesh = FileMesh();
    const std::string path = TempFile("lmesh_bench.lmesh");
    LMeshWriteToFile(Wide(path).c_str(), mesh);
    L_LUMOMESH kept;
    if (reuse) LMeshReadFromFile(Wide(path).c_str(), kept);
    for (auto _ : state) {
        L_LUMOMESH fresh;
        L_LUMOMESH& target = reuse ? kept : fresh;
        if (!LMeshReadFromFile(Wide(path).c_str(), target)) state.SkipWithError("mapped read failed");
        benchmark::DoNotOptimize(target.facets.count);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * FileBytes(mesh)));
    std::remove(path.c_str());
}

void BM_NativeRead(benchmark::State& state) { NativeRead(state, false); }
void BM_NativeReadReuse(benchmark::State& state) { NativeRead(state, true); }

const std::vector<float>& TorusSoup()
{
    static const std::vector<float> soup = SoupOf(MakeTorus(1000, 500));  // 1,000,000 triangles
    return soup;
}

void WeldSoup(const std::vector<float>& soup, float tolerance)
{
    L_LUMOMESH mesh;
    LMeshReadVertexListIntoLumoMesh(soup.data(), int(soup.size() / 9), mesh, tolerance, 0);
    benchmark::DoNotOptimize(mesh.vertexCount);
}

const bool kWeldProbe = RegisterPeakProbe("weld_soup", [](const std::string& tolerance) -> PeakWork {
    const std::vector<float>& soup = TorusSoup();
    const float value = std::stof(tolerance);
    return [&soup, value] { WeldSoup(soup, value); };
});

void BM_WeldSoup(benchmark::State& state)
{
    const float tolerance = state.range(0) == 0 ? 0.0f : 1e-4f;
    const std::vector<float>& soup = TorusSoup();
    const int triangles = int(soup.size() / 9);
    {
        L_LUMOMESH mesh;
        LMeshReadVertexListIntoLumoMesh(soup.data(), triangles, mesh, tolerance, 0);
        if (mesh.vertexCount != 500000u) state.SkipWithError("the torus did not weld to 500,000 vertices");
    }
    for (auto _ : state) WeldSoup(soup, tolerance);
    state.SetItemsProcessed(int64_t(state.iterations() * triangles));
    const double peak = double(PeakBytesInFreshProcess("weld_soup", std::to_string(tolerance)));
    state.counters["peak_B_per_tri"] = peak / triangles;
    state.counters["with_soup_B_per_tri"] = peak / triangles + 36.0;
}

}  // namespace

BENCHMARK(BM_MemcpyFresh)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_MemcpyWarm)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeRead)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeReadReuse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_WeldSoup)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv)
{
    if (RunRequestedPeakProbe(argc, argv)) return 0;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
