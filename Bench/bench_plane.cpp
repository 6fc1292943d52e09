// Plane section of a closed torus of 1 million facets, cut through its axis on a
// slant, so the plane crosses the tube twice: raw segments, and chained and reduced
// to lines and arcs. Items are facets visited.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "LMesh.h"

namespace {

const L_LUMOMESH& BoxedTorus()
{
    static const L_LUMOMESH mesh = [] {
        L_LUMOMESH torus = TorusMesh(1000, 500);
        LMeshComputeAbsoluteBoundingBox(torus);
        return torus;
    }();
    return mesh;
}

void BM_PlaneSection(benchmark::State& state)
{
    const L_LUMOMESH& mesh = BoxedTorus();
    const L_PLANE plane = {{(mesh.bboxMin[0] + mesh.bboxMax[0]) * 0.5, (mesh.bboxMin[1] + mesh.bboxMax[1]) * 0.5,
                            (mesh.bboxMin[2] + mesh.bboxMax[2]) * 0.5},
                           {0.9, 0.3, 0.2}};
    const short chain = short(state.range(0));
    uint32_t kept = 0;
    for (auto _ : state) {
        List<L_ELEMENT> elements;
        if (!LMeshPlaneSection(mesh, plane, elements, chain, 1e-3, nullptr)) state.SkipWithError("no section");
        kept = elements.Size();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh.facetCount);
    state.counters["elements"] = kept;
}

}  // namespace

BENCHMARK(BM_PlaneSection)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
