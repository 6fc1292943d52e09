#include <gtest/gtest.h>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

float Coord(const L_LUMOMESH& mesh, uint32_t v, int k) { return mesh.vertices.Peek(v)->position[k]; }

}  // namespace

TEST(GeometrySmall, NormalizeCentroidAndBounds)
{
    float v[3] = {3, 4, 0}, tiny[3] = {1e-12f, 0, -1e-12f};
    EXPECT_EQ(NormalizeVector(v), 0);
    EXPECT_EQ(v[1], 0.8f);
    EXPECT_EQ(NormalizeVector(tiny), -1);
    EXPECT_EQ(tiny[0], 0.0f);
    const L_LUMOMESH cube = testmesh::MakeCube();
    float centroid[3];
    ComputeFacetCentroid(cube, 2, centroid);  // top facet (4, 5, 6)
    EXPECT_EQ(centroid[0], 2.0f / 3.0f);
    L_BOUNDS bounds;
    ComputeFacetBounds(cube, *cube.facets.Peek(4), bounds);  // front facet (0, 1, 5)
    EXPECT_EQ(bounds.max[0], 1.0);
    EXPECT_EQ(bounds.max[1], 0.0);
}

TEST(GeometrySmall, InsideTestsAndSegmentCrossing)
{
    const float o[3] = {0, 0, 0}, x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, onSide[3] = {0.5f, 0.5f, 0};
    EXPECT_TRUE(PointInTriangleBarycentric(onSide, o, x, y, 1e-6f));
    EXPECT_FALSE(PointInTriangleBarycentric(onSide, o, x, y, 2.0f)) << "every determinant below tolerance";
    // In the xz plane, where the xy and yz determinants are zero.
    const float b[3] = {2, 0, 0}, c[3] = {0, 0, 2}, in[3] = {0.5f, 0, 0.5f}, out[3] = {-0.5f, 0, 0.5f};
    EXPECT_TRUE(PointInTriangleBarycentric(in, o, b, c, 1e-6f));
    EXPECT_FALSE(PointInTriangleBarycentric(out, o, b, c, 1e-6f));
    EXPECT_FALSE(PointInTriangleBarycentric(o, o, x, b, 0.0f)) << "collinear, even at tolerance 0";

    const L_POINT p = {0, 0, 0}, q = {10, 0, 0}, r = {0, 10, 0};
    EXPECT_TRUE(LMeshPointInsideTriangle({5, -1e-6, 7}, p, q, r)) << "within tolerance; height not tested";
    EXPECT_FALSE(LMeshPointInsideTriangle({5, -1e-4, 0}, p, q, r));

    const L_LUMOMESH triangle = testmesh::MakeTriangle();
    L_POINT3f hit = {-1, -1, -1};
    EXPECT_TRUE(LMeshIntersectSegmFacet(triangle, {{0.25, 0.5, -1}, {0.25, 0.5, 3}}, 0, &hit));
    EXPECT_EQ(hit.y, 0.5f);
    EXPECT_EQ(hit.z, 0.0f);
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.8, 0.8, -1}, {0.8, 0.8, 1}}, 0, &hit)) << "outside";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.1, 0.1, 0}, {0.3, 0.2, 0}}, 0, &hit)) << "in the plane";
    EXPECT_FALSE(LMeshIntersectSegmFacet(triangle, {{0.2, 0.2, -1}, {0.2, 0.2, 1}}, 1, &hit)) << "bad id";
}

TEST(GeometryTranslate, MovesEachVertexOnce)
{
    const float by[3] = {1, 2, 3};
    L_LUMOMESH all = testmesh::MakeMeshWithDeadSlots();
    const float boxMaxX = all.bboxMax[0];
    EXPECT_EQ(LMeshTranslate(all, by, nullptr), 0);
    EXPECT_EQ(Coord(all, 8, 2), 8.0f) << "dead slots move too";
    EXPECT_EQ(all.bboxMax[0], boxMaxX) << "the box is left alone";
    // Facets 0 (0,2,1) and 1 (0,3,2) share the side 0-2; a far-off id is skipped.
    L_LUMOMESH listed = testmesh::MakeCube();
    BaseList<uint32_t> facets;
    for (uint32_t id : {0u, 1u, 1000u}) *facets.At(facets.count) = id;
    EXPECT_EQ(LMeshTranslate(listed, by, &facets), 0);
    EXPECT_EQ(Coord(listed, 2, 2), 3.0f);
    EXPECT_EQ(Coord(listed, 4, 2), 1.0f);
}

TEST(GeometryTransform, MirrorSwapsFirstTwoCornersAndRebuildsTheBox)
{
    L_MATRIX mirror;
    mat_identity(&mirror);
    mirror.m[0] = -1.0;
    bool mirrored = false;
    L_LUMOMESH empty;
    EXPECT_FALSE(LMeshTransform(empty, mirror, &mirrored));
    EXPECT_FALSE(mirrored);

    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    ASSERT_TRUE(LMeshTransform(mesh, mirror, &mirrored));
    EXPECT_TRUE(mirrored);
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[0], 2u);  // was (0, 2, 1)
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[1], 0u);
    EXPECT_EQ(+mesh.facets.Peek(6)->normal[0], -1.0f);  // on x = 1, was +x
    EXPECT_EQ(mesh.bboxMin[0], -6.0f) << "the dead triangle counts";
    EXPECT_EQ(mesh.bboxMax[0], 0.0f);

    L_MATRIX shift;
    const L_VECTOR up = {0, 0, 2};
    mat_translation(&up, &shift);
    ASSERT_TRUE(LMeshTransform(mesh, shift, &mirrored));
    EXPECT_FALSE(mirrored);
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[0], 2u);
    EXPECT_EQ(mesh.bboxMax[2], 7.0f);
}
