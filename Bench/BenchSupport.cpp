#include "BenchSupport.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include <unistd.h>

#include "LMesh.h"

namespace {

uint64_t StatusKilobytes(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0) return std::strtoull(line.c_str() + std::strlen(field), nullptr, 10);
    return 0;
}

}  // namespace

Torus MakeTorus(int n, int m, float offsetX)
{
    Torus torus;
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const double u = 2 * pi * i / n, v = 2 * pi * j / m, r = 100 + 30 * std::cos(v);
            torus.coords.insert(torus.coords.end(), {float(r * std::cos(u)) + offsetX, float(r * std::sin(u)),
                                                     float(30 * std::sin(v))});
        }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const int a = i * m + j, b = ((i + 1) % n) * m + j, c = ((i + 1) % n) * m + (j + 1) % m,
                      d = i * m + (j + 1) % m;
            torus.indices.insert(torus.indices.end(), {a, b, c, a, c, d});
        }
    return torus;
}

std::vector<float> SoupOf(const Torus& torus)
{
    std::vector<float> soup;
    soup.reserve(torus.indices.size() * 3);
    for (int index : torus.indices)
        soup.insert(soup.end(), torus.coords.begin() + 3 * index, torus.coords.begin() + 3 * index + 3);
    return soup;
}

std::string TempFile(const char* name)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/" + name;
}

std::wstring Wide(const std::string& path) { return std::wstring(path.begin(), path.end()); }

std::map<std::string, PeakProbe>& PeakProbes()
{
    static std::map<std::string, PeakProbe> probes;
    return probes;
}

bool RegisterPeakProbe(const std::string& name, PeakProbe probe)
{
    PeakProbes()[name] = std::move(probe);
    return true;
}

uint64_t PeakBytesInFreshProcess(const std::string& name, const std::string& argument)
{
    const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --peak-probe '" + name + "' '" + argument + "'";
    FILE* child = popen(command.c_str(), "r");
    if (!child) return 0;
    unsigned long long bytes = 0;
    if (std::fscanf(child, "%llu", &bytes) != 1) bytes = 0;
    pclose(child);
    return bytes;
}

bool RunRequestedPeakProbe(int argc, char** argv)
{
    if (argc != 4 || std::strcmp(argv[1], "--peak-probe") != 0) return false;
    const auto found = PeakProbes().find(argv[2]);
    if (found == PeakProbes().end()) return true;
    const PeakWork work = found->second(argv[3]);
    std::ofstream("/proc/self/clear_refs") << "5";  // restart the kernel's high-water mark
    const uint64_t base = StatusKilobytes("VmRSS:");
    work();
    const uint64_t peak = StatusKilobytes("VmHWM:");
    std::printf("%llu\n", (unsigned long long)(peak > base ? (peak - base) * 1024 : 0));
    return true;
}

namespace {

// Benchmark files, removed when the program ends.
struct WrittenFiles {
    std::map<uint32_t, std::string> paths;
    ~WrittenFiles()
    {
        for (const auto& entry : paths) std::remove(entry.second.c_str());
    }
};

}  // namespace

L_LUMOMESH TorusMesh(int n, int m)
{
    const Torus torus = MakeTorus(n, m);
    L_LUMOMESH mesh;
    LMeshCreateFromIndexedTriangles(mesh, torus.coords.data(), uint32_t(torus.coords.size() / 3),
                                    torus.indices.data(), uint32_t(torus.indices.size()));
    return mesh;
}

const std::string& TorusStl(uint32_t facets)
{
    static WrittenFiles files;
    std::map<uint32_t, std::string>& written = files.paths;
    auto found = written.find(facets);
    if (found != written.end()) return found->second;
    const int n = int(std::sqrt(facets)), m = int(facets / 2 / n);
    const L_LUMOMESH mesh = TorusMesh(n, m);
    const std::string path = TempFile(("lmesh_bench_torus_" + std::to_string(facets) + ".stl").c_str());
    LMeshSaveToStlBin(mesh, Wide(path).c_str(), nullptr, 0.0f, nullptr);
    return written.emplace(facets, path).first->second;
}
