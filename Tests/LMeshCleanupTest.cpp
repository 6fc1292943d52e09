#include <gtest/gtest.h>

#include <array>

#include "TestMeshes.h"

namespace {

using Results = std::array<uint32_t, 7>;
constexpr uint32_t kUnset = 0xABABABABu;

// The corners and facets of testmesh::MakeCube, to be broken before building.
std::vector<float> CubeCorners() { return {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1}; }
std::vector<int> CubeFacets()
{
    return {0, 2, 1, 0, 3, 2, 4, 5, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4, 1, 2, 6, 1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7};
}

// Appends a corner and returns its index.
int AddCorner(std::vector<float>& corners, float x, float y, float z)
{
    corners.insert(corners.end(), {x, y, z});
    return int(corners.size() / 3 - 1);
}

// The cube whose top face (facets 2 and 3) stands on its own copies of corners 4, 5
// and 7, lifted by 1e-5: a crack around the top, whose sides meet only at corner 6.
std::vector<int> CrackTop(std::vector<float>& corners)
{
    const int c4 = AddCorner(corners, 0, 0, 1.00001f), c5 = AddCorner(corners, 1, 0, 1.00001f),
              c7 = AddCorner(corners, 0, 1, 1.00001f);
    std::vector<int> facets = CubeFacets();
    facets[6] = c4, facets[7] = c5, facets[9] = c4, facets[11] = c7;
    return facets;
}

Results Cleanup(L_LUMOMESH& mesh, bool removeEqual, bool removeZeroArea, bool fillHoles, bool orient)
{
    Results results;
    results.fill(kUnset);
    LMeshCleanup(mesh, 1e-4f, results.data(), removeEqual, false, removeZeroArea, 1e-4f, false, 0.0f, fillHoles, false,
                 0.0f, orient, false);
    return results;
}

}  // namespace

TEST(Cleanup, EmptyMeshPassesEveryStep)
{
    L_LUMOMESH mesh;
    Results results;
    results.fill(kUnset);
    LMeshCleanup(mesh, 1e-4f, results.data(), true, true, true, 1e-6f, true, 10.0f, true, true, 1e-3f, true, true);
    EXPECT_EQ(results, Results{});
    EXPECT_EQ(mesh.facetCount, 0u);
}

TEST(Cleanup, WithEveryFlagOffStillWeldsAndZeroesEveryResult)
{
    std::vector<float> corners = CubeCorners();
    const std::vector<int> facets = CrackTop(corners);
    L_LUMOMESH mesh = testmesh::FromIndexed(corners, facets);
    ASSERT_EQ(testmesh::FreeEdges(mesh).size(), 8u);
    EXPECT_EQ(Cleanup(mesh, false, false, false, false), Results{});
    EXPECT_TRUE(testmesh::FreeEdges(mesh).empty());
    EXPECT_EQ(mesh.vertexCount, 8u);
    testmesh::ExpectMeshConsistent(mesh);
}

