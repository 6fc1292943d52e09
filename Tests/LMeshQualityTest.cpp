#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using testmesh::Ids;
using Vec = std::vector<uint32_t>;

namespace {

// One facet per nine floats, each on three vertices of its own.
L_LUMOMESH FacetsOf(const std::vector<std::vector<float>>& triangles)
{
    L_LUMOMESH mesh;
    for (const std::vector<float>& t : triangles) LMeshAddTriangle(mesh, &t[0], &t[3], &t[6], 0);
    return mesh;
}

const std::vector<float> kRight = {0, 0, 0, 1, 0, 0, 0, 1, 0};

}  // namespace

// Corner 2 lies beyond the end of side 0, so its altitude is the distance to that end
// (sqrt 5), not to the side's line (1). Float roots: compared to 4 ulps.
TEST(TriangleQuality, AltitudesMeasureToTheSideNotItsLine)
{
    const L_LUMOMESH mesh = FacetsOf({{0, 0, 0, 1, 0, 0, 3, 1, 0}, kRight});
    float altitudes[3] = {7, 7, 7};
    EXPECT_EQ(LMeshTriangleAltitudes(mesh, 0, altitudes), 0);
    EXPECT_FLOAT_EQ(altitudes[0], std::sqrt(5.0f));
    EXPECT_FLOAT_EQ(altitudes[1], 1.0f);
    EXPECT_FLOAT_EQ(altitudes[2], 1.0f / std::sqrt(10.0f));
    EXPECT_FLOAT_EQ(LMeshTriangleAspectRatio(mesh, 0), 10.0f);
    EXPECT_FLOAT_EQ(LMeshTriangleLengthAreaRatio(mesh, 1), 2.0f * std::sqrt(2.0f));
}

TEST(TriangleQuality, ShortSidesAreSkippedAndBadIdsFail)
{
    const L_LUMOMESH mesh = FacetsOf({{0, 0, 0, 0.00005f, 0, 0, 0, 1, 0}, {0, 0, 0, 0.00005f, 0, 0, 0, 0.00005f, 0}});
    float altitudes[3] = {7, 7, 7};
    EXPECT_EQ(LMeshTriangleAltitudes(mesh, 0, altitudes), 1);
    EXPECT_EQ(altitudes[0], 7.0f);  // side 0 is too short: left as given
    EXPECT_EQ(LMeshTriangleAspectRatio(mesh, 1), -1.0f);  // every side too short
    EXPECT_EQ(LMeshTriangleLengthAreaRatio(mesh, 2), -1.0f);
    const L_LUMOMESH dead = testmesh::MakeMeshWithDeadSlots();
    EXPECT_EQ(LMeshTriangleArea(dead, 0), 0.5f);
    EXPECT_EQ(LMeshTriangleArea(dead, 11), 0.0f);
    EXPECT_EQ(LMeshTriangleArea(dead, 99), 0.0f);
}

// The right triangle's 45-degree corners tie exactly, as do the base corners of the
// isosceles one: the later corner wins.
TEST(TriangleQuality, InnerAngleTiesGoToTheLaterCorner)
{
    const L_LUMOMESH mesh = FacetsOf({kRight, {0, 0, 0, 2, 0, 0, 1, 0.5f, 0}});
    float angle = 0, angles[3] = {};
    uint32_t index = 9;
    EXPECT_EQ(LMeshSmallestInnerAngleOfTriangle(mesh, 0, angle, index, angles), 2u);
    EXPECT_EQ(index, 2u);
    EXPECT_EQ(angles[1], angle);
    EXPECT_EQ(LMeshLargestInnerAngleOfTriangle(mesh, 0, angle, index, angles), 0u);
    EXPECT_EQ(angle, float(M_PI / 2));
    EXPECT_EQ(LMeshLargestInnerAngleOfTriangle(mesh, 2, angle, index, angles), LM_NONE);
    EXPECT_EQ(angle, float(M_PI / 2));  // untouched
    EXPECT_EQ(LMeshSmallestInnerAngleOfTriangle(mesh, 1, angle, index, angles), 4u);
}

// Factors: equilateral 1.0 exactly, right isosceles 0.83, flat 0, two coincident
// corners undefined (0/0), and a dead facet.
TEST(TriangleQuality, ShapeFactorSearchesSkipDeadAndUndefinedFacets)
{
    L_LUMOMESH mesh = FacetsOf({{1, 0, 0, 0, 1, 0, 0, 0, 1}, kRight, {0, 0, 0, 1, 0, 0, 2, 0, 0},
                                {0, 0, 0, 0, 0, 0, 1, 0, 0}, kRight});
    mesh.facets.At(4)->flags &= 254;
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindFacetsByShapeFactorRange(mesh, 0.0f, 1.0f, &found));
    EXPECT_EQ(Ids(found), (Vec{0, 1, 2}));
    EXPECT_FALSE(LMeshFindFacetsByShapeFactorRange(mesh, 0.9f, 0.95f, &found));
    EXPECT_EQ(found.count, 0u);
    *found.At(0) = 42;
    EXPECT_FALSE(LMeshFindFacetsByShapeFactorRange(mesh, -0.1f, 1.0f, &found));
    EXPECT_EQ(Ids(found), (Vec{42}));  // a refused call leaves the list alone

    // 1.0 / 0.1f in double is 9.99999985: nine bins are zeroed, the equilateral facet
    // lands one past them, and the list's later entries are kept and counted on from.
    BaseList<uint32_t> bins;
    for (uint32_t i = 0; i < 12; ++i) *bins.At(i) = 5;
    EXPECT_TRUE(LMeshCalculateShapeFactorDistrib(mesh, 0.1f, &bins));
    EXPECT_EQ(Ids(bins), (Vec{1, 0, 0, 0, 0, 0, 0, 0, 1, 6, 5, 5}));
    EXPECT_FALSE(LMeshCalculateShapeFactorDistrib(mesh, 0.0f, &bins));
    EXPECT_FALSE(LMeshCalculateShapeFactorDistrib(mesh, 0.1f, nullptr));
}
