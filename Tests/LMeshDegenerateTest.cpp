#include <algorithm>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

using testmesh::FromIndexed;
using testmesh::Ids;

std::vector<uint32_t> Sorted(std::vector<uint32_t> ids)
{
    std::sort(ids.begin(), ids.end());
    return ids;
}

//   3---2---5      the unit square (0,1,2) (0,2,3) with a triangle at corner 2;
//   |  /|  /       `hanging` gives that triangle's corners (2 is mesh vertex 2,
//   | / | /        4 = (2,1), 5 = (2,2))
//   0---1 4
L_LUMOMESH SquareWithHangingTriangle(std::vector<int> hanging)
{
    std::vector<int> indices = {0, 1, 2, 0, 2, 3};
    indices.insert(indices.end(), hanging.begin(), hanging.end());
    return FromIndexed({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 1, 0, 2, 2, 0}, indices);
}

}  // namespace

TEST(DegenerateFacets, EmptyMeshFindsNothingAndStillRecounts)
{
    L_LUMOMESH mesh;
    BaseList<uint32_t> found;
    *found.At(0) = 7;
    EXPECT_FALSE(LMeshFindAreaZeroFacets(mesh, 1.0f, &found));
    EXPECT_EQ(found.count, 0u);
    *found.At(0) = 7;
    EXPECT_FALSE(LMeshFindEqualFacets(mesh, 1.0f, &found));
    EXPECT_EQ(found.count, 0u);
    EXPECT_FALSE(LMeshFindAreaZeroFacets(mesh, 1.0f, nullptr));
    EXPECT_FALSE(LMeshFindEqualFacets(mesh, 1.0f, nullptr));
    EXPECT_FALSE(LMeshDeleteAreaZeroFacets(mesh, 1.0f));
    EXPECT_FALSE(LMeshDeleteEqualFacets(mesh, 1.0f));
    mesh.facetCount = 5;  // stale: the looping repair's deletion pass recounts
    EXPECT_EQ(LMeshDeleteLoopingTriangles(mesh), 0u);
    EXPECT_EQ(mesh.facetCount, 0u);
}

// Facet 1 repeats a corner (Heron product exactly 0); facet 2 is a collinear needle
// whose product rounds negative (not-a-number area); facet 3 is collinear with a
// tiny positive product; facet 4 is flat too but dead.
TEST(DegenerateFacets, AreaZeroListsAtOrBelowToleranceButNotNotANumber)
{
    L_LUMOMESH mesh = FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 1, 5, 5, 5, 2, 2, 2, 7, 7, 7},
                                  {0, 1, 2, 0, 1, 1, 0, 3, 4, 0, 5, 6, 0, 1, 1});
    mesh.facets.At(4)->flags = 0;
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindAreaZeroFacets(mesh, 0.0f, &found));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{1}));
    EXPECT_TRUE(LMeshFindAreaZeroFacets(mesh, 1e-3f, &found));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{1, 3}));

    EXPECT_TRUE(LMeshDeleteAreaZeroFacets(mesh, 1e-3f));
    EXPECT_EQ(mesh.facetCount, 2u);
    testmesh::ExpectMeshConsistent(mesh);
}

TEST(EqualFacets, FacetAndItsReverseAreEqual)
{
    // Corner order differs too: the key forgets where the facet starts.
    L_LUMOMESH mesh = FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2, 4, 3, 5});
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindEqualFacets(mesh, 0.0f, &found));
    ASSERT_EQ(found.count, 1u);
    EXPECT_TRUE(*found.Peek(0) == 0 || *found.Peek(0) == 1);
}

