#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

#include "LMesh.h"
#include "LMeshIntersections.h"
#include "TestMeshes.h"

namespace {

constexpr float kTolerance = 1e-5f;

TriangleCrossing Cross(std::vector<float> a, std::vector<float> b, double planeTolerance = 1e-9)
{
    return CrossTriangles(&a[0], &a[3], &a[6], &b[0], &b[3], &b[6], planeTolerance);
}

// The unit cube and a copy moved by (0.5, 0.5, 0.5): every face of one that meets the
// other crosses it.
L_LUMOMESH TwoCrossingCubes()
{
    L_LUMOMESH mesh = testmesh::MakeCube();
    const L_LUMOMESH cube = testmesh::MakeCube();
    for (uint32_t f = 0; f < cube.facets.count; ++f) {
        float p[3][3];
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c) p[k][c] = cube.vertices.Peek(cube.facets.Peek(f)->vertex[k])->position[c] + 0.5f;
        LMeshAddTriangle(mesh, p[0], p[1], p[2], 0);
    }
    return mesh;
}

BaseList<uint32_t> AllFacets(const L_LUMOMESH& mesh)
{
    BaseList<uint32_t> list;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) *list.At(list.count) = f;
    return list;
}

}  // namespace

TEST(CrossTriangles, CrossingTouchingCoplanarAndApart)
{
    // A vertical triangle through a horizontal one: the segment on x = 0.25.
    const TriangleCrossing crossing = Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0.25f, -1, -1, 0.25f, 2, -1, 0.25f, 0.5f, 1});
    ASSERT_TRUE(crossing.intersect);
    EXPECT_FALSE(crossing.coplanar);
    EXPECT_DOUBLE_EQ(crossing.start.x, 0.25);
    EXPECT_DOUBLE_EQ(crossing.end.x, 0.25);
    EXPECT_NEAR(std::fabs(crossing.end.y - crossing.start.y), 0.75, 1e-12);

    // Touching at one corner: a segment of no length.
    const TriangleCrossing corner = Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {1, 0, 0, 2, 0, 1, 2, 0, -1});
    ASSERT_TRUE(corner.intersect);
    EXPECT_DOUBLE_EQ(corner.start.x, 1.0);
    EXPECT_DOUBLE_EQ(corner.end.x, 1.0);

    // Coplanar, overlapping and apart; nearly coplanar counts as coplanar.
    EXPECT_TRUE(Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0.2f, 0.2f, 0, 2, 0.2f, 0, 0.2f, 2, 0}).coplanar);
    EXPECT_TRUE(Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0.2f, 0.2f, 0, 2, 0.2f, 0, 0.2f, 2, 0}).intersect);
    const TriangleCrossing apart = Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {2, 2, 0, 3, 2, 0, 2, 3, 0});
    EXPECT_TRUE(apart.coplanar);
    EXPECT_FALSE(apart.intersect);
    EXPECT_TRUE(Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0.2f, 0.2f, 1e-8f, 2, 0.2f, -1e-8f, 0.2f, 2, 0}, 1e-6).coplanar);

    EXPECT_FALSE(Cross({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 0, 1, 1, 0, 1, 0, 1, 2}).intersect);  // above
    EXPECT_FALSE(Cross({0, 0, 0, 1, 0, 0, 2, 0, 0}, {0.5f, -1, -1, 0.5f, 1, -1, 0.5f, 0, 1}).intersect);  // no area
}

TEST(LMeshDeleteIntersections, ReportsCrossingPairsFromBothSidesAndDeletesTheSecond)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> found;
    EXPECT_EQ(LMeshDeleteIntersections(cube, 0.0f, kTolerance, nullptr, &found, true), 0u);
    EXPECT_EQ(found.count, 0u);  // neighbours share edges

    L_LUMOMESH cubes = TwoCrossingCubes();
    EXPECT_EQ(LMeshDeleteIntersections(cubes, 0.0f, kTolerance, nullptr, &found, false), 0u);
    ASSERT_GT(found.count, 0u);
    std::vector<uint32_t> ids = testmesh::Ids(found);
    for (uint32_t id : ids) {
        const bool otherCube = id >= 12;
        // Each report has its partner reported from the other side.
        const bool partnered = std::any_of(ids.begin(), ids.end(), [&](uint32_t x) { return (x >= 12) != otherCube; });
        EXPECT_TRUE(partnered);
    }

    // Asking for segments longer than any crossing finds nothing.
    BaseList<uint32_t> none;
    EXPECT_EQ(LMeshDeleteIntersections(cubes, 2.0f, kTolerance, nullptr, &none, false), 0u);
    EXPECT_EQ(none.count, 0u);

    // Deleting leaves no crossing pair behind; the listed-facets form agrees.
    L_LUMOMESH listed = cubes;
    BaseList<uint32_t> deleted, deletedFromList;
    const uint32_t removed = LMeshDeleteIntersections(cubes, 0.0f, kTolerance, nullptr, &deleted, true);
    EXPECT_GT(removed, 0u);
    EXPECT_EQ(removed, deleted.count);
    const BaseList<uint32_t> all = AllFacets(listed);
    EXPECT_EQ(LMeshDeleteIntersections(listed, 0.0f, kTolerance, &all, &deletedFromList, true), removed);
    EXPECT_EQ(testmesh::Ids(deletedFromList), testmesh::Ids(deleted));
    BaseList<uint32_t> after;
    LMeshDeleteIntersections(cubes, 0.0f, kTolerance, nullptr, &after, false);
    EXPECT_EQ(after.count, 0u);
    testmesh::ExpectMeshConsistent(cubes);
}

