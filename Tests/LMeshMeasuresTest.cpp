#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

// One facet whose edges 0, 1, 2 have lengths a, b, c: its edge records are pointed
// at vertices along x, which the facet's corners need not match.
L_LUMOMESH MakeFacetWithSides(float a, float b, float c)
{
    L_LUMOMESH mesh = testmesh::FromIndexed({0, 0, 0, a, 0, 0, b, 0, 0, c, 0, 0}, {0, 1, 2});
    for (uint32_t k = 0; k < 3; ++k) {
        LM_EDGE* edge = mesh.edges.At(mesh.facets.At(0)->edge[k]);
        edge->vertex[0] = 0;
        edge->vertex[1] = k + 1;
    }
    return mesh;
}

}  // namespace

TEST(Measures, EmptyMesh)
{
    L_LUMOMESH mesh;
    EXPECT_EQ(LMeshComputeArea(mesh), 0.0f);
    EXPECT_EQ(LMeshComputeVolume(mesh), 0.0f);
    EXPECT_EQ(LMeshComputeZMin(mesh), FLT_MAX);
    float average = 0.0f;
    EXPECT_EQ(LMeshComputeAverageEdgeLength(mesh, average), 0);
    EXPECT_TRUE(std::isnan(average));
}

TEST(Measures, VolumeDropsTheSignAndSurvivesAStaleBox)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    const float volume = LMeshComputeVolume(cube);
    EXPECT_FLOAT_EQ(volume, 1.0f);  // twelve terms of 1/12, each rounded in float
    for (uint32_t f = 0; f < cube.facets.count; ++f) {
        LM_FACET* facet = cube.facets.At(f);
        const uint32_t second = facet->vertex[1];
        facet->vertex[1] = facet->vertex[2];
        facet->vertex[2] = second;
    }
    EXPECT_EQ(LMeshComputeVolume(cube), volume);
    cube.bboxMin[0] = -40.0f;  // a stale box moves the reference point, which cancels
    EXPECT_NEAR(LMeshComputeVolume(cube), 1.0f, 1e-5f);
}

TEST(Measures, AreaSkipsDeadAndMissingIdsButNotNeedles)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    BaseList<uint32_t> list;
    for (uint32_t id : {11u, 12u, 0u, 0u, 5000u}) *list.At(list.count) = id;  // 11, 12 dead
    EXPECT_EQ(LMeshComputeArea(mesh, &list), 1.0f) << "facet 0 listed twice counts twice";
    EXPECT_EQ(LMeshComputeArea(mesh), 5.5f);
    // Collinear on a diagonal: the side roots round so that Heron's product is negative.
    const float n0[3] = {0, 0, 0}, n1[3] = {4, 4, 0}, n2[3] = {3, 3, 0};
    LMeshAddTriangle(mesh, n0, n1, n2, 0);
    EXPECT_TRUE(std::isnan(LMeshComputeArea(mesh)));
}

TEST(Measures, BoxesDifferOnDeadVertices)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();  // dead corners at 5..6
    mesh.vertices.At(4)->position[2] = -2.0f;
    mesh.vertices.At(9)->position[2] = -9.0f;  // dead
    EXPECT_EQ(LMeshComputeZMin(mesh), -2.0f);
    LMeshComputeAbsoluteBoundingBox(mesh);
    EXPECT_EQ(mesh.bboxMin[2], -2.0f);
    EXPECT_EQ(mesh.bboxMax[0], 1.0f);
    L_BOUNDS all;
    LMeshComputeAbsoluteBoundingBox(mesh, all);
    EXPECT_EQ(all.min[2], -9.0);
    EXPECT_EQ(all.max[0], 6.0);
    L_WORKPLANE plane;  // y' = 2 - x: the origin's offset counts a thousandfold
    ASSERT_EQ(plane.Set({0.002, 0, 0}, {0, 1, 0}, {0, 0, 1}), 0);
    LMeshComputeRelativeBoundingBox(plane, mesh, all);
    EXPECT_EQ(all.min[1], -4.0);
    EXPECT_EQ(all.max[1], 2.0);
}

TEST(Measures, EdgeLengthsLeaveDeadEdgesOutAndBreakTiesLate)
{
    float average = 0.0f, deadAverage = 0.0f;
    LMeshComputeAverageEdgeLength(testmesh::MakeCube(), average);
    EXPECT_FLOAT_EQ(average, float((12.0 + 6.0 * std::sqrt(2.0)) / 18.0));
    LMeshComputeAverageEdgeLength(testmesh::MakeMeshWithDeadSlots(), deadAverage);
    EXPECT_EQ(deadAverage, average);

    struct Case { float a, b, c; int longest, shortest; };
    const Case cases[] = {{1, 1, 1, 2, 2}, {2, 2, 1, 1, 2}, {1, 2, 1, 1, 2}, {3, 1, 2, 0, 1}, {1, 3, 2, 1, 0}};
    for (const Case& c : cases) {
        const L_LUMOMESH mesh = MakeFacetWithSides(c.a, c.b, c.c);
        const float lengths[3] = {c.a, c.b, c.c};
        uint32_t edge = LM_NONE;
        EXPECT_EQ(LMeshLongestEdgeLength(mesh, 0, edge), lengths[c.longest]);
        EXPECT_EQ(edge, +mesh.facets.Peek(0)->edge[c.longest]) << c.a << " " << c.b << " " << c.c;
        EXPECT_EQ(LMeshShortestEdgeLength(mesh, 0, edge), lengths[c.shortest]);
        EXPECT_EQ(edge, +mesh.facets.Peek(0)->edge[c.shortest]) << c.a << " " << c.b << " " << c.c;
    }
    uint32_t edge = 0;
    const L_LUMOMESH mesh = MakeFacetWithSides(1, 2, 3);
    EXPECT_EQ(LMeshLongestEdgeLength(mesh, 7, edge), 0.0f);
    EXPECT_EQ(edge, LM_NONE);
    EXPECT_EQ(LMeshEdgeLength(mesh, 3), 0.0f) << "edge id past the store";
}
