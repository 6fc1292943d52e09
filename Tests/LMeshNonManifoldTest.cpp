#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "TestMeshes.h"

using testmesh::ExpectMeshConsistent;
using testmesh::FreeEdges;

namespace {

// Unit squares of two facets each, in z = 0 with the side (0,0,0)-(1,0,0) and
// folded about it: `square` picks the far side, each with its own four vertices.
//   square 0: far side at y = 1;  square 1: at y = -1;  square 2: at z = 1.
L_LUMOMESH MakeSquaresOnOneSide(int squares)
{
    const float far[3][3] = {{0, 1, 0}, {0, -1, 0}, {0, 0, 1}};
    std::vector<float> coords;
    std::vector<int> indices;
    for (int s = 0; s < squares; ++s) {
        const float* d = far[s];
        coords.insert(coords.end(), {0, 0, 0, 1, 0, 0, 1 + d[0], d[1], d[2], d[0], d[1], d[2]});
        const int a = 4 * s;
        indices.insert(indices.end(), {a, a + 1, a + 2, a, a + 2, a + 3});
    }
    return testmesh::FromIndexed(coords, indices);
}

//   2 (1,2)
//   |\          facet 0 = (0,1,2) on the left; on the right, vertices m[i] lie on
//   | \         its side 1-2 (x = 1), fanned to 3 (2,1): (1,3,m0) (m0,3,m1) ... (mn,3,2).
//   m  3
//   |_/
//  0 1 (1,0)
L_LUMOMESH MakeTJunctions(const std::vector<std::pair<float, float>>& onSide)
{
    std::vector<float> coords = {0, 0, 0, 1, 0, 0, 1, 2, 0, 2, 1, 0};
    std::vector<int> indices = {0, 1, 2};
    int previous = 1;
    for (const auto& p : onSide) {
        const int m = int(coords.size() / 3);
        coords.insert(coords.end(), {p.first, p.second, 0});
        indices.insert(indices.end(), {previous, 3, m});
        previous = m;
    }
    indices.insert(indices.end(), {previous, 3, 2});
    return testmesh::FromIndexed(coords, indices);
}

}  // namespace

TEST(DeleteNonManifoldFacets, EmptyAndCleanMeshesLoseNothing)
{
    L_LUMOMESH empty;
    EXPECT_EQ(LMeshDeleteNonManifoldFacets(empty, 0.01f), 0u);
    L_LUMOMESH cube = testmesh::MakeCube();
    EXPECT_EQ(LMeshDeleteNonManifoldFacets(cube, 0.01f), 0u);
    EXPECT_EQ(cube.facetCount, 12u);
}

TEST(DeleteNonManifoldFacets, LooseFacetGoesWhateverLiesNear)
{
    L_LUMOMESH mesh = testmesh::MakeCube();
    const float p0[3] = {0, 0, 0}, p1[3] = {1, 0, 0}, p2[3] = {0, 0, 1};
    LMeshAddTriangle(mesh, p0, p1, p2, 0);
    EXPECT_EQ(LMeshDeleteNonManifoldFacets(mesh, 0.01f), 1u);
    EXPECT_FALSE(mesh.facets.Peek(12)->flags & LM_LIVE);
    EXPECT_EQ(mesh.facetCount, 12u);
    ExpectMeshConsistent(mesh, false);
}

// One foreign side on a border side is an unwelded seam; two make the first facet in
// slot order go, after which it shadows nobody.
TEST(DeleteNonManifoldFacets, BorderSideUnderTwoForeignSidesGoesFirstInSlotOrder)
{
    L_LUMOMESH seam = MakeSquaresOnOneSide(2);
    EXPECT_EQ(LMeshDeleteNonManifoldFacets(seam, 0.01f), 0u);

    L_LUMOMESH fin = MakeSquaresOnOneSide(3);
    EXPECT_EQ(LMeshDeleteNonManifoldFacets(fin, 0.01f), 1u);
    EXPECT_FALSE(fin.facets.Peek(0)->flags & LM_LIVE);
    EXPECT_EQ(fin.facetCount, 5u);
    ExpectMeshConsistent(fin, false);
}

TEST(RepairVertexEdgeDisjoints, EmptyMeshSplitsNothing)
{
    L_LUMOMESH empty;
    EXPECT_EQ(LMeshRepairVertexEdgeDisjoints(empty, nullptr, 0.01f, 0.01f, 0.0f), 0u);
}