// The tetrahedron's facet 0 (0,2,1) has three neighbours; facet 4 repeats it on
// vertices of its own with a flap (5) across one side, so one neighbour; facet 6
// repeats it alone.
TEST(EqualFacets, TheCopyWithMostNeighboursSurvives)
{
    L_LUMOMESH mesh = FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1,   // tetrahedron 0..3
                                   0, 0, 0, 0, 1, 0, 1, 0, 0, 9, 9, 9,   // copy 4, 5, 6 and flap tip 7
                                   0, 0, 0, 0, 1, 0, 1, 0, 0},           // copy 8, 9, 10
                                  {0, 2, 1, 0, 1, 3, 1, 2, 3, 0, 3, 2, 4, 5, 6, 4, 7, 5, 8, 9, 10});
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindEqualFacets(mesh, 0.0f, &found));
    EXPECT_EQ(Sorted(Ids(found)), (std::vector<uint32_t>{4, 6}));

    EXPECT_TRUE(LMeshDeleteEqualFacets(mesh, 0.0f));
    EXPECT_EQ(mesh.facetCount, 5u);
    EXPECT_FALSE(mesh.facets.Peek(4)->flags & LM_LIVE);
    EXPECT_FALSE(mesh.facets.Peek(6)->flags & LM_LIVE);
    testmesh::ExpectMeshConsistent(mesh);
}

TEST(EqualFacets, AtEqualCountsTheLaterKeyGoesAndToleranceBounds)
{
    // Facet 0 lies 1e-6 above facet 1 in every coordinate, so it comes later in key
    // order although its id is lower.
    const float d = 1e-6f;
    L_LUMOMESH mesh = FromIndexed({d, d, d, 1 + d, d, d, d, 1 + d, d, 0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2, 3, 4, 5});
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindEqualFacets(mesh, 1e-5f, &found));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{0}));
    EXPECT_FALSE(LMeshFindEqualFacets(mesh, 1e-7f, &found));
    EXPECT_EQ(found.count, 0u);
}

TEST(LoopingTriangles, LoneTriangleIsKept)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    EXPECT_EQ(LMeshDeleteLoopingTriangles(mesh), 0u);
    EXPECT_EQ(mesh.facetCount, 1u);
}

TEST(LoopingTriangles, DeletedOnlyWhenHangingByTheVertexBetweenItsBorderEdges)
{
    // With three border edges the pair (edge 0, edge 1) is taken, whose shared vertex
    // is corner 1: (4,2,5) hangs there on mesh vertex 2, (2,4,5) does not.
    L_LUMOMESH hanging = SquareWithHangingTriangle({4, 2, 5});
    EXPECT_EQ(LMeshDeleteLoopingTriangles(hanging), 1u);
    EXPECT_FALSE(hanging.facets.Peek(2)->flags & LM_LIVE);
    EXPECT_EQ(hanging.facetCount, 2u);
    EXPECT_EQ(hanging.vertexCount, 4u);
    testmesh::ExpectMeshConsistent(hanging);

    L_LUMOMESH touching = SquareWithHangingTriangle({2, 4, 5});
    EXPECT_EQ(LMeshDeleteLoopingTriangles(touching), 0u);
    EXPECT_EQ(touching.facetCount, 3u);

    // The fan's end facets have two border edges whose tip has no other facet.
    L_LUMOMESH fan = testmesh::MakeOpenFan();
    EXPECT_EQ(LMeshDeleteLoopingTriangles(fan), 0u);
}

TEST(DegenerateFacets, BrokenIdsAreSkipped)
{
    L_LUMOMESH mesh = testmesh::MakeCube();
    mesh.facets.At(0)->edge[1] = 999;
    mesh.facets.At(1)->vertex[2] = 999;
    mesh.edges.At(mesh.facets.Peek(2)->edge[0])->facet[1] = 999;
    BaseList<uint32_t> found;
    EXPECT_FALSE(LMeshFindAreaZeroFacets(mesh, 0.0f, &found));
    EXPECT_FALSE(LMeshFindEqualFacets(mesh, 0.0f, &found));
    LMeshDeleteLoopingTriangles(mesh);
    EXPECT_EQ(mesh.facets.count, 12u);
}

TEST(EqualFacets, SweepStopsAtTheFirstKeyOutsideTolerance)
{
    // Facets 0 and 2 are copies within 1e-6, but facet 1's key falls between them
    // in key order and differs from facet 0 by 1, which ends the sweep.
    const float d = 1e-6f;
    L_LUMOMESH mesh = FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 5, 0, d, d, d, 1 + d, d, d, d, 1 + d, d},
                                  {0, 1, 2, 3, 1, 2, 4, 5, 6});
    BaseList<uint32_t> found;
    EXPECT_FALSE(LMeshFindEqualFacets(mesh, 1e-5f, &found));
}
