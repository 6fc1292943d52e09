// Discrete curvature, in degrees. An edge's figure is the angle between the normals of
// its two facets: 0 on a flat inner edge, growing with the crease. A vertex's figure
// is the angle sum of its fan, the angles between consecutive edges around it: 360 at
// a flat inner vertex, so its departure from 360 tells how far the surface bends.
//
// Every angle is worked out in float up to acosf and only then widened, so the double
// forms are no more precise than the float ones: they exist for callers that keep
// doubles. Each pair of forms is one template over the output type, and that type is
// also the vertex sum's accumulator: the float form rounds at every term, as the
// thresholds tuned against it expect.
#include <cmath>
#include <vector>

#include "LMesh.h"
#include "LMeshRead.h"

namespace {

constexpr double kRadiansPerDegree = 0.0174532925199433;

// Edge results, and the figures written with the two failures.
constexpr short kEdgeDone = 0;
constexpr short kEdgeOneFacet = 1;
constexpr short kEdgeNoFacet = -1;
constexpr double kOneFacetCurvature = -1.0;
constexpr double kNoFacetCurvature = -1000.0;

constexpr short kVertexDone = 0;
constexpr short kVertexNoEdges = 1;

constexpr short kOpenFan = 1;

struct Direction {
    float v[3];
};

// Angle between two unit (or zero) vectors: float dot, clamped, acosf, in degrees.
double AngleDegrees(const float* a, const float* b)
{
    float dot = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    if (dot < -1.0f) dot = -1.0f;
    if (dot > 1.0f) dot = 1.0f;
    return double(std::acos(dot)) / kRadiansPerDegree;
}

// A null output still gets the result code.
template <class Out>
void Store(Out* out, double value)
{
    if (out) *out = static_cast<Out>(value);
}

// The facet's stored normal scaled to unit length; false for an id past the store.
bool ReadUnitNormal(const L_LUMOMESH& mesh, uint32_t facet, float* normal)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int i = 0; i < 3; ++i) normal[i] = record->normal[i];
    NormalizeVector(normal);
    return true;
}

void AppendDirection(const L_LUMOMESH& mesh, const float* from, uint32_t to, std::vector<Direction>& directions)
{
    Direction d;
    if (!ReadPosition(mesh, to, d.v)) return;  // end past the vertex store: no direction
    for (int i = 0; i < 3; ++i) d.v[i] -= from[i];
    NormalizeVector(d.v);
    directions.push_back(d);
}

// Unit directions from the vertex along each listed edge, in list order. The two ends
// are tested separately, so an edge from the vertex to itself gives two directions
// and an edge that misses it gives none.
void CollectDirections(const L_LUMOMESH& mesh, uint32_t vertex, const float* at, const BaseList<uint32_t>& edges,
                       std::vector<Direction>& directions)
{
    for (uint32_t i = 0; i < edges.count; ++i) {
        const LM_EDGE* edge = mesh.edges.Peek(*edges.Peek(i));
        if (!edge) continue;  // the walk lists only ids it has read; kept for safety
        const uint32_t v0 = edge->vertex[0], v1 = edge->vertex[1];
        if (v0 == vertex) AppendDirection(mesh, at, v1, directions);
        if (v1 == vertex) AppendDirection(mesh, at, v0, directions);
    }
}

template <class Out>
short EdgeCurvature(const L_LUMOMESH& mesh, uint32_t edge, Out* curvature)
{
    const LM_EDGE* record = mesh.edges.Peek(edge);
    const uint32_t f0 = record ? record->facet[0] : LM_NONE;  // id past the store: no facet
    const uint32_t f1 = record ? record->facet[1] : LM_NONE;
    if (f0 == LM_NONE && f1 == LM_NONE) {
        Store(curvature, kNoFacetCurvature);
        return kEdgeNoFacet;
    }
    if (f0 == LM_NONE || f1 == LM_NONE) {
        Store(curvature, kOneFacetCurvature);
        return kEdgeOneFacet;
    }
    float n0[3], n1[3];
    if (!ReadUnitNormal(mesh, f0, n0) || !ReadUnitNormal(mesh, f1, n1)) {
        Store(curvature, kNoFacetCurvature);  // facet link past the store: as no facet
        return kEdgeNoFacet;
    }
    Store(curvature, AngleDegrees(n0, n1));
    return kEdgeDone;
}

template <class Out>
short VertexCurvature(const L_LUMOMESH& mesh, uint32_t vertex, Out* curvature)
{
    Store(curvature, 0.0);
    float at[3];
    if (!ReadPosition(mesh, vertex, at)) return kVertexNoEdges;  // id past the store: no edges
    BaseList<uint32_t> edges(16, 128);
    // A failed walk (-1) is taken as closed, like a whole fan.
    const bool open = LMeshGetEdgesAroundVertex(mesh, vertex, edges) == kOpenFan;
    if (edges.count == 0) return kVertexNoEdges;
    std::vector<Direction> directions;
    directions.reserve(edges.count);
    CollectDirections(mesh, vertex, at, edges, directions);
    Out sum = 0;
    // Only a closed fan has a facet between its last edge and its first.
    if (!open && !directions.empty()) sum += static_cast<Out>(AngleDegrees(directions.front().v, directions.back().v));
    for (size_t i = 1; i < directions.size(); ++i)
        sum += static_cast<Out>(AngleDegrees(directions[i - 1].v, directions[i].v));
    Store(curvature, sum);
    return kVertexDone;
}

}  // namespace

// The angle between the unit normals of the edge's two facets, in degrees, written to
// `curvature`; result 0. A boundary edge writes -1.0 and returns 1; an edge with no
// facet, or an id past its store, writes -1000.0 and returns -1.
short LMeshComputeEdgeMeanCurvature(const L_LUMOMESH& mesh, const uint32_t& edge, double* curvature)
{
    return EdgeCurvature(mesh, edge, curvature);
}

short LMeshComputeEdgeMeanCurvature(const L_LUMOMESH& mesh, const uint32_t& edge, float* curvature)
{
    return EdgeCurvature(mesh, edge, curvature);
}

// The sum of the angles between consecutive edges around the vertex, in degrees, in
// fan order; a closed fan adds the angle between its last and first edge too. A
// zero-length edge counts 90 degrees per angle. Result 0, or 1 with 0.0 written when
// the walk lists no edge (or for an id past the vertex store).
short LMeshComputeVertexCurvature(const L_LUMOMESH& mesh, const uint32_t& vertex, double* curvature)
{
    return VertexCurvature(mesh, vertex, curvature);
}

short LMeshComputeVertexCurvature(const L_LUMOMESH& mesh, const uint32_t& vertex, float* curvature)
{
    return VertexCurvature(mesh, vertex, curvature);
}