// With and without a facet list: the vertex on the side splits facet 0, and the weld
// joins the halves to the facets on the right.
TEST(RepairVertexEdgeDisjoints, VertexOnABorderSideSplitsItsFacet)
{
    for (bool listed : {false, true}) {
        L_LUMOMESH mesh = MakeTJunctions({{1.0f, 1.0f}});
        BaseList<uint32_t> facets;
        for (uint32_t f = 0; f < mesh.facets.count; ++f) AppendTo(facets, f);
        EXPECT_EQ(LMeshRepairVertexEdgeDisjoints(mesh, listed ? &facets : nullptr, 0.01f, 0.01f, 0.0f), 1u);
        ExpectMeshConsistent(mesh, false);
        EXPECT_EQ(mesh.facetCount, 4u);
        EXPECT_EQ(FreeEdges(mesh).size(), 4u) << "listed " << listed;
    }
}

// The second vertex finds the half of the side that the first split left. A far
// triangle widens the box, so that the side spans few cells of the grid.
TEST(RepairVertexEdgeDisjoints, TwoVerticesOnOneSideSplitItTwice)
{
    L_LUMOMESH mesh = MakeTJunctions({{1.0f, 0.5f}, {1.0f, 1.5f}});
    const float p0[3] = {40, 40, 0}, p1[3] = {41, 40, 0}, p2[3] = {40, 41, 0};
    LMeshAddTriangle(mesh, p0, p1, p2, 0);
    EXPECT_EQ(LMeshRepairVertexEdgeDisjoints(mesh, nullptr, 0.01f, 0.01f, 0.0f), 2u);
    ExpectMeshConsistent(mesh, false);
    EXPECT_EQ(mesh.facetCount, 7u);
    EXPECT_EQ(FreeEdges(mesh).size(), 4u + 3u);
}

TEST(RepairVertexEdgeDisjoints, SplitsOnlyWithinDistanceAndOffTheEnds)
{
    struct Case {
        float x, y;
        uint32_t splits;
    };
    const Case cases[] = {{1.005f, 1.0f, 1}, {1.05f, 1.0f, 0}, {1.0f, 0.005f, 0}, {1.0f, 1.995f, 0}};
    for (const Case& c : cases) {
        L_LUMOMESH mesh = MakeTJunctions({{c.x, c.y}});
        EXPECT_EQ(LMeshRepairVertexEdgeDisjoints(mesh, nullptr, 0.01f, 0.01f, 0.0f), c.splits) << c.x << " " << c.y;
        ExpectMeshConsistent(mesh, false);
    }
}

// Real meshes, welded finely first as the cleanup does: a sphere written in four blocks
// whose copies of a vertex differ in the sixth digit, which leaves cracks and vertices
// on the far side of a crack; two cubes sharing one edge; a scan with non-manifold
// edges and duplicate facets.
TEST(NonManifoldRepair, CorpusMeshesComeOutConsistent)
{
    const std::string folder = "../shared/data/meshes/";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "test mesh folder " << folder << " is absent";
    struct Case {
        const char* name;
        bool repaired;  // whether both repairs find work
    };
    for (const Case& c : {Case{"four_solids_ascii.stl", true}, Case{"two_cubes_shared_edge_binary.stl", false},
                          Case{"bunny_res2_ascii.ply", false}}) {
        const std::string file = folder + c.name;
        const std::wstring path(file.begin(), file.end());
        L_LUMOMESH mesh;
        const bool ply = file.substr(file.size() - 4) == ".ply";
        ASSERT_TRUE(ply ? LMeshReadPlyFile(path.c_str(), mesh, 0) == 0 : LMeshLoadFromSTL(path.c_str(), 0.0f, &mesh));
        const float tolerance = 0.00001f;
        LMeshOptimizeEdges(mesh, tolerance, nullptr, nullptr, nullptr, 1);
        const uint32_t deleted = LMeshDeleteNonManifoldFacets(mesh, tolerance);
        ExpectMeshConsistent(mesh, false);
        const uint32_t splits = LMeshRepairVertexEdgeDisjoints(mesh, nullptr, 0.0001f, tolerance, 0.0f);
        ExpectMeshConsistent(mesh, false);
        EXPECT_EQ(deleted > 0 && splits > 0, c.repaired) << c.name;
    }
}