// A flat sliver along the crack's front side takes one of the two sides in the first
// weld; only its removal and the second weld let the cube close.
TEST(Cleanup, ZeroAreaFacetsGoBetweenTheTwoWelds)
{
    std::vector<float> corners = CubeCorners();
    std::vector<int> facets = CrackTop(corners);
    const int a = AddCorner(corners, 0, -0.00001f, 1), m = AddCorner(corners, 0.5f, -0.00001f, 1),
              b = AddCorner(corners, 1, -0.00001f, 1);
    facets.insert(facets.end(), {a, m, b});
    L_LUMOMESH kept = testmesh::FromIndexed(corners, facets);
    L_LUMOMESH removed = kept;

    Cleanup(kept, false, false, false, false);
    EXPECT_FALSE(testmesh::FreeEdges(kept).empty());

    const Results results = Cleanup(removed, false, true, false, false);
    EXPECT_EQ(results, (Results{0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(removed.facetCount, 12u);
    EXPECT_TRUE(testmesh::FreeEdges(removed).empty());
    testmesh::ExpectMeshConsistent(removed);
}

// A crack, a repeated facet on corners of its own, a missing facet and a flipped one:
// the repeat goes, the hole is filled, and orienting after the filling makes the
// patch agree with the rest.
TEST(Cleanup, RepairsABrokenCubeWithOrWithoutAPlaceForResults)
{
    std::vector<float> corners = CubeCorners();
    std::vector<int> facets = CrackTop(corners);
    std::swap(facets[19], facets[20]);      // facet 6 wound backwards
    facets.erase(facets.begin() + 27, facets.begin() + 30);  // facet 9 missing
    const int p = AddCorner(corners, 0, 0, 0), q = AddCorner(corners, 1, 1, 0), r = AddCorner(corners, 1, 0, 0);
    facets.insert(facets.end(), {p, q, r});  // a copy of facet 0
    L_LUMOMESH withResults = testmesh::FromIndexed(corners, facets);
    L_LUMOMESH withoutResults = withResults;

    EXPECT_EQ(Cleanup(withResults, true, false, true, true), (Results{1, 0, 0, 0, 1, 0, 1}));
    LMeshCleanup(withoutResults, 1e-4f, nullptr, true, false, false, 0.0f, false, 0.0f, true, false, 0.0f, true,
                 false);
    for (L_LUMOMESH* mesh : {&withResults, &withoutResults}) {
        EXPECT_EQ(mesh->facetCount, 12u);
        testmesh::ExpectClosedAndConsistent(*mesh);
        EXPECT_NEAR(LMeshComputeVolume(*mesh), 1.0f, 1e-5f);  // welded corners sit at their means
    }
}

// The cube with its top as a 2 by 2 grid whose centre is pulled almost onto the
// middle of the front edge. Two facets then share that short side as their shortest,
// so it is listed twice, collapsed once, and passed over the second time.
//   top corners 4 + 3 j + i at (i / 2, j / 2, 1); the centre 8 moves to y = 0.01
TEST(Cleanup, SkinnyFacetsLoseTheirShortestSide)
{
    std::vector<float> corners = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) AddCorner(corners, 0.5f * i, 0.5f * j, 1.0f);
    corners[3 * 8 + 1] = 0.01f;
    std::vector<int> facets = {0, 2, 1, 0, 3, 2};
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i) {
            const int a = 4 + 3 * j + i;
            facets.insert(facets.end(), {a, a + 1, a + 4, a, a + 4, a + 3});
        }
    facets.insert(facets.end(), {0, 1, 6, 0, 6, 5, 0, 5, 4, 1, 2, 12, 1, 12, 9, 1, 9, 6,
                                 2, 3, 10, 2, 10, 11, 2, 11, 12, 3, 0, 4, 3, 4, 7, 3, 7, 10});
    L_LUMOMESH mesh = testmesh::FromIndexed(corners, facets);
    Results results;
    LMeshCleanup(mesh, 1e-4f, results.data(), false, false, false, 1e-6f, true, 20.0f, false, false, 0.0f, false,
                 false);
    EXPECT_EQ(results, (Results{0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(mesh.facetCount, 20u);
    EXPECT_FALSE(mesh.vertices.Peek(8)->flags & LM_LIVE);
    testmesh::ExpectClosedAndConsistent(mesh);
}

// On a flat 2 by 1 sheet, whose corner facets already have two free sides, flaps are
// hung from three border edges: one folded back over the sheet, one standing upright
// and one continuing the sheet. Only the folded one is an overhang.
TEST(Cleanup, RemovesOnlyFlapsFoldedBackOntoTheSurface)
{
    std::vector<float> corners = {0, 0, 0, 1, 0, 0, 2, 0, 0, 0, 1, 0, 1, 1, 0, 2, 1, 0};
    std::vector<int> facets = {0, 1, 4, 0, 4, 3, 1, 2, 5, 1, 5, 4};
    const int folded = AddCorner(corners, 0.5f, 0.5f, 0.05f);   // over facet 0, hung from 0-1
    const int upright = AddCorner(corners, 1.5f, 1.0f, 1.0f);   // above edge 4-5
    const int onward = AddCorner(corners, 2.5f, 0.5f, 0.0f);    // beside edge 2-5
    facets.insert(facets.end(), {1, 0, folded, 5, 4, upright, 2, onward, 5});
    L_LUMOMESH mesh = testmesh::FromIndexed(corners, facets);

    EXPECT_EQ(LMeshRemoveOverhangs(mesh), 1u);
    EXPECT_FALSE(mesh.facets.Peek(4)->flags & LM_LIVE);
    EXPECT_EQ(mesh.facetCount, 6u);
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_EQ(LMeshRemoveOverhangs(mesh), 0u);
}

// Two lone facets folded onto each other hang from nothing: neither is an overhang.
TEST(Cleanup, KeepsAPairOfFacetsFoldedOntoEachOther)
{
    L_LUMOMESH mesh = testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 0.5f, 1, 0, 0.5f, 1, 0.01f}, {0, 1, 2, 1, 0, 3});
    EXPECT_EQ(LMeshRemoveOverhangs(mesh), 0u);
    EXPECT_EQ(mesh.facetCount, 2u);
}
