// Imprint and cut: make a mesh conform to a plane, then optionally divide it there.
//
// Each facet the plane passes through is clipped against it, polygon fashion (one
// pass over the corners, as in Sutherland-Hodgman clipping), into a triangle and a
// quadrilateral, or two triangles when a corner lies on the plane. The old facet only
// dies and the pieces are added as loose triangles; the mesh is then rebuilt from its
// live facets with a small merge distance, which joins the pieces, shares the edges
// along the section and leaves every entity renumbered. A cut sorts the rebuilt
// facets by the side their centroid lies on and welds each half's border edges.
#include "LMeshPlane.h"

#include <cmath>

namespace {

// The rebuild merges corners this close: the crossing points on either side of a
// crossed edge differ only by rounding.
constexpr float kRebuildMergeDistance = 0.001f;

void AddPoint(PlanePolygon& polygon, const L_POINT& p)
{
    if (polygon.count < kPolygonCapacity) polygon.points[polygon.count++] = p;
}

// Where the edge from v to u meets the plane, given f(v) and f(u) of opposite signs.
L_POINT Crossing(const PlaneEquation& equation, const L_POINT& v, const L_POINT& u, double fv)
{
    const double dx = u.x - v.x, dy = u.y - v.y, dz = u.z - v.z;
    const double t = -fv / (equation.a * dx + equation.b * dy + equation.c * dz);
    return {v.x + t * dx, v.y + t * dy, v.z + t * dz};
}

void AddCrossing(const L_POINT& crossing, PlanePolygon& positive, PlanePolygon& negative, PlanePolygon& crossings)
{
    AddPoint(positive, crossing);
    AddPoint(negative, crossing);
    AddPoint(crossings, crossing);
}

void CopyTriangle(const L_POINT triangle[3], PlanePolygon& polygon)
{
    polygon.count = 3;
    for (int k = 0; k < 3; ++k) polygon.points[k] = triangle[k];
}

bool ReadCorners(const L_LUMOMESH& mesh, const LM_FACET& facet, L_POINT corners[3])
{
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[k]);
        if (!vertex) return false;
        corners[k] = {vertex->position[0], vertex->position[1], vertex->position[2]};
    }
    return true;
}

// Appends the pieces as whole triangles, or nothing; false when nothing was added.
bool AppendTriangles(SplitList& list, const SplitTriangle* triangles, uint32_t n)
{
    const uint32_t first = list.count;
    if (!list.At(first + n - 1)) return false;  // out of memory: the facet stays whole
    for (uint32_t i = 0; i < n; ++i) *list.At(first + i) = triangles[i];
    return true;
}

SplitTriangle TriangleOf(const PlanePolygon& polygon, int i, int j, int k)
{
    return {{polygon.points[i], polygon.points[j], polygon.points[k]}};
}

// Triangulates the two pieces of a split facet into the list. Only a triangle with a
// triangle or a quadrilateral is taken; the quadrilateral's diagonal always starts at
// its first corner. Other shapes come from a facet that only touches the plane.
bool AppendPieces(const PlanePolygon& positive, const PlanePolygon& negative, SplitList& list)
{
    if (positive.count == 3 && negative.count == 3) {
        const SplitTriangle pieces[2] = {TriangleOf(positive, 0, 1, 2), TriangleOf(negative, 0, 1, 2)};
        return AppendTriangles(list, pieces, 2);
    }
    const bool positiveIsTriangle = positive.count == 3 && negative.count == 4;
    if (!positiveIsTriangle && !(positive.count == 4 && negative.count == 3)) return false;
    const PlanePolygon& triangle = positiveIsTriangle ? positive : negative;
    const PlanePolygon& quad = positiveIsTriangle ? negative : positive;
    const SplitTriangle pieces[3] = {TriangleOf(triangle, 0, 1, 2), TriangleOf(quad, 0, 1, 2),
                                     TriangleOf(quad, 0, 2, 3)};
    return AppendTriangles(list, pieces, 3);
}

void Narrow(const L_POINT& p, float out[3])
{
    out[0] = float(p.x);
    out[1] = float(p.y);
    out[2] = float(p.z);
}

// Rebuilds the mesh from its live facets as a soup merged within the rebuild distance.
// -2 when the soup cannot be held; the mesh then keeps its imprinted facets.
short RebuildFromLiveFacets(L_LUMOMESH& mesh)
{
    LMeshRecomputeNormals(mesh);
    if (mesh.facets.count > UINT32_MAX / 9) return -2;  // the soup could not be addressed
    TObjArray<float> soup;
    try {
        soup.SetSize(9 * mesh.facets.count);
    } catch (int) {
        return -2;  // out of memory: nothing rebuilt
    }
    int liveCount = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        L_POINT corners[3];
        if (!(facet.flags & LM_LIVE) || !ReadCorners(mesh, facet, corners)) continue;  // bad corner: left out
        for (int k = 0; k < 3; ++k) Narrow(corners[k], soup.data + 9 * size_t(liveCount) + 3 * k);
        ++liveCount;
    }
    mesh.Reset();
    if (LMeshReadVertexListIntoLumoMesh(soup.data, liveCount, mesh, kRebuildMergeDistance, 0) != 0) return -2;
    return 0;
}

// Imprints the plane and rebuilds; -2 for a plane without a side or a failed rebuild.
short ImprintAndRebuild(L_LUMOMESH& mesh, const L_PLANE& plane, float splitTolerance, PlaneEquation& equation)
{
    if (ImprintPlaneOnFacets(mesh, plane, splitTolerance, equation) < 0) return -2;
    return RebuildFromLiveFacets(mesh);
}

