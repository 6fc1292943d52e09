#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

#include "LMesh.h"
#include "LMeshPlane.h"
#include "TestMeshes.h"

namespace {

// f(p) = 2 z - 1: the plane z = 0.5, positive above.
const PlaneEquation kHalfHeight = {0.0, 0.0, 2.0, -1.0};

L_LUMOMESH BoxedCube()
{
    L_LUMOMESH cube = testmesh::MakeCube();
    LMeshComputeAbsoluteBoundingBox(cube);
    return cube;
}

L_PLANE Horizontal(double z, double normalZ) { return {{0.3, 0.4, z}, {0.0, 0.0, normalZ}}; }

int Split(const L_POINT (&triangle)[3], double tolerance, PlanePolygon& positive, PlanePolygon& negative)
{
    return SplitTriangleByPlane(kHalfHeight, triangle, tolerance, positive, negative);
}

bool Holds(const PlanePolygon& polygon, const L_POINT& p)
{
    const auto same = [&p](const L_POINT& q) { return q.x == p.x && q.y == p.y && q.z == p.z; };
    return std::any_of(polygon.points, polygon.points + polygon.count, same);
}

// Lowest and highest centroid height over the live facets.
void CentroidHeights(const L_LUMOMESH& mesh, float& low, float& high)
{
    low = INFINITY, high = -INFINITY;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!(mesh.facets.Peek(f)->flags & LM_LIVE)) continue;
        float c[3];
        ComputeFacetCentroid(mesh, f, c);
        low = std::fmin(low, c[2]), high = std::fmax(high, c[2]);
    }
}

uint32_t BorderEdges(const L_LUMOMESH& mesh)
{
    uint32_t border = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if ((edge.flags & LM_LIVE) && (edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE)) ++border;
    }
    return border;
}

}  // namespace

TEST(PlaneCut, SplitTriangleSortsCornersWithTheToleranceAndSplitsExactly)
{
    PlanePolygon positive, negative;
    const L_POINT onPlane = {0, 0, 0.5};
    // A corner on the plane, the others on opposite sides: two triangles sharing that
    // corner and one crossing point.
    ASSERT_EQ(Split({onPlane, {1, 0, 0}, {0, 1, 1}}, 0.0, positive, negative), 2);
    ASSERT_EQ(positive.count, 3);
    ASSERT_EQ(negative.count, 3);
    EXPECT_TRUE(Holds(positive, onPlane) && Holds(negative, onPlane));
    EXPECT_TRUE(Holds(positive, {0.5, 0.5, 0.5}) && Holds(negative, {0.5, 0.5, 0.5}));

    // Touching from above: the touching corner counts as negative, so the split runs
    // and gives 3 and 1, which the imprint leaves whole; touching from below is all negative.
    EXPECT_EQ(Split({onPlane, {1, 0, 1}, {0, 1, 1}}, 0.0, positive, negative), 2);
    EXPECT_EQ(positive.count, 3);
    EXPECT_EQ(negative.count, 1);
    EXPECT_EQ(Split({onPlane, {1, 0, 0}, {0, 1, 0}}, 0.0, positive, negative), 1);
    EXPECT_EQ(negative.count, 3);

    // An edge in the plane: 3 and 2.
    EXPECT_EQ(Split({onPlane, {1, 0, 0.5}, {0, 1, 1}}, 0.0, positive, negative), 2);
    EXPECT_EQ(positive.count, 3);
    EXPECT_EQ(negative.count, 2);

    // All corners within the tolerance below (f = -0.02): positive and whole.
    EXPECT_EQ(Split({{0, 0, 0.49}, {1, 0, 0.49}, {0, 1, 0.49}}, 0.05, positive, negative), 0);
    EXPECT_EQ(positive.count, 3);
    EXPECT_EQ(negative.count, 0);
    // One corner lifted by the tolerance: the exact split finds every corner below.
    EXPECT_EQ(Split({{0, 0, 0.49}, {1, 0, 0.3}, {0, 1, 0.2}}, 0.05, positive, negative), 1);
    EXPECT_EQ(negative.count, 3);
}

TEST(PlaneCut, ImprintOnFacetsKillsCrossedFacetsAndAddsLooseTrianglesOfGroupZero)
{
    L_LUMOMESH cube = BoxedCube();
    for (uint32_t f = 0; f < 12; ++f) cube.facets.At(f)->groupId = 7;
    PlaneEquation equation;
    EXPECT_EQ(ImprintPlaneOnFacets(cube, Horizontal(0.5, 1.0), 0.0f, equation), 8);
    // Sized from the unit box: (a, b, c) is 33.75 long and points along the normal.
    EXPECT_EQ(equation.a, 0.0);
    EXPECT_EQ(equation.b, 0.0);
    EXPECT_DOUBLE_EQ(equation.c, 33.75);
    EXPECT_DOUBLE_EQ(equation.d, -33.75 * 0.5);
    // Each side facet becomes a triangle and a quadrilateral, three triangles on nine
    // new vertices; the dead facets still count and keep their edges.
    ASSERT_EQ(cube.facets.count, 12u + 24u);
    EXPECT_EQ(cube.facetCount, 36u);
    EXPECT_EQ(cube.vertices.count, 8u + 72u);
    for (uint32_t f = 0; f < cube.facets.count; ++f) {
        const LM_FACET& facet = *cube.facets.Peek(f);
        EXPECT_EQ(bool(facet.flags & LM_LIVE), f < 4 || f >= 12) << "facet " << f;
        EXPECT_EQ(+facet.groupId, f < 12 ? 7u : 0u) << "facet " << f;
    }
}