namespace {

// The crossings the adaptive boxes find, expected to be those of the whole-list search.
std::vector<uint32_t> CrossingsInBoxesAsInTheList(L_LUMOMESH& soup)
{
    BaseList<uint32_t> fromBoxes, fromList;
    LMeshDeleteIntersections(soup, 0.0f, kTolerance, nullptr, &fromBoxes, false);
    const BaseList<uint32_t> all = AllFacets(soup);
    LMeshDeleteIntersections(soup, 0.0f, kTolerance, &all, &fromList, false);
    EXPECT_EQ(testmesh::Ids(fromBoxes), testmesh::Ids(fromList));
    return testmesh::Ids(fromBoxes);
}

}  // namespace

TEST(LMeshDeleteIntersections, BoxesFindWhatTheWholeListFinds)
{
    // 1,500 random small triangles in a cube: many crossings, several boxes.
    L_LUMOMESH soup = testmesh::MakeSliverSoup(0, 1500);
    EXPECT_GT(CrossingsInBoxesAsInTheList(soup).size(), 50u);

    // Slivers across the whole soup lie in every box and meet their neighbours there
    // again and again.
    L_LUMOMESH slivers = testmesh::MakeSliverSoup(300, 900);
    EXPECT_GT(CrossingsInBoxesAsInTheList(slivers).size(), 300u);

    // Corners at the float limits on two axes make the soup's extent infinite, and a
    // facet at one limit lies infinitely far from the other.
    const float far = 3e38f, low[3] = {-far, -far, 5}, high[3] = {far, far, 6}, side[3] = {0, 6, 5};
    const float edge0[3] = {0, far, 5}, edge1[3] = {1, far, 5}, edge2[3] = {0, far, 6};
    LMeshAddTriangle(slivers, low, high, side, 0);
    LMeshAddTriangle(slivers, edge0, edge1, edge2, 0);
    CrossingsInBoxesAsInTheList(slivers);
}

TEST(LMeshDeletePartialOverlaps, CoplanarCrossingEdgesAndLandingCorners)
{
    // Two coplanar triangles whose edges cross, and a small one inside the first.
    L_LUMOMESH mesh;
    const float a[3][3] = {{0, 0, 0}, {4, 0, 0}, {0, 4, 0}};
    const float b[3][3] = {{1, 1, 0}, {5, 1, 0}, {1, 5, 0}};
    const float c[3][3] = {{0.2f, 0.2f, 0}, {0.6f, 0.2f, 0}, {0.2f, 0.6f, 0}};
    LMeshAddTriangle(mesh, a[0], a[1], a[2], 0);
    LMeshAddTriangle(mesh, b[0], b[1], b[2], 0);
    LMeshAddTriangle(mesh, c[0], c[1], c[2], 0);

    BaseList<uint32_t> found;
    EXPECT_EQ(LMeshDeletePartialOverlaps(mesh, kTolerance, nullptr, &found, false), 0u);
    EXPECT_EQ(testmesh::Ids(found), (std::vector<uint32_t>{1, 0}));  // the inner one has no crossing edge

    BaseList<uint32_t> fromList;
    const BaseList<uint32_t> all = AllFacets(mesh);
    LMeshDeletePartialOverlaps(mesh, kTolerance, &all, &fromList, false);
    EXPECT_EQ(testmesh::Ids(fromList), (std::vector<uint32_t>{1, 2, 0}));

    BaseList<uint32_t> deleted;
    EXPECT_EQ(LMeshDeletePartialOverlaps(mesh, kTolerance, nullptr, &deleted, true), 1u);
    EXPECT_EQ(mesh.facetCount, 2u);
}

TEST(LMeshDeleteIntersections, RealMeshes)
{
    const std::string folder = "../shared/data/meshes/";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "test mesh folder " << folder << " is absent";
    L_LUMOMESH crossing, clean;
    ASSERT_EQ(LMeshReadPlyFile(L"../shared/data/meshes/self_intersecting_binary.ply", crossing, 0), 0);
    ASSERT_EQ(LMeshReadPlyFile(L"../shared/data/meshes/fandisk_cad_binary.ply", clean, 0), 0);
    BaseList<uint32_t> found, none;
    LMeshDeleteIntersections(clean, 0.0f, kTolerance, nullptr, &none, false);
    EXPECT_EQ(none.count, 0u);
    EXPECT_GT(LMeshDeleteIntersections(crossing, 0.0f, kTolerance, nullptr, &found, true), 0u);
    BaseList<uint32_t> after;
    LMeshDeleteIntersections(crossing, 0.0f, kTolerance, nullptr, &after, false);
    EXPECT_EQ(after.count, 0u);
}
