// Hole filling: boundary loops closed by the tessellator's triangles.
//
// The new facets are plain additions with no link to the rim; the weld afterwards
// joins them to the surrounding surface (or, in a separate mesh, to each other). The
// mesh is only read for positions while loops are tessellated, so the loops found
// first stay valid as triangles are added.
#include "LMesh.h"

#include <utility>

namespace {

// Adds each triangle the tessellator passes on, corners in the order received.
void AddTessellatedTriangle(double* p0, double* p1, double* p2, void* user)
{
    L_LUMOMESH& target = *static_cast<L_LUMOMESH*>(user);
    const float a[3] = {float(p0[0]), float(p0[1]), float(p0[2])};
    const float b[3] = {float(p1[0]), float(p1[1]), float(p1[2])};
    const float c[3] = {float(p2[0]), float(p2[1]), float(p2[2])};
    LMeshAddTriangle(target, a, b, c, 0);
}

// One loop as one path of one contour, the repeated closing corner included. Returns
// the facets the target gained.
uint32_t TessellateLoop(const L_LUMOMESH& source, const BaseList<uint32_t>& loop, const L_LUMOMESH& target)
{
    const uint32_t before = target.facetCount;
    GeoLibTessellate3DBeginPath(false);
    GeoLibTessellate3DBeginContour();
    for (uint32_t i = 0; i < loop.count; ++i) {
        const LM_VERTEX* vertex = source.vertices.Peek(*loop.Peek(i));
        if (!vertex) continue;  // id past the vertex store: the corner is left out
        double xyz[3] = {vertex->position[0], vertex->position[1], vertex->position[2]};
        GeoLibTessellate3DVertex(xyz);
    }
    GeoLibTessellate3DEndContour();
    GeoLibTessellate3DEndPath();
    return target.facetCount - before;
}

bool Contains(const BaseList<uint32_t>& list, uint32_t id)
{
    for (uint32_t i = 0; i < list.count; ++i)
        if (*list.Peek(i) == id) return true;
    return false;
}

// Position of the first list that holds the id, or LM_NONE.
uint32_t FirstListContaining(const BaseList<BaseList<uint32_t>>& lists, uint32_t id)
{
    for (uint32_t i = 0; i < lists.count; ++i)
        if (Contains(*lists.Peek(i), id)) return i;
    return LM_NONE;
}

// The ordered vertices of the loop through `edge`: the path holding it among the edges
// of like curvature; where that path does not close, the batch's chain through the
// edge instead, if there is one. False when no path holds the edge.
bool FindLoopThroughEdge(L_LUMOMESH& mesh, uint32_t edge, float angleTolerance, BaseList<uint32_t>& loop)
{
    BaseList<uint32_t> edges;
    LMeshGetConnectedEdges(mesh, edge, angleTolerance, edges, false, nullptr);
    BaseList<BaseList<uint32_t>> paths;
    LMeshClassifyConnectedEdgesToPaths(mesh, edges, paths);
    const uint32_t path = FirstListContaining(paths, edge);
    if (path == LM_NONE) return false;
    LMeshSortEdges(mesh, *paths.At(path), &loop);
    if (loop.count < 2 || *loop.Peek(0) == *loop.Peek(loop.count - 1)) return true;

    float curvature = 0.0f;
    LMeshComputeEdgeMeanCurvature(mesh, edge, &curvature);
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, curvature, angleTolerance, edgeChains, vertexChains);
    const uint32_t chain = FirstListContaining(edgeChains, edge);
    if (chain != LM_NONE && chain < vertexChains.count) loop = *vertexChains.Peek(chain);
    return true;
}

// Removes the vertex chain of most entries (the first at equal length).
void RemoveLongestChain(BaseList<BaseList<uint32_t>>& chains)
{
    if (chains.count == 0) return;
    uint32_t longest = 0;
    for (uint32_t i = 1; i < chains.count; ++i)
        if (chains.Peek(i)->count > chains.Peek(longest)->count) longest = i;
    for (uint32_t i = longest; i + 1 < chains.count; ++i) *chains.At(i) = std::move(*chains.At(i + 1));
    chains.SetSize(chains.count - 1);
}

void WeldPatches(L_LUMOMESH& target, float weldTolerance)
{
    LMeshOptimizeEdges(target, weldTolerance, nullptr, nullptr, nullptr, 1);
}

}  // namespace

int32_t LMeshFillHole(L_LUMOMESH& mesh, uint32_t edge, float angleTolerance, float weldTolerance, bool separate,
                      L_LUMOMESH* target)
{
    BaseList<uint32_t> loop;
    if (!FindLoopThroughEdge(mesh, edge, angleTolerance, loop)) return -1;
    if (loop.count < 3) return -1;
    if (separate && !target) return -1;
    L_LUMOMESH& into = separate ? *target : mesh;
    if (!GeoLibTessellate3DInit()) return -1;
    GeoLibTessellate3DSetCbk(AddTessellatedTriangle, &into);
    const int32_t added = int32_t(TessellateLoop(mesh, loop, into));
    GeoLibTessellate3DRelease();
    if (added != 0) WeldPatches(into, weldTolerance);
    return added;
}

int32_t LMeshFillHolesInBatch(L_LUMOMESH& mesh, float curvature, float curvatureTolerance, float weldTolerance,
                              bool keepLongest, bool separate, L_LUMOMESH* target)
{
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, curvature, curvatureTolerance, edgeChains, vertexChains);
    if (separate && !target) return -1;
    if (keepLongest) RemoveLongestChain(vertexChains);
    L_LUMOMESH& into = separate ? *target : mesh;
    if (!GeoLibTessellate3DInit()) return -1;
    GeoLibTessellate3DSetCbk(AddTessellatedTriangle, &into);
    int32_t filled = 0;
    for (uint32_t i = 0; i < vertexChains.count; ++i)
        if (TessellateLoop(mesh, *vertexChains.Peek(i), into) != 0) ++filled;
    GeoLibTessellate3DRelease();
    if (filled != 0) WeldPatches(into, weldTolerance);
    return filled;
}
