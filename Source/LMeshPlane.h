// The plane as the section, imprint and cut see it: one triangle far larger than the
// mesh, so that cutting against it reaches every facet the plane crosses, and the
// steps of imprint and cut, open to the tests.
#pragma once

#include <vector>

#include "LMesh.h"

struct PlaneTriangle {
    L_POINT p1, p2, p3;
};

// A triangle in the plane about the middle of the stored box, 3.75 times the box's
// largest extent to each side, so it covers every crossing while the box is right.
// False for a normal that cannot be normalised: such a plane has no side.
bool BuildPlaneTriangle(const float bboxMin[3], const float bboxMax[3], const L_PLANE& plane,
                        PlaneTriangle& triangle);

// Sections one mesh by many planes as LMeshPlaneSection does with chain 0 (the same
// elements in the same order), but visits only the blocks of consecutive facet ids
// whose box the plane may cross, so a cut costs about the facets near the plane where
// ids follow the surface. The mesh and its stored box must not change meanwhile.
class FacetBlockSection {
public:
    explicit FacetBlockSection(const L_LUMOMESH& mesh);
    bool Section(const L_PLANE& plane, List<L_ELEMENT>& elements) const;
    // The lines of the listed facets alone (ids past the store are passed over), each as
    // the whole section gives it, in list order.
    bool SectionOf(const L_PLANE& plane, const BaseList<uint32_t>& facets, List<L_ELEMENT>& elements) const;

private:
    const L_LUMOMESH& mesh_;
    std::vector<L_BOUNDSf> boxes_;  // block b holds ids b * kBlockSize up to the next block
};

// ---- Imprint and cut ---------------------------------------------------------------

// f(p) = a x + b y + c z + d with (a, b, c) = (p2 - p1) x (p3 - p1) of the plane
// triangle. Not normalised: (a, b, c) is 33.75 L^2 long (L the stored box's largest
// extent), so every tolerance compared with f is in those units. It points the way
// the plane's normal does, which makes that side the positive one.
struct PlaneEquation {
    double a, b, c, d;

    double At(const L_POINT& p) const { return a * p.x + b * p.y + c * p.z + d; }
};

constexpr int kPolygonCapacity = 256;

// A convex piece of a split facet, corners in the facet's winding.
struct PlanePolygon {
    int count;
    L_POINT points[kPolygonCapacity];
};

struct SplitTriangle {
    L_POINT corner[3];
};

// Replacement triangles, kept until every facet has been visited.
using SplitList = BaseList<SplitTriangle>;

// Splits every live facet the plane passes through into triangles that end on it:
// split facets only lose their live bit, and the replacements are added after the
// loop with group 0 on new, unshared vertices. Writes the plane equation. The number
// of facets split, or -1 (nothing done) for a plane without a side.
int ImprintPlaneOnFacets(L_LUMOMESH& mesh, const L_PLANE& plane, float splitTolerance, PlaneEquation& equation);

// Sorts the corners by f(p) + tolerance > 0, so a corner up to `tolerance` below the
// plane counts as above it; a triangle of mixed corners is split exactly (no
// tolerance). Overwrites both polygons. 0 all positive, 1 all negative, 2 split
// (also when the exact split leaves both pieces empty).
int SplitTriangleByPlane(const PlaneEquation& equation, const L_POINT triangle[3], double tolerance,
                         PlanePolygon& positive, PlanePolygon& negative);

// One pass over the polygon: corners exactly on the plane go to both pieces, and
// where an edge crosses it the crossing point goes to both and to `crossings`.
// Overwrites the three outputs; points past a polygon's capacity are dropped.
void SplitPolygonByPlane(const PlanePolygon& polygon, const PlaneEquation& equation, PlanePolygon& positive,
                         PlanePolygon& negative, PlanePolygon& crossings);

// Adds each triangle, narrowed to float, on three new vertices with group 0.
void AddTriangleList(L_LUMOMESH& mesh, const SplitList& triangles);

// Deletes every facet record whose float centroid has sign * f >= 0, so sign +1
// keeps what lies strictly on the negative side, -1 what lies strictly on the
// positive side, and a facet centred on the plane goes either way.
void DeleteFacetsOnPlaneSide(L_LUMOMESH& mesh, const PlaneEquation& equation, int sign);
