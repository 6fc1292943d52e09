// Small geometry on facets and the two operations that move a whole mesh.
//
// The facet helpers follow the mesh's float/double recipe: coordinates are float,
// and a root or an area is taken in double on values widened from float, so that
// results are the same on every machine. The segment test builds the facet's plane,
// meets the segment with it (intersect_SPl) and keeps the point only if it lies in
// the triangle. A rigid or affine transform rebuilds the stored box as it goes,
// since it visits every vertex anyway; a mirroring one swaps two corners of every
// facet so that the winding keeps facing out.
#include "LMesh.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace {

// Copies the position of vertex v, or returns false for an id past the store (a
// broken facet must not make us read outside it).
bool FetchPosition(const L_LUMOMESH& mesh, uint32_t v, float* p)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    if (!vertex) return false;
    for (int k = 0; k < 3; ++k) p[k] = vertex->position[k];
    return true;
}

bool FetchCorners(const L_LUMOMESH& mesh, const LM_FACET& facet, float corners[3][3])
{
    for (int c = 0; c < 3; ++c)
        if (!FetchPosition(mesh, facet.vertex[c], corners[c])) return false;
    return true;
}

L_POINT Widened(const float* p) { return {p[0], p[1], p[2]}; }

L_VECTOR Between(const L_POINT& from, const L_POINT& to) { return {to.x - from.x, to.y - from.y, to.z - from.z}; }

L_VECTOR Cross(const L_VECTOR& a, const L_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

double Length(const L_VECTOR& v) { return std::sqrt(Dot(v, v)); }

// The distance (times |n|) by which p lies on the inner side of the side from u to
// w, seen along n. Negative outside.
double InnerSideMeasure(const L_POINT& p, const L_POINT& u, const L_POINT& w, const L_VECTOR& n)
{
    return Dot(Cross(Between(u, w), Between(u, p)), n);
}

// The vertex ids of the listed facets, each once and ascending, so that a vertex
// shared by several listed facets moves once.
std::vector<uint32_t> CollectListedCorners(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets)
{
    std::vector<uint32_t> corners;
    corners.reserve(size_t(facets.count) * 3);
    for (uint32_t i = 0; i < facets.count; ++i) {
        const LM_FACET* facet = mesh.facets.Peek(*facets.Peek(i));
        if (!facet) continue;  // facet id past the store: skipped
        for (int c = 0; c < 3; ++c) corners.push_back(uint32_t(facet->vertex[c]));  // a copy: packed field
    }
    std::sort(corners.begin(), corners.end());
    corners.erase(std::unique(corners.begin(), corners.end()), corners.end());
    return corners;
}

void MoveVertex(L_LUMOMESH& mesh, uint32_t v, const float* vector)
{
    if (v >= mesh.vertices.count) return;  // corner id past the store: nothing to move
    LM_VERTEX* vertex = mesh.vertices.At(v);
    for (int k = 0; k < 3; ++k) vertex->position[k] += vector[k];
}

void TransformVertices(L_LUMOMESH& mesh, const L_MATRIX& matrix)
{
    for (int k = 0; k < 3; ++k) {
        mesh.bboxMin[k] = FLT_MAX;
        mesh.bboxMax[k] = -FLT_MAX;
    }
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        LM_VERTEX* vertex = mesh.vertices.At(v);
        L_POINT3f p = {vertex->position[0], vertex->position[1], vertex->position[2]};
        mat_transform_pointf(&p, &matrix, &p);
        const float moved[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k) {
            vertex->position[k] = moved[k];
            if (moved[k] < mesh.bboxMin[k]) mesh.bboxMin[k] = moved[k];
            if (moved[k] > mesh.bboxMax[k]) mesh.bboxMax[k] = moved[k];
        }
    }
}

void TransformFacets(L_LUMOMESH& mesh, const L_MATRIX& matrix, bool mirrors)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        LM_FACET* facet = mesh.facets.At(f);
        L_VECTOR n = {facet->normal[0], facet->normal[1], facet->normal[2]};
        mat_transform_vector(&n, &matrix, &n);
        facet->normal[0] = float(n.x);
        facet->normal[1] = float(n.y);
        facet->normal[2] = float(n.z);
        if (mirrors) {
            // edge[] is left as it was, as after a facet reversal.
            const uint32_t first = facet->vertex[0];
            facet->vertex[0] = facet->vertex[1];
            facet->vertex[1] = first;
        }
    }
}

}  // namespace

void ComputeFacetCentroid(const L_LUMOMESH& mesh, uint32_t facet, float* centroid)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    float corners[3][3];
    if (!record || !FetchCorners(mesh, *record, corners)) return;  // bad id: centroid left as it was
    for (int k = 0; k < 3; ++k) centroid[k] = (corners[0][k] + corners[1][k] + corners[2][k]) / 3.0f;
}

