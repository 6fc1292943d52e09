#include <gtest/gtest.h>

#include <vector>

#include "LMesh.h"
#include "LMeshSubdivision.h"
#include "TestMeshes.h"

namespace {

constexpr float kTolerance = 1e-5f;

float NormalZ(const L_LUMOMESH& mesh, uint32_t facet) { return mesh.facets.Peek(facet)->normal[2]; }

//   2-------3      facet 0 (0,1,2) of area 0.5 and facet 1 (1,3,2) of area `big`
//   |\     /       (3 moves out along the diagonal), both wound towards +z
//   | \   /
//   0--1 /
L_LUMOMESH SmallAndBig(float far)
{
    return testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, far, far, 0}, {0, 1, 2, 1, 3, 2});
}

LM_TOLERANCES Margin(float reorganizeDistance)
{
    LM_TOLERANCES tolerances{};
    tolerances.reorganizeDistance = reorganizeDistance;
    return tolerances;
}

TEST(Remesh1to4Subdivision, QuartersEveryFacetAndWeldsSharedMidpoints)
{
    L_LUMOMESH triangle = testmesh::MakeTriangle();
    uint32_t added = 99;
    EXPECT_EQ(LMeshRemesh1to4Subdivision(triangle, kTolerance, added, nullptr), 0);
    EXPECT_EQ(added, 4u);
    EXPECT_EQ(+triangle.facetCount, 4u);
    EXPECT_EQ(+triangle.vertexCount, 6u);
    EXPECT_FALSE(triangle.facets.Peek(0)->flags & LM_LIVE);
    EXPECT_EQ(LMeshComputeArea(triangle, nullptr), 0.5f);

    // Neighbours make the same midpoint on their shared edge, so the halves join up.
    L_LUMOMESH square = testmesh::MakeGrid(1, 1);
    LMeshRemesh1to4Subdivision(square, kTolerance, added, nullptr);
    EXPECT_EQ(added, 8u);
    EXPECT_EQ(+square.vertexCount, 9u);
    EXPECT_EQ(testmesh::FreeEdges(square).size(), 8u);

    L_LUMOMESH cube = testmesh::MakeCube();
    LMeshRemesh1to4Subdivision(cube, kTolerance, added, nullptr);
    EXPECT_EQ(+cube.facetCount, 48u);
    EXPECT_TRUE(testmesh::FreeEdges(cube).empty());
    EXPECT_EQ(LMeshComputeArea(cube, nullptr), 6.0f);
    EXPECT_NEAR(LMeshComputeVolume(cube, nullptr), 1.0f, 1e-6f);  // a float sum of 48 terms
}

TEST(Remesh1to4Subdivision, SplitsOnlyListedLiveFacets)
{
    L_LUMOMESH square = testmesh::MakeGrid(1, 1);
    BaseList<uint32_t> listed;
    *listed.At(0) = 1;
    *listed.At(1) = 7;  // past the store
    uint32_t added = 0;
    LMeshRemesh1to4Subdivision(square, kTolerance, added, &listed);
    EXPECT_EQ(added, 4u);
    EXPECT_EQ(+square.facetCount, 5u);
    EXPECT_TRUE(square.facets.Peek(0)->flags & LM_LIVE);
    EXPECT_EQ(testmesh::FreeEdges(square).size(), 9u);  // the diagonal meets two halves: a T-junction
}

TEST(SplitFacetInFour, LeavesTheFacetAndListsItsQuarters)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    BaseList<uint32_t> pieces, old;
    EXPECT_EQ(SplitFacetInFour(mesh, 0, pieces, old), 0);
    EXPECT_EQ(testmesh::Ids(pieces), (std::vector<uint32_t>{1, 2, 3, 4}));
    EXPECT_EQ(testmesh::Ids(old), (std::vector<uint32_t>{0}));
    EXPECT_EQ(+mesh.facetCount, 5u);
    EXPECT_EQ(+mesh.edgeCount, 12u);
    const LM_VERTEX* m1 = mesh.vertices.Peek(4);  // the midpoint of (1,0,0) and (0,1,0)
    EXPECT_EQ(+m1->position[0], 0.5f);
    EXPECT_EQ(+m1->position[1], 0.5f);
    EXPECT_EQ(SplitFacetInFour(mesh, 9, pieces, old), -1);
    EXPECT_EQ(old.count, 1u);
}

