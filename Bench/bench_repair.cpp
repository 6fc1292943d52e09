// The whole cleanup on a broken part of about 1 million facets, and in the same run
// the full repair of two peer libraries on the same triangles, when installed.
//
// The part is the torus of 1000 by 500 quads with, written as a binary STL:
// - cracks: along 10 rings the facets on one side have their corners on the ring
//   lifted by 2e-4 (20,000 border edges);
// - 100 holes of 3 by 3 quads (1,800 facets left out);
// - every 999th facet repeated at the end of the file, lifted by 1e-4 as if written
//   twice with rounding noise, and every 777th facet wound backwards.
// An exact repeat is not used: the merging load makes it take over the links of its
// twin's edges (a third facet on an edge replaces the second), and after its removal
// those edges name only the twin, which no step of the cleanup mends.
// Each run loads the file with exact merging, untimed, as `lmesh repair` does, and
// times LMeshCleanup with every step on.
//   BM_Cleanup: ours; counters give the seven results and whether the part came out
//   closed.
//   BM_PeerSoupRepair: the geometry library's soup repair, soup orientation, mesh
//     building and, when the result is closed, orientation to bound a volume.
//   BM_PeerFacetListRepair (bench_peers.cpp): the facet-list library's full repair.
#include "bench_repair.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

#include "BenchSupport.h"
#include "LMesh.h"
#ifdef LMESH_BENCH_CGAL
#include "bench_cgal.h"
#endif

namespace {

constexpr int kAround = 1000, kAcross = 500;  // quads of the torus: 1 million facets
constexpr float kCrackLift = 2e-4f, kRepeatLift = 1e-4f;
constexpr int kCrackRings = 10, kHoleQuads = 3;
constexpr int kRepeatEvery = 999, kFlipEvery = 777;

bool IsCrackRing(int j) { return j % (kAcross / kCrackRings) == 0; }

bool InHole(int i, int j)
{
    // One hole to each of the 10 by 10 blocks of 100 by 50 quads, away from the crack rings.
    return (i % 100) >= 40 && (i % 100) < 40 + kHoleQuads && (j % 50) >= 20 && (j % 50) < 20 + kHoleQuads;
}

// Nine floats of facet t of the torus, with the crack lift and the flip applied, and
// lifted by `lift` as a whole.
void AppendFacet(const Torus& torus, int t, float lift, std::vector<float>& soup)
{
    const int quadRow = (t / 2) % kAcross;
    int corners[3] = {torus.indices[3 * t], torus.indices[3 * t + 1], torus.indices[3 * t + 2]};
    if (t % kFlipEvery == 0) std::swap(corners[1], corners[2]);
    for (int corner : corners) {
        const float* p = &torus.coords[3 * size_t(corner)];
        const bool lifted = IsCrackRing(quadRow) && corner % kAcross == quadRow;
        soup.insert(soup.end(), {p[0], p[1], p[2] + (lifted ? kCrackLift : 0.0f) + lift});
    }
}

std::vector<float> MakeBrokenSoup()
{
    const Torus torus = MakeTorus(kAround, kAcross);
    std::vector<float> soup;
    soup.reserve(size_t(2) * kAround * kAcross * 9 + 9000);
    for (int t = 0; t < 2 * kAround * kAcross; ++t)
        if (!InHole(t / 2 / kAcross, (t / 2) % kAcross)) AppendFacet(torus, t, 0.0f, soup);
    for (int t = 0; t < 2 * kAround * kAcross; t += kRepeatEvery) AppendFacet(torus, t, kRepeatLift, soup);
    return soup;
}

bool WriteStl(const std::string& path, const std::vector<float>& soup)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    char header[80] = "broken torus for the repair benchmark";
    const uint32_t count = uint32_t(soup.size() / 9);
    bool written = std::fwrite(header, 1, 80, file) == 80 && std::fwrite(&count, 4, 1, file) == 1;
    unsigned char record[50] = {};  // zero normal and attribute: the loader computes normals
    for (uint32_t t = 0; written && t < count; ++t) {
        std::memcpy(record + 12, &soup[9 * size_t(t)], 36);
        written = std::fwrite(record, 1, 50, file) == 50;
    }
    return std::fclose(file) == 0 && written;
}

void BM_Cleanup(benchmark::State& state)
{
    uint32_t results[7] = {};
    bool closed = false;
    for (auto _ : state) {
        state.PauseTiming();
        L_LUMOMESH mesh;
        if (!LMeshLoadFromSTL(Wide(BrokenTorusStl()).c_str(), 0.0f, &mesh)) state.SkipWithError("load failed");
        state.ResumeTiming();
        // About 1e-5 of the part's size for welds; slivers below 1e-6 mm^2; T-junctions
        // within 1e-2; facets with a side 20 times their height are skinny.
        LMeshCleanup(mesh, 2.6e-3f, results, true, true, true, 1e-6f, true, 20.0f, true, true, 1e-2f, true, true);
        state.PauseTiming();
        closed = !LMeshHasBoundaryEdges(mesh);
        state.ResumeTiming();
    }
    const char* const names[7] = {"equal", "non_manifold", "zero_area", "skinny", "holes", "t_junctions", "oriented"};
    for (int k = 0; k < 7; ++k) state.counters[names[k]] = int32_t(results[k]);
    state.counters["closed"] = closed;
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(BrokenTorusSoup().size() / 9));
}
BENCHMARK(BM_Cleanup)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

#ifdef LMESH_BENCH_CGAL
void BM_PeerSoupRepair(benchmark::State& state)
{
    const std::vector<float>& soup = BrokenTorusSoup();
    std::vector<int> corners(soup.size() / 3);
    for (size_t i = 0; i < corners.size(); ++i) corners[i] = int(i);
    size_t facets = 0;
    for (auto _ : state) facets = PeerRepairSoup(soup, corners);
    state.counters["facets"] = double(facets);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(soup.size() / 9));
}
BENCHMARK(BM_PeerSoupRepair)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
#endif

}  // namespace

const std::vector<float>& BrokenTorusSoup()
{
    static const std::vector<float> soup = MakeBrokenSoup();
    return soup;
}

const std::string& BrokenTorusStl()
{
    static const std::string path = [] {
        const std::string written = TempFile("lmesh_bench_broken_torus.stl");
        return WriteStl(written, BrokenTorusSoup()) ? written : std::string();
    }();
    return path;
}
