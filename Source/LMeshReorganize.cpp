// Evening out vertices: each inner vertex moves to the centroid of its neighbours, and
// goes back where the move bends the surface around it. Links are left as they are.
#include <cmath>

#include "LMesh.h"
#include "LMeshRead.h"

namespace {

constexpr short kClosedFan = 0;
constexpr uint32_t kFewestNeighbours = 3;  // with fewer the centroid is no evening out

// The neighbours' centroid, summed and divided in float. False (nothing written) if a
// neighbour lies past the vertex store.
bool NeighbourCentroid(const L_LUMOMESH& mesh, const BaseList<uint32_t>& neighbours, float centroid[3])
{
    float sum[3] = {0.0f, 0.0f, 0.0f};
    for (uint32_t i = 0; i < neighbours.count; ++i) {
        float at[3];
        if (!ReadPosition(mesh, *neighbours.Peek(i), at)) return false;
        for (int k = 0; k < 3; ++k) sum[k] += at[k];
    }
    const float n = static_cast<float>(neighbours.count);
    for (int k = 0; k < 3; ++k) centroid[k] = sum[k] / n;
    return true;
}

float VertexCurvature(const L_LUMOMESH& mesh, uint32_t vertex)
{
    float curvature = 0.0f;
    LMeshComputeVertexCurvature(mesh, vertex, &curvature);
    return curvature;
}

// True when some neighbour's curvature now differs from its earlier value by the
// tolerance or more; the first such neighbour decides.
bool BendsNeighbours(const L_LUMOMESH& mesh, const BaseList<uint32_t>& neighbours, const BaseList<float>& before,
                     float tolerance)
{
    for (uint32_t i = 0; i < neighbours.count; ++i) {
        const float change = std::fabs(VertexCurvature(mesh, *neighbours.Peek(i)) - *before.Peek(i));
        if (tolerance <= change) return true;
    }
    return false;
}

}  // namespace

void LMeshReorganizeVertices(L_LUMOMESH& mesh, float tolerance)
{
    BaseList<uint32_t> facets;
    BaseList<uint32_t> neighbours;
    BaseList<float> curvatures;
    const uint32_t slots = mesh.vertices.count;
    for (uint32_t v = 0; v < slots; ++v) {
        if (!(mesh.vertices.Peek(v)->flags & LM_LIVE)) continue;
        facets.Clear();
        if (LMeshGetFacetsAroundVertex(mesh, v, facets) != kClosedFan) continue;  // borders never move
        neighbours.Clear();
        LMeshGetVerticesAroundVertex(mesh, v, neighbours);
        for (uint32_t i = 0; i < neighbours.count; ++i) *curvatures.At(i) = VertexCurvature(mesh, *neighbours.Peek(i));
        if (neighbours.count < kFewestNeighbours) continue;

        float centroid[3];
        if (!NeighbourCentroid(mesh, neighbours, centroid)) continue;
        LM_VERTEX* record = mesh.vertices.At(v);
        const LM_VERTEX saved = *record;
        for (int k = 0; k < 3; ++k) record->position[k] = centroid[k];
        if (BendsNeighbours(mesh, neighbours, curvatures, tolerance)) *mesh.vertices.At(v) = saved;
    }
}
