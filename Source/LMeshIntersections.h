// The triangle-triangle test that the intersection repairs share: whether two facets
// meet, whether they lie in one plane, and the segment along which they cross.
#pragma once

#include "LMesh.h"

struct TriangleCrossing {
    bool intersect = false;  // the triangles share a point (or overlap, when coplanar)
    bool coplanar = false;   // every corner of one lies within the plane tolerance of the other's plane
    L_POINT start{}, end{};  // the common segment; set only for a non-coplanar intersection
};

// Computed in double on the float corners. A corner counts as lying in the other
// triangle's plane when its distance from it is at most planeTolerance, a length: so
// nearly coplanar pairs are judged coplanar instead of giving a segment made of
// rounding. The segment runs along the line where the two planes meet, over the part
// that lies in both triangles. A triangle with no area meets nothing, and neither
// does a non-finite corner.
TriangleCrossing CrossTriangles(const float a0[3], const float a1[3], const float a2[3], const float b0[3],
                                const float b1[3], const float b2[3], double planeTolerance);

// The plane tolerance for a mesh: a few float roundings of its largest coordinate.
double PlaneToleranceOf(const L_LUMOMESH& mesh);
