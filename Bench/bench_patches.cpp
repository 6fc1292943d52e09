// Splitting a mesh into its connected pieces.
//
// - LMeshSplitIntoConnectedMeshes on 100 separate tori of 2,000 facets each (200,000
//   facets): every piece is a full copy of the stores, so the cost is about pieces
//   times store size.
// - The same on 2,000 separate squares of two facets each: many tiny pieces, which
//   a recursive peeling would turn into 2,000 nested calls.
// Freeing the pieces is left out of the timing; counters give the pieces made.
//
// Run: build/Bench/lmesh_bench --benchmark_filter=Split.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

// A unit square of two facets.
Torus MakeSquare()
{
    return {{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {0, 1, 2, 0, 2, 3}};
}

// `count` copies of one piece, side by side along x and sharing nothing.
L_LUMOMESH SeparateCopies(const Torus& piece, int count, float spacing)
{
    std::vector<float> coords;
    std::vector<int> indices;
    const int pieceVertices = int(piece.coords.size() / 3);
    for (int c = 0; c < count; ++c) {
        for (size_t k = 0; k < piece.coords.size(); ++k)
            coords.push_back(piece.coords[k] + (k % 3 == 0 ? c * spacing : 0.0f));
        for (int index : piece.indices) indices.push_back(index + c * pieceVertices);
    }
    L_LUMOMESH mesh;
    LMeshCreateFromIndexedTriangles(mesh, coords.data(), uint32_t(coords.size() / 3), indices.data(),
                                    uint32_t(indices.size()));
    return mesh;
}

void RunSplit(benchmark::State& state, const L_LUMOMESH& mesh)
{
    uint32_t pieces = 0;
    for (auto _ : state) {
        BaseList<L_LUMOMESH> meshes;
        if (!LMeshSplitIntoConnectedMeshes(mesh, meshes)) state.SkipWithError("no live facet");
        pieces = meshes.count;
        state.PauseTiming();
        meshes.Clear();
        state.ResumeTiming();
    }
    state.counters["pieces"] = pieces;
    state.counters["facets"] = mesh.facetCount;
}

void BM_SplitIntoConnectedMeshes(benchmark::State& state)
{
    static const L_LUMOMESH tori = SeparateCopies(MakeTorus(50, 20), 100, 300.0f);
    static const L_LUMOMESH squares = SeparateCopies(MakeSquare(), 2000, 2.0f);
    RunSplit(state, state.range(0) == 100 ? tori : squares);
}
BENCHMARK(BM_SplitIntoConnectedMeshes)->Arg(100)->Arg(2000)->Unit(benchmark::kMillisecond);

}  // namespace