// Keeps one side of a copy of the rebuilt mesh, welds what the deletion left open
// and refreshes the box.
void KeepSide(L_LUMOMESH& half, const PlaneEquation& equation, int deletedSign, float edgeTolerance)
{
    DeleteFacetsOnPlaneSide(half, equation, deletedSign);
    LMeshOptimizeEdges(half, edgeTolerance, nullptr, nullptr, nullptr, 1);
    LMeshComputeAbsoluteBoundingBox(half);
}

}  // namespace

void SplitPolygonByPlane(const PlanePolygon& polygon, const PlaneEquation& equation, PlanePolygon& positive,
                         PlanePolygon& negative, PlanePolygon& crossings)
{
    positive.count = negative.count = crossings.count = 0;
    if (polygon.count <= 0) return;
    const int n = polygon.count < kPolygonCapacity ? polygon.count : kPolygonCapacity;
    const L_POINT* u = &polygon.points[n - 1];
    double r = equation.At(*u);
    for (int i = 0; i < n; ++i) {
        const L_POINT& v = polygon.points[i];
        const double s = equation.At(v);
        if (s > 0.0) {
            if (r < 0.0) AddCrossing(Crossing(equation, v, *u, s), positive, negative, crossings);
            AddPoint(positive, v);
        } else if (s == 0.0) {
            AddPoint(positive, v);
            AddPoint(negative, v);
        } else if (s < 0.0) {
            if (r > 0.0) AddCrossing(Crossing(equation, v, *u, s), positive, negative, crossings);
            AddPoint(negative, v);
        }
        u = &v;
        r = s;
    }
}

int SplitTriangleByPlane(const PlaneEquation& equation, const L_POINT triangle[3], double tolerance,
                         PlanePolygon& positive, PlanePolygon& negative)
{
    positive.count = negative.count = 0;
    int positiveCorners = 0;
    for (int k = 0; k < 3; ++k) positiveCorners += equation.At(triangle[k]) + tolerance > 0.0;
    if (positiveCorners == 3) {
        CopyTriangle(triangle, positive);
        return 0;
    }
    if (positiveCorners == 0) {
        CopyTriangle(triangle, negative);
        return 1;
    }
    PlanePolygon whole, crossings;
    CopyTriangle(triangle, whole);
    SplitPolygonByPlane(whole, equation, positive, negative, crossings);
    if ((positive.count > 0) == (negative.count > 0)) return 2;
    return positive.count > 0 ? 0 : 1;
}

int ImprintPlaneOnFacets(L_LUMOMESH& mesh, const L_PLANE& plane, float splitTolerance, PlaneEquation& equation)
{
    PlaneTriangle t;
    if (!BuildPlaneTriangle(mesh.bboxMin, mesh.bboxMax, plane, t)) return -1;
    const double ux = t.p2.x - t.p1.x, uy = t.p2.y - t.p1.y, uz = t.p2.z - t.p1.z;
    const double vx = t.p3.x - t.p1.x, vy = t.p3.y - t.p1.y, vz = t.p3.z - t.p1.z;
    equation.a = uy * vz - uz * vy;
    equation.b = uz * vx - ux * vz;
    equation.c = ux * vy - uy * vx;
    equation.d = -(equation.a * t.p1.x + equation.b * t.p1.y + equation.c * t.p1.z);

    SplitList pieces;
    PlanePolygon positive, negative;
    int splitCount = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        LM_FACET& facet = *mesh.facets.At(f);
        L_POINT corners[3];
        if (!(facet.flags & LM_LIVE) || !ReadCorners(mesh, facet, corners)) continue;  // bad corner: left whole
        if (SplitTriangleByPlane(equation, corners, double(splitTolerance), positive, negative) < 2) continue;
        if (!AppendPieces(positive, negative, pieces)) continue;
        facet.flags &= uint8_t(~LM_LIVE);
        ++splitCount;
    }
    if (splitCount > 0) AddTriangleList(mesh, pieces);
    return splitCount;
}

void AddTriangleList(L_LUMOMESH& mesh, const SplitList& triangles)
{
    for (uint32_t i = 0; i < triangles.count; ++i) {
        const SplitTriangle& triangle = *triangles.Peek(i);
        float corners[3][3];
        for (int k = 0; k < 3; ++k) Narrow(triangle.corner[k], corners[k]);
        LMeshAddTriangle(mesh, corners[0], corners[1], corners[2], 0);
    }
}

void DeleteFacetsOnPlaneSide(L_LUMOMESH& mesh, const PlaneEquation& equation, int sign)
{
    BaseList<uint32_t> doomed;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        float centroid[3] = {NAN, NAN, NAN};  // a facet with a bad corner keeps NaN and stays
        ComputeFacetCentroid(mesh, f, centroid);
        const L_POINT c = {centroid[0], centroid[1], centroid[2]};
        if (!(sign * equation.At(c) >= 0.0)) continue;
        AppendTo(doomed, f);  // out of memory: the facet stays
    }
    LMeshDeleteFacets(mesh, doomed);
}

short LMeshImprintPlane(L_LUMOMESH& mesh, L_PLANE& plane, const wchar_t* /*path*/, float splitTolerance)
{
    PlaneEquation equation;
    return ImprintAndRebuild(mesh, plane, splitTolerance, equation);
}

short LMeshCutByPlane(L_LUMOMESH& mesh, L_PLANE& plane, L_LUMOMESH& first, L_LUMOMESH& second,
                      const wchar_t* /*path*/, float edgeTolerance, float splitTolerance)
{
    PlaneEquation equation;
    const short status = ImprintAndRebuild(mesh, plane, splitTolerance, equation);
    if (status != 0) return status;
    second = mesh;
    first = second;
    KeepSide(first, equation, +1, edgeTolerance);
    KeepSide(second, equation, -1, edgeTolerance);
    return 0;
}
