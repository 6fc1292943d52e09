// Throughput of the native file and of the welding soup builder.
//
// - Native write and read of a closed torus of 2 million facets, in bytes per second,
//   beside plain memcpy of the same number of bytes in the same run: once into fresh
//   memory (which, like the file's new pages, must first be faulted in) and once into
//   memory already touched. Reading is measured into a new mesh (whose pages must
//   be faulted in, like the fresh memcpy) and into a mesh whose pages are reused.
// - LMeshReadVertexListIntoLumoMesh on a torus of about 1 million triangles given as
//   soup, at tolerance 0 and 1e-4, in triangles per second, with the peak resident
//   memory the call adds, per triangle (the caller's soup excluded, and included).
//
// Run: build/Bench/lmesh_bench [--benchmark_filter=...]. TMPDIR chooses the file folder.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "LMesh.h"

namespace {

// A torus of n by m quads, two triangles each: closed, 2 n m triangles.
struct Torus {
    std::vector<float> coords;
    std::vector<int> indices;
};

Torus MakeTorus(int n, int m)
{
    Torus torus;
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const double u = 2 * pi * i / n, v = 2 * pi * j / m, r = 100 + 30 * std::cos(v);
            torus.coords.insert(torus.coords.end(),
                                {float(r * std::cos(u)), float(r * std::sin(u)), float(30 * std::sin(v))});
        }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const int a = i * m + j, b = ((i + 1) % n) * m + j, c = ((i + 1) % n) * m + (j + 1) % m,
                      d = i * m + (j + 1) % m;
            torus.indices.insert(torus.indices.end(), {a, b, c, a, c, d});
        }
    return torus;
}

std::vector<float> Soup(const Torus& torus)
{
    std::vector<float> soup;
    soup.reserve(torus.indices.size() * 3);
    for (int index : torus.indices)
        soup.insert(soup.end(), torus.coords.begin() + 3 * index, torus.coords.begin() + 3 * index + 3);
    return soup;
}

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

std::wstring FilePath()
{
    const char* dir = std::getenv("TMPDIR");
    const std::string path = std::string(dir && *dir ? dir : "/tmp") + "/lmesh_bench.lmesh";
    return std::wstring(path.begin(), path.end());
}

// Peak resident memory since the last reset, from the kernel's high-water mark.
void ResetPeakResident()
{
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
}

uint64_t StatusKilobytes(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0) return std::strtoull(line.c_str() + std::strlen(field), nullptr, 10);
    return 0;
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
    const std::wstring path = FilePath();
    for (auto _ : state)
        if (!LMeshWriteToFile(path.c_str(), mesh)) state.SkipWithError("mapped write failed");
    state.SetBytesProcessed(int64_t(state.iterations() * FileBytes(mesh)));
}

void BM_NativeRead(benchmark::State& state)
{
    const L_LUMOMESH& mesh = FileMesh();
    const std::wstring path = FilePath();
    LMeshWriteToFile(path.c_str(), mesh);
    for (auto _ : state) {
        L_LUMOMESH loaded;
        if (!LMeshReadFromFile(path.c_str(), loaded)) state.SkipWithError("mapped read failed");
        benchmark::DoNotOptimize(loaded.facets.count);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * FileBytes(mesh)));
    const std::string narrow(path.begin(), path.end());
    std::remove(narrow.c_str());
}

// Reading into a mesh that already holds pages reuses them: no fresh memory to fault in.
void BM_NativeReadReuse(benchmark::State& state)
{
    const L_LUMOMESH& mesh = FileMesh();
    const std::wstring path = FilePath();
    LMeshWriteToFile(path.c_str(), mesh);
    L_LUMOMESH loaded;
    LMeshReadFromFile(path.c_str(), loaded);
    for (auto _ : state) {
        if (!LMeshReadFromFile(path.c_str(), loaded)) state.SkipWithError("mapped read failed");
        benchmark::DoNotOptimize(loaded.facets.count);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * FileBytes(mesh)));
    const std::string narrow(path.begin(), path.end());
    std::remove(narrow.c_str());
}

void BM_WeldSoup(benchmark::State& state)
{
    const float tolerance = state.range(0) == 0 ? 0.0f : 1e-4f;
    static const std::vector<float> soup = Soup(MakeTorus(1000, 500));  // 1,000,000 triangles
    const int triangles = int(soup.size() / 9);
    uint64_t peakKilobytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        ResetPeakResident();
        const uint64_t before = StatusKilobytes("VmRSS:");
        state.ResumeTiming();
        {
            L_LUMOMESH mesh;
            LMeshReadVertexListIntoLumoMesh(soup.data(), triangles, mesh, tolerance, 0);
            state.PauseTiming();
            if (mesh.vertexCount != 500000u) state.SkipWithError("the torus did not weld to 500,000 vertices");
            const uint64_t peak = StatusKilobytes("VmHWM:");
            if (peak > before) peakKilobytes = std::max(peakKilobytes, peak - before);
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(state.iterations() * triangles));
    const double added = double(peakKilobytes) * 1024.0 / triangles;
    state.counters["peak_B_per_tri"] = added;
    state.counters["with_soup_B_per_tri"] = added + 36.0;
}

}  // namespace

BENCHMARK(BM_MemcpyFresh)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_MemcpyWarm)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeRead)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_NativeReadReuse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_WeldSoup)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK_MAIN();
