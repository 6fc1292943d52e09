// Offset: every candidate vertex moves along a direction averaged over the planes
// around it, so that the surface grows (or shrinks) with its topology unchanged.
//
// Directions are read from the mesh as given and the moves written to a copy, so no
// vertex's direction depends on another's move; the copy replaces the mesh at the end.
// Self-intersections the moves cause are left for the cleanup after offset.
#include "LMesh.h"

#include <cmath>
#include <unordered_set>
#include <vector>

namespace {

struct Direction {
    float v[3];
};

float Dot(const float a[3], const float b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// The stored normal of a facet, or nothing for a link past the store (a missing
// facet adds nothing to a bisector).
Direction NormalOf(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return {{0.0f, 0.0f, 0.0f}};
    return {{record->normal[0], record->normal[1], record->normal[2]}};
}

Direction Normalized(Direction d)
{
    NormalizeVector(d.v);
    return d;
}

// Half the sum of two directions, normalised: the bisector of two unit normals.
Direction Bisector(const Direction& a, const Direction& b)
{
    return Normalized({{(a.v[0] + b.v[0]) * 0.5f, (a.v[1] + b.v[1]) * 0.5f, (a.v[2] + b.v[2]) * 0.5f}});
}

// The cross product's length, its root taken in double.
float CrossLength(const Direction& a, const Direction& b)
{
    const float x = a.v[1] * b.v[2] - a.v[2] * b.v[1], y = a.v[2] * b.v[0] - a.v[0] * b.v[2],
                z = a.v[0] * b.v[1] - a.v[1] * b.v[0];
    return float(std::sqrt(double(x * x + y * y + z * z)));
}

// Edges whose facets' normals meet within the tolerance of 90 degrees give their
// bisectors. Without one, each run of parallel neighbours in fan order gives one
// entry, so the mean counts planes rather than facets.
std::vector<Direction> PlaneDirections(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets,
                                       const BaseList<uint32_t>& edges, float rightAngleTolerance)
{
    constexpr float kParallel = 1e-5f;
    std::vector<Direction> directions;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t id = *edges.Peek(i);
        float angle = 0.0f;
        LMeshComputeEdgeMeanCurvature(mesh, id, &angle);  // -1 or -1000 stand as read
        if (!(std::fabs(angle - 90.0f) < rightAngleTolerance)) continue;
        const LM_EDGE* edge = mesh.edges.Peek(id);
        if (!edge) continue;  // id past the edge store: no facets to bisect
        directions.push_back(Bisector(NormalOf(mesh, edge->facet[0]), NormalOf(mesh, edge->facet[1])));
    }
    if (!directions.empty()) return directions;

    Direction previous = NormalOf(mesh, *facets.Peek(0));
    directions.push_back(Normalized(previous));
    for (uint32_t i = 1; i < facets.count; ++i) {
        const Direction normal = NormalOf(mesh, *facets.Peek(i));
        if (CrossLength(normal, previous) >= kParallel) {
            directions.push_back(Normalized(normal));
        } else {
            directions.back() = Bisector(directions.back(), normal);
        }
        previous = normal;
    }
    return directions;
}

// The move of one vertex: along the mean direction, lengthened so that the plane of
// the first direction moves by the distance, within the stretch limit.
void MoveVertex(const L_LUMOMESH& mesh, uint32_t vertex, float distance, float rightAngleTolerance,
                float maxStretchPercent, float position[3])
{
    BaseList<uint32_t> facets, edges;
    if (LMeshGetFacetsAndEdgesAroundVertex(mesh, vertex, facets, edges) < 0) return;
    if (facets.count == 0 || edges.count == 0) return;
    const std::vector<Direction> directions = PlaneDirections(mesh, facets, edges, rightAngleTolerance);
    Direction mean = {{0.0f, 0.0f, 0.0f}};
    for (const Direction& d : directions)
        for (int k = 0; k < 3; ++k) mean.v[k] += d.v[k];
    for (float& c : mean.v) c /= float(directions.size());
    mean = Normalized(mean);

    float c = std::fmax(-1.0f, std::fmin(1.0f, Dot(mean.v, directions.front().v)));
    if (c < 0.1f) c = 1.0f;  // nearly perpendicular or opposed: a plain move
    float s = distance / c;
    const float stretch = 100.0f - (distance / s) * 100.0f;
    if (stretch > maxStretchPercent) s = distance / ((100.0f - maxStretchPercent) / 100.0f);
    for (int k = 0; k < 3; ++k) position[k] += mean.v[k] * s;
}

// The corners of the listed live facets, each once, in first-seen order.
std::vector<uint32_t> CornersOf(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets)
{
    std::vector<uint32_t> corners;
    std::unordered_set<uint32_t> seen;
    for (uint32_t i = 0; i < facets.count; ++i) {
        const LM_FACET* facet = mesh.facets.Peek(*facets.Peek(i));
        if (!facet || !(facet->flags & LM_LIVE)) continue;
        for (int k = 0; k < 3; ++k) {
            const uint32_t vertex = facet->vertex[k];  // by value: the record is packed
            if (seen.insert(vertex).second) corners.push_back(vertex);
        }
    }
    return corners;
}

}  // namespace

short LMeshOffset(L_LUMOMESH& mesh, float offsetDistance, float rightAngleTolerance, float maxStretchPercent,
                  const BaseList<uint32_t>* facets)
{
    L_LUMOMESH moved = mesh;
    std::vector<uint32_t> candidates;
    if (facets) {
        candidates = CornersOf(mesh, *facets);
    } else {
        // Ids below the live vertex count, as documented: with dead slots the last
        // slots are not reached.
        for (uint32_t v = 0; v < mesh.vertexCount; ++v) candidates.push_back(v);
    }
    for (uint32_t v : candidates) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        if (!vertex || !(vertex->flags & LM_LIVE)) continue;
        float position[3] = {vertex->position[0], vertex->position[1], vertex->position[2]};
        MoveVertex(mesh, v, offsetDistance, rightAngleTolerance, maxStretchPercent, position);
        LM_VERTEX* target = moved.vertices.At(v);
        for (int k = 0; k < 3; ++k) target->position[k] = position[k];
    }
    mesh = std::move(moved);
    LMeshRecomputeNormals(mesh);
    return 0;
}