void ComputeFacetBounds(const L_LUMOMESH& mesh, const LM_FACET& facet, L_BOUNDS& bounds)
{
    for (int k = 0; k < 3; ++k) {
        bounds.min[k] = DBL_MAX;
        bounds.max[k] = -DBL_MAX;
    }
    float corners[3][3];
    if (!FetchCorners(mesh, facet, corners)) return;  // corner past the store: an empty box
    for (int c = 0; c < 3; ++c) {
        for (int k = 0; k < 3; ++k) {
            const double value = corners[c][k];
            if (value < bounds.min[k]) bounds.min[k] = value;
            if (value > bounds.max[k]) bounds.max[k] = value;
        }
    }
}

int NormalizeVector(float* v)
{
    const float squared = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
    const float length = float(std::sqrt(double(squared)));
    if (double(length) < 1e-11) {
        v[0] = v[1] = v[2] = 0.0f;
        return -1;
    }
    for (int k = 0; k < 3; ++k) v[k] /= length;
    return 0;
}

// Computed in double on the float differences. A determinant of exactly zero is
// never used, even with a tolerance of 0, as its ratios would be NaN and pass.
bool PointInTriangleBarycentric(const float* p, const float* a, const float* b, const float* c, float tolerance)
{
    double e0[3], e1[3], e2[3];  // c - a, b - a, p - a
    for (int k = 0; k < 3; ++k) {
        e0[k] = double(c[k]) - double(a[k]);
        e1[k] = double(b[k]) - double(a[k]);
        e2[k] = double(p[k]) - double(a[k]);
    }
    // Coordinate planes in the order xy, yz, xz, as pairs of axes.
    static const int kPlanes[3][2] = {{0, 1}, {1, 2}, {0, 2}};
    for (const auto& plane : kPlanes) {
        const int i = plane[0], j = plane[1];
        const double d = e0[i] * e1[j] - e0[j] * e1[i];
        if (std::fabs(d) < double(tolerance) || d == 0.0) continue;
        const double u = (e2[i] * e1[j] - e2[j] * e1[i]) / d;  // share of c - a
        const double v = (e0[i] * e2[j] - e0[j] * e2[i]) / d;  // share of b - a
        return !(u < 0.0 || v < 0.0 || u + v > 1.0);
    }
    return false;
}

// Judged in the triangle's plane: the point counts as inside when its projection
// lies no further than zefatoll.length outside any side, so points on a side or a
// corner (as a crossing computed on the facet's plane lands) are inside. Its height
// above the plane is not tested. A triangle with no area contains nothing.
bool LMeshPointInsideTriangle(const L_POINT& point, const L_POINT& a, const L_POINT& b, const L_POINT& c)
{
    const L_VECTOR n = Cross(Between(a, b), Between(a, c));
    const double area2 = Length(n);
    if (!(area2 > zefatoll.zero)) return false;
    const L_POINT* corners[3] = {&a, &b, &c};
    for (int k = 0; k < 3; ++k) {
        const L_POINT& u = *corners[k];
        const L_POINT& w = *corners[(k + 1) % 3];
        const double slack = zefatoll.length * area2 * Length(Between(u, w));
        if (!(InnerSideMeasure(point, u, w, n) >= -slack)) return false;
    }
    return true;
}

// A segment lying in the facet's plane has no single crossing and reports false.
bool LMeshIntersectSegmFacet(const L_LUMOMESH& mesh, const L_SEGM& segment, uint32_t facet, L_POINT3f* point)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    float corners[3][3];
    if (!record || !FetchCorners(mesh, *record, corners)) return false;  // bad id: no crossing
    const L_POINT p0 = Widened(corners[0]), p1 = Widened(corners[1]), p2 = Widened(corners[2]);
    const L_VECTOR side1 = Between(p0, p1), side2 = Between(p0, p2);
    L_PLANE plane = {p0, {0.0, 0.0, 0.0}};
    if (naXb(&side1, &side2, &plane.normal) != 0) return false;
    L_POINT crossing;
    if (intersect_SPl(segment, plane, &crossing) != 1) return false;
    if (!LMeshPointInsideTriangle(crossing, p0, p1, p2)) return false;
    if (point) *point = {float(crossing.x), float(crossing.y), float(crossing.z)};
    return true;
}

short LMeshTranslate(L_LUMOMESH& mesh, const float* vector, const BaseList<uint32_t>* facets)
{
    if (!vector) return 0;
    if (!facets) {
        for (uint32_t v = 0; v < mesh.vertices.count; ++v) MoveVertex(mesh, v, vector);
        return 0;
    }
    for (uint32_t v : CollectListedCorners(mesh, *facets)) MoveVertex(mesh, v, vector);
    return 0;
}

bool LMeshTransform(L_LUMOMESH& mesh, L_MATRIX& matrix, bool* mirrored)
{
    const double determinant = mat_determinant(&matrix);
    if (mesh.vertexSlots == 0 || mesh.facetSlots == 0) return false;
    const bool mirrors = determinant < 0.0;
    TransformVertices(mesh, matrix);
    TransformFacets(mesh, matrix, mirrors);
    if (mirrored) *mirrored = mirrors;
    return true;
}
