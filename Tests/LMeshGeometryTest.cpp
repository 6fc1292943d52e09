#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

using testmesh::MakeCube;
using testmesh::MakeTriangle;

const float kO[3] = {0, 0, 0}, kX[3] = {1, 0, 0}, kY[3] = {0, 1, 0};

void ExpectPosition(const L_LUMOMESH& mesh, uint32_t v, float x, float y, float z)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    EXPECT_EQ(+vertex->position[0], x) << "vertex " << v;
    EXPECT_EQ(+vertex->position[1], y) << "vertex " << v;
    EXPECT_EQ(+vertex->position[2], z) << "vertex " << v;
}

}  // namespace

TEST(GeometrySmall, HeronIsExactOnARightTriangleAndNaNOnANeedle)
{
    const float a[3] = {0, 0, 0}, b[3] = {3, 0, 0}, c[3] = {0, 4, 0};
    EXPECT_EQ(HeronTriangleArea(a, b, c), 6.0f);
    // Collinear on a diagonal: the side roots round so that the product is negative.
    const float n0[3] = {0, 0, 0}, n1[3] = {4, 4, 0}, n2[3] = {3, 3, 0};
    EXPECT_TRUE(std::isnan(HeronTriangleArea(n0, n1, n2)));
}

TEST(GeometrySmall, NormalizeVectorZeroesWhatIsTooShort)
{
    float v[3] = {3, 4, 0};
    EXPECT_EQ(NormalizeVector(v), 0);
    EXPECT_EQ(v[0], 0.6f);
    EXPECT_EQ(v[1], 0.8f);
    float tiny[3] = {1e-12f, 0, -1e-12f};
    EXPECT_EQ(NormalizeVector(tiny), -1);
    EXPECT_EQ(tiny[0], 0.0f);
    EXPECT_EQ(tiny[2], 0.0f);
}

TEST(GeometrySmall, FacetCentroidAndBounds)
{
    const L_LUMOMESH cube = MakeCube();
    float centroid[3] = {-1, -1, -1};
    ComputeFacetCentroid(cube, 2, centroid);  // top facet (4, 5, 6)
    EXPECT_EQ(centroid[0], 2.0f / 3.0f);
    EXPECT_EQ(centroid[1], 1.0f / 3.0f);
    EXPECT_EQ(centroid[2], 1.0f);
    ComputeFacetCentroid(cube, 99, centroid);
    EXPECT_EQ(centroid[2], 1.0f) << "a bad id leaves the output alone";

    L_BOUNDS bounds;
    ComputeFacetBounds(cube, *cube.facets.Peek(4), bounds);  // front facet (0, 1, 5)
    EXPECT_EQ(bounds.min[0], 0.0);
    EXPECT_EQ(bounds.max[0], 1.0);
    EXPECT_EQ(bounds.min[1], 0.0);
    EXPECT_EQ(bounds.max[1], 0.0);
    EXPECT_EQ(bounds.max[2], 1.0);
}

TEST(GeometrySmall, BarycentricTestPicksAPlaneThatIsNotDegenerate)
{
    const float inside[3] = {0.25f, 0.25f, 0}, outside[3] = {0.75f, 0.75f, 0}, onSide[3] = {0.5f, 0.5f, 0};
    EXPECT_TRUE(PointInTriangleBarycentric(inside, kO, kX, kY, 1e-6f));
    EXPECT_TRUE(PointInTriangleBarycentric(onSide, kO, kX, kY, 1e-6f));
    EXPECT_FALSE(PointInTriangleBarycentric(outside, kO, kX, kY, 1e-6f));
    // A triangle standing in the xz plane has a zero xy determinant, then a zero yz one.
    const float a[3] = {0, 0, 0}, b[3] = {2, 0, 0}, c[3] = {0, 0, 2}, p[3] = {0.5f, 0, 0.5f}, q[3] = {-0.5f, 0, 0.5f};
    EXPECT_TRUE(PointInTriangleBarycentric(p, a, b, c, 1e-6f));
    EXPECT_FALSE(PointInTriangleBarycentric(q, a, b, c, 1e-6f));
    // Degenerate: no plane qualifies, not even at tolerance 0.
    const float line[3] = {2, 0, 0};
    EXPECT_FALSE(PointInTriangleBarycentric(kO, kO, kX, line, 0.0f));
    EXPECT_FALSE(PointInTriangleBarycentric(inside, kO, kX, kY, 2.0f)) << "all determinants below tolerance";
}

TEST(GeometrySmall, PointInsideTriangleAllowsTheLengthTolerance)
{
    const L_POINT a = {0, 0, 0}, b = {10, 0, 0}, c = {0, 10, 0};
    EXPECT_TRUE(LMeshPointInsideTriangle({2, 3, 0}, a, b, c));
    EXPECT_TRUE(LMeshPointInsideTriangle(c, a, b, c));
    EXPECT_TRUE(LMeshPointInsideTriangle({5, -1e-6, 0}, a, b, c)) << "within the tolerance of a side";
    EXPECT_FALSE(LMeshPointInsideTriangle({5, -1e-4, 0}, a, b, c));
    EXPECT_FALSE(LMeshPointInsideTriangle({5.1, 5.1, 0}, a, b, c));
    EXPECT_TRUE(LMeshPointInsideTriangle({2, 3, 7}, a, b, c)) << "height is not tested";
    EXPECT_FALSE(LMeshPointInsideTriangle(a, a, b, {20, 0, 0})) << "no area";
}

