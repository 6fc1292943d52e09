#include <gtest/gtest.h>

#include "LMesh.h"
#include "TestMeshes.h"

// acosf(0) rounds pi/2 up, so a right angle reads 90.0000025 degrees; sums of such
// angles are compared to 1e-4.
constexpr double kSlack = 1e-4;

// Cube edge 0 is a face diagonal, edge 1 a crease.
TEST(EdgeCurvature, FlatCreasedAndBrokenEdges)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    double degrees = -5;
    float narrow = -5;
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 0, &degrees), 0);
    EXPECT_EQ(degrees, 0.0);
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 1, &degrees), 0);
    EXPECT_NEAR(degrees, 90.0, kSlack);
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 1, &narrow), 0);
    EXPECT_EQ(narrow, float(degrees));  // both forms work in float up to acosf

    cube.edges.At(1)->facet[1] = LM_NONE;
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 1, &degrees), 1);
    EXPECT_EQ(degrees, -1.0);
    cube.edges.At(1)->facet[0] = LM_NONE;
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 1, &narrow), -1);
    EXPECT_EQ(narrow, -1000.0f);
    narrow = 5;
    EXPECT_EQ(LMeshComputeEdgeMeanCurvature(cube, 99, &narrow), -1);
    EXPECT_EQ(narrow, -1000.0f);
}

// Grid vertex 4 is inner, 1 mid-border, 0 a corner. A vertex whose walk lists no
// edge, or an id past the store, gives 0 and result 1.
TEST(VertexCurvature, AngleSumsOfFlatBorderAndCornerVertices)
{
    L_LUMOMESH grid = testmesh::MakeGrid(2, 2);
    const uint32_t vertices[] = {4, 1, 0};
    const double sums[] = {360.0, 180.0, 90.0};
    double degrees = -5;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(LMeshComputeVertexCurvature(grid, vertices[i], &degrees), 0);
        EXPECT_NEAR(degrees, sums[i], kSlack) << "vertex " << vertices[i];
    }
    // Corners 0 and 1 coincide: the zero direction is at right angles to anything.
    const L_LUMOMESH needle = testmesh::FromIndexed({0, 0, 0, 0, 0, 0, 1, 0, 0}, {0, 1, 2});
    EXPECT_EQ(LMeshComputeVertexCurvature(needle, 0, &degrees), 0);
    EXPECT_NEAR(degrees, 90.0, kSlack);

    grid.vertices.At(0)->edge = LM_NONE;
    for (uint32_t v : {0u, 99u}) {
        EXPECT_EQ(LMeshComputeVertexCurvature(grid, v, &degrees), 1);
        EXPECT_EQ(degrees, 0.0);
    }
}

// The open fan's centre sees its edges 63.4, 53.1, 63.4 and 63.4 degrees apart: 180
// plus atan 2, without the closing 116.6. The float form rounds at every term, which
// a narrowed double sum would not match.
TEST(VertexCurvature, OpenFanLeavesOutTheClosingAngleAndFloatSumsPerTerm)
{
    const L_LUMOMESH fan = testmesh::MakeOpenFan();
    double degrees = 0;
    float narrow = 0;
    EXPECT_EQ(LMeshComputeVertexCurvature(fan, 0, &degrees), 0);
    EXPECT_EQ(LMeshComputeVertexCurvature(fan, 0, &narrow), 0);
    EXPECT_EQ(degrees, 243.4349600386266);
    EXPECT_EQ(narrow, 243.434952f);
    EXPECT_NE(narrow, float(degrees));
}