TEST(PlaneCut, ImprintRunsTheSectionAlongEdgesOfOneClosedMesh)
{
    L_LUMOMESH cube = BoxedCube();
    L_PLANE plane = Horizontal(0.5, 1.0);
    ASSERT_EQ(LMeshImprintPlane(cube, plane, nullptr, 0.0f), 0);
    testmesh::ExpectMeshConsistent(cube);
    EXPECT_EQ(cube.facetCount, 28u);
    EXPECT_EQ(cube.vertexCount, 16u);  // 4 upright edges and 4 diagonals crossed
    EXPECT_EQ(BorderEdges(cube), 0u);
    EXPECT_EQ(LMeshComputeArea(cube), 6.0f);
    EXPECT_FLOAT_EQ(LMeshComputeVolume(cube), 1.0f);
    uint32_t onPlane = 0;
    for (uint32_t v = 0; v < cube.vertices.count; ++v) {
        const float z = cube.vertices.Peek(v)->position[2];
        EXPECT_TRUE(z == 0.0f || z == 0.5f || z == 1.0f) << "vertex " << v;
        onPlane += z == 0.5f;
    }
    EXPECT_EQ(onPlane, 8u);
}

TEST(PlaneCut, CutGivesTheNegativeSideFirstAndTheSideTheNormalPointsToSecond)
{
    for (const double normalZ : {1.0, -3.0}) {
        L_LUMOMESH cube = BoxedCube(), first, second;
        L_PLANE plane = Horizontal(0.5, normalZ);
        ASSERT_EQ(LMeshCutByPlane(cube, plane, first, second, nullptr, 1e-4f, 0.0f), 0);
        EXPECT_EQ(cube.facetCount, 28u);  // the input keeps the imprint
        const L_LUMOMESH& below = normalZ > 0 ? first : second;
        const L_LUMOMESH& above = normalZ > 0 ? second : first;
        float low, high;
        CentroidHeights(below, low, high);
        EXPECT_LT(high, 0.5f);
        CentroidHeights(above, low, high);
        EXPECT_GT(low, 0.5f);
        for (const L_LUMOMESH* half : {&first, &second}) {
            testmesh::ExpectMeshConsistent(*half);
            EXPECT_EQ(half->facetCount, 14u);
            EXPECT_EQ(LMeshComputeArea(*half), 3.0f);
            EXPECT_EQ(BorderEdges(*half), 8u);  // the open rim
        }
        EXPECT_EQ(below.bboxMax[2], 0.5f);
        EXPECT_EQ(above.bboxMin[2], 0.5f);
    }
}

TEST(PlaneCut, CutLeavesFacetsInThePlaneOutAndMayGiveAnEmptyHalf)
{
    L_LUMOMESH cube = BoxedCube(), first, second;
    L_PLANE bottom = Horizontal(0.0, 1.0);
    ASSERT_EQ(LMeshCutByPlane(cube, bottom, first, second, nullptr, 1e-4f, 0.0f), 0);
    EXPECT_EQ(first.facetCount, 0u);
    EXPECT_EQ(second.facetCount, 10u);  // the two bottom facets went to neither

    cube = BoxedCube();
    L_PLANE above = Horizontal(2.0, 1.0);
    ASSERT_EQ(LMeshCutByPlane(cube, above, first, second, nullptr, 1e-4f, 0.0f), 0);
    EXPECT_EQ(first.facetCount, 12u);
    EXPECT_EQ(second.facetCount, 0u);

    // A zero normal has no side: refused, the mesh and both outputs as they were.
    L_PLANE flat = Horizontal(0.5, 0.0);
    second = testmesh::MakeTetrahedron();
    EXPECT_EQ(LMeshCutByPlane(cube, flat, first, second, nullptr, 1e-4f, 0.0f), -2);
    EXPECT_EQ(cube.facetCount, 12u);
    EXPECT_EQ(first.facetCount, 12u);
    EXPECT_EQ(second.facetCount, 4u);
}

TEST(PlaneCut, RealPartCutThroughItsMiddleKeepsItsArea)
{
    const std::string path = "../shared/data/meshes/plate_holes_binary.stl";
    if (!std::ifstream(path)) GTEST_SKIP() << "mesh corpus not found: " << path;
    L_LUMOMESH part, first, second;
    ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &part));
    LMeshComputeAbsoluteBoundingBox(part);
    const float area = LMeshComputeArea(part);
    L_PLANE plane = {{(part.bboxMin[0] + part.bboxMax[0]) * 0.5, (part.bboxMin[1] + part.bboxMax[1]) * 0.5,
                      (part.bboxMin[2] + part.bboxMax[2]) * 0.5},
                     {0.31, -0.17, 0.93}};
    ASSERT_EQ(LMeshCutByPlane(part, plane, first, second, nullptr, 1e-4f, 0.0f), 0);
    testmesh::ExpectMeshConsistent(part);
    EXPECT_EQ(BorderEdges(part), 0u);  // the imprinted part is still closed
    EXPECT_GT(first.facetCount, 0u);
    EXPECT_GT(second.facetCount, 0u);
    EXPECT_EQ(first.facetCount + second.facetCount, part.facetCount);
    // Float sums over some thousand facets of differing sizes.
    EXPECT_NEAR(LMeshComputeArea(first) + LMeshComputeArea(second), area, area * 1e-5);
}