TEST(GeometrySmall, SegmentMeetsFacetOnlyInsideIt)
{
    const L_LUMOMESH triangle = MakeTriangle();
    L_POINT3f hit = {-1, -1, -1};
    EXPECT_TRUE(LMeshIntersectSegmFacet(triangle, {{0.25, 0.5, -1}, {0.25, 0.5, 3}}, 0, &hit));
    EXPECT_EQ(hit.x, 0.25f);
    EXPECT_EQ(hit.y, 0.5f);
    EXPECT_EQ(hit.z, 0.0f);
    EXPECT_TRUE(LMeshIntersectSegmFacet(triangle, {{0.5, 0.5, 0}, {0.5, 0.5, 1}}, 0, &hit)) << "end on a side";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.8, 0.8, -1}, {0.8, 0.8, 1}}, 0, &hit)) << "outside";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.2, 0.2, 1}, {0.2, 0.2, 0.5}}, 0, &hit)) << "short";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.1, 0.1, 0}, {0.3, 0.2, 0}}, 0, &hit)) << "in the plane";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.2, 0.2, -1}, {0.2, 0.2, 1}}, 1, &hit)) << "bad id";
}

TEST(GeometryTranslate, MovesEachVertexOnce)
{
    const float by[3] = {1, 2, 3};
    L_LUMOMESH all = testmesh::MakeMeshWithDeadSlots();
    const float boxMinX = all.bboxMin[0];
    EXPECT_EQ(LMeshTranslate(all, by, nullptr), 0);
    ExpectPosition(all, 0, 1, 2, 3);
    ExpectPosition(all, 8, 6, 7, 8);  // dead slots move too
    EXPECT_EQ(all.bboxMin[0], boxMinX) << "the box is left alone";

    // Facets 0 (0,2,1) and 1 (0,3,2) share the edge 0-2; a far-off id is skipped.
    L_LUMOMESH listed = MakeCube();
    BaseList<uint32_t> facets;
    *facets.At(0) = 0;
    *facets.At(1) = 1;
    *facets.At(2) = 1000;
    EXPECT_EQ(LMeshTranslate(listed, by, &facets), 0);
    ExpectPosition(listed, 0, 1, 2, 3);
    ExpectPosition(listed, 2, 2, 3, 3);
    ExpectPosition(listed, 3, 1, 3, 3);
    ExpectPosition(listed, 4, 0, 0, 1);  // not a corner of either facet

    BaseList<uint32_t> none;
    L_LUMOMESH still = MakeCube();
    EXPECT_EQ(LMeshTranslate(still, by, &none), 0);
    ExpectPosition(still, 6, 1, 1, 1);
}

TEST(GeometryTransform, EmptyMeshIsRefused)
{
    L_LUMOMESH empty;
    L_MATRIX identity;
    mat_identity(&identity);
    bool mirrored = true;
    EXPECT_FALSE(LMeshTransform(empty, identity, &mirrored));
    EXPECT_TRUE(mirrored);
    EXPECT_EQ(empty.bboxMin[0], FLT_MAX);
}

TEST(GeometryTransform, MirrorSwapsFirstTwoCornersAndKeepsTheVolume)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    const float volume = LMeshComputeVolume(mesh);
    L_MATRIX mirror;
    mat_identity(&mirror);
    mirror.m[0] = -1.0;
    bool mirrored = false;
    ASSERT_TRUE(LMeshTransform(mesh, mirror, &mirrored));
    EXPECT_TRUE(mirrored);
    const LM_FACET* facet = mesh.facets.Peek(0);  // was (0, 2, 1), normal -z
    EXPECT_EQ(+facet->vertex[0], 2u);
    EXPECT_EQ(+facet->vertex[1], 0u);
    EXPECT_EQ(+facet->normal[2], -1.0f);
    const LM_FACET* right = mesh.facets.Peek(6);  // on x = 1, normal +x
    EXPECT_EQ(+right->normal[0], -1.0f);
    ExpectPosition(mesh, 1, -1, 0, 0);
    // The box holds every slot, the dead triangle at x = -5..-6 included.
    EXPECT_EQ(mesh.bboxMin[0], -6.0f);
    EXPECT_EQ(mesh.bboxMax[0], 0.0f);
    EXPECT_EQ(mesh.bboxMax[2], 5.0f);
    EXPECT_FLOAT_EQ(LMeshComputeVolume(mesh), volume);
}

TEST(GeometryTransform, RotationKeepsCornerOrder)
{
    L_LUMOMESH mesh = MakeCube();
    L_MATRIX turn;
    const L_VECTOR z = {0, 0, 1};
    mat_rotation(&z, std::acos(-1.0), &turn);
    bool mirrored = true;
    ASSERT_TRUE(LMeshTransform(mesh, turn, &mirrored));
    EXPECT_FALSE(mirrored);
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[0], 0u);
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[1], 2u);
    // Half a turn about z: x and y change sign, up to the rounding of sin(pi).
    EXPECT_NEAR(mesh.bboxMin[0], -1.0f, 1e-6f);
    EXPECT_NEAR(mesh.bboxMax[1], 0.0f, 1e-6f);
    testmesh::ExpectMeshConsistent(mesh);
}