TEST(RemeshCentroidSubdivision, SplitsFacetsLargerThanTheSmallestOnce)
{
    // Two copies of one triangle, apart by whole units: their areas round alike.
    L_LUMOMESH equal = testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 0, 0, 6, 0, 0, 5, 1, 0}, {0, 1, 2, 3, 4, 5});
    uint32_t added = 99;
    EXPECT_EQ(LMeshRemeshCentroidSubdivision(equal, false, added, Margin(0.25f)), 0);
    EXPECT_EQ(added, 0u);
    EXPECT_EQ(+equal.facetCount, 2u);

    L_LUMOMESH mesh = SmallAndBig(1.5f);  // areas 0.5 and 1
    EXPECT_EQ(LMeshRemeshCentroidSubdivision(mesh, false, added, Margin(100.0f)), 0);
    EXPECT_EQ(added, 3u);
    EXPECT_EQ(+mesh.facetCount, 4u);
    // The pieces turn over against the facet that was not split.
    EXPECT_GT(NormalZ(mesh, 0), 0.0f);
    for (uint32_t f : {1u, 2u, 3u}) EXPECT_LT(NormalZ(mesh, f), 0.0f);
    EXPECT_EQ(+mesh.facets.Peek(1)->vertex[1], 4u);
}

TEST(RemeshCentroidSubdivision, RepeatsWhilePiecesExceedTheMargin)
{
    uint32_t added = 0;
    L_LUMOMESH mesh = SmallAndBig(2.0f);  // areas 0.5 and 1.5: pieces of 0.5 stop
    EXPECT_EQ(LMeshRemeshCentroidSubdivision(mesh, true, added, Margin(0.25f)), 0);
    EXPECT_EQ(added, 3u);

    L_LUMOMESH larger = SmallAndBig(4.0f);  // area 3.5: pieces of 7/6 split again
    EXPECT_EQ(LMeshRemeshCentroidSubdivision(larger, true, added, Margin(0.25f)), 0);
    EXPECT_EQ(added, 12u);
    EXPECT_EQ(+larger.facetCount, 10u);
    testmesh::ExpectMeshConsistent(larger);

    L_LUMOMESH withinMargin = SmallAndBig(4.0f);
    LMeshRemeshCentroidSubdivision(withinMargin, true, added, Margin(5.0f));
    EXPECT_EQ(added, 0u);
}

TEST(RemeshCentroidSubdivision, RefusesFacetWhoseEdgesMissItsCorners)
{
    L_LUMOMESH mesh = SmallAndBig(1.5f);
    LM_FACET* big = mesh.facets.At(1);
    big->edge[0] = big->edge[1];
    uint32_t added = 0;
    EXPECT_EQ(LMeshRemeshCentroidSubdivision(mesh, false, added, Margin(0.25f)), -1);
    EXPECT_EQ(+mesh.facetCount, 2u);
}

LM_TOLERANCES Slices(int16_t count)
{
    LM_TOLERANCES tolerances = Margin(0.25f);
    tolerances.flatAngle = 1e-6f;
    tolerances.angleBand = 30.0f;
    tolerances.vertexCurvatureChange = 0.05f;
    tolerances.capAngle = 170.0f;
    tolerances.skinnyAspectRatio = 10.0f;
    tolerances.skinnyEdgeLength = 0.00381f;
    tolerances.coordinateTolerance = kTolerance;
    tolerances.slicesX = tolerances.slicesY = tolerances.slicesZ = count;
    return tolerances;
}

TEST(RemeshFEMAnalysis, SlicesAndLeavesNoEqualFacets)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    EXPECT_EQ(LMeshRemeshFEMAnalysis(cube, Slices(4), nullptr), 0);
    EXPECT_GT(+cube.facetCount, 12u * 16u);
    BaseList<uint32_t> equal;
    EXPECT_FALSE(LMeshFindEqualFacets(cube, kTolerance, &equal));

    // One slice puts the only plane of each family on the box's wall: the copy made
    // for welding is all that is added, and it goes again as equal facets.
    L_LUMOMESH whole = testmesh::MakeCube();
    LMeshRemeshFEMAnalysis(whole, Slices(1), nullptr);
    EXPECT_EQ(+whole.facetCount, 12u);
    EXPECT_TRUE(testmesh::FreeEdges(whole).empty());
    EXPECT_EQ(LMeshComputeArea(whole, nullptr), 6.0f);
}

}  // namespace
