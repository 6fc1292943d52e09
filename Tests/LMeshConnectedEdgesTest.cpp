#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

using testmesh::Ids;

// A mesh holding only edge records, enough for sorting by vertex ids.
L_LUMOMESH EdgesOnly(const std::vector<std::pair<uint32_t, uint32_t>>& ends)
{
    L_LUMOMESH mesh;
    for (uint32_t i = 0; i < ends.size(); ++i) {
        LM_EDGE* edge = mesh.edges.At(i);
        edge->vertex[0] = ends[i].first;
        edge->vertex[1] = ends[i].second;
        edge->facet[0] = edge->facet[1] = LM_NONE;
        edge->flags = LM_LIVE;
    }
    return mesh;
}

BaseList<uint32_t> ListOf(const std::vector<uint32_t>& ids)
{
    BaseList<uint32_t> list;
    for (uint32_t id : ids) *list.At(list.count) = id;
    return list;
}

// The ordering rule taken literally: quadratic searches, moves by erase and insert.
void ReferenceSort(const L_LUMOMESH& mesh, std::vector<uint32_t>& list, std::vector<uint32_t>& vertices)
{
    if (list.empty()) return;
    auto end = [&mesh](uint32_t e, int k) { return mesh.edges.Peek(e)->vertex[k]; };
    auto touched = [&](size_t i, uint32_t v) {
        for (size_t j = 0; j < list.size(); ++j)
            if (j != i && (end(list[j], 0) == v || end(list[j], 1) == v)) return true;
        return false;
    };
    for (size_t i = 0; i < list.size(); ++i)
        if (!touched(i, end(list[i], 0)) || !touched(i, end(list[i], 1))) {
            const uint32_t e = list[i];
            list.erase(list.begin() + i);
            list.insert(list.begin(), e);
            break;
        }
    const bool atFirst = touched(0, end(list[0], 0));
    uint32_t current = end(list[0], atFirst ? 0 : 1);
    vertices = {end(list[0], atFirst ? 1 : 0), current};
    for (size_t k = 1; k < list.size(); ++k)
        for (size_t j = k; j < list.size(); ++j) {
            const uint32_t e = list[j];
            if (end(e, 0) != current && end(e, 1) != current) continue;
            list.erase(list.begin() + j);
            list.insert(list.begin() + k, e);
            current = end(e, 0) == current ? end(e, 1) : end(e, 0);
            vertices.push_back(current);
            break;
        }
}

TEST(LMeshSortEdges, MatchesTheLiteralRuleOnRandomEdgeSets)
{
    std::minstd_rand random(7);
    for (int trial = 0; trial < 2000; ++trial) {
        const uint32_t vertexCount = uint32_t(2 + random() % 6), edgeCount = uint32_t(1 + random() % 9);
        std::vector<std::pair<uint32_t, uint32_t>> ends;
        for (uint32_t i = 0; i < edgeCount; ++i) ends.push_back({uint32_t(random() % vertexCount), uint32_t(random() % vertexCount)});
        const L_LUMOMESH mesh = EdgesOnly(ends);
        std::vector<uint32_t> order;
        for (uint32_t i = 0; i < edgeCount; ++i) order.push_back(uint32_t(random() % edgeCount));  // repeats allowed

        std::vector<uint32_t> expected = order, expectedVertices;
        ReferenceSort(mesh, expected, expectedVertices);
        BaseList<uint32_t> list = ListOf(order), vertices;
        LMeshSortEdges(mesh, list, &vertices);
        ASSERT_EQ(Ids(list), expected) << "trial " << trial;
        ASSERT_EQ(Ids(vertices), expectedVertices) << "trial " << trial;
    }
}

TEST(LMeshSortEdges, LoopsKeepTheirFirstEdgeAndOpenChainsStartAtAnEnd)
{
    // Square loop 0-1-2-3-0 given out of order.
    const L_LUMOMESH loop = EdgesOnly({{0, 1}, {2, 3}, {1, 2}, {3, 0}});
    BaseList<uint32_t> edges = ListOf({0, 1, 2, 3}), vertices;
    LMeshSortEdges(loop, edges, &vertices);
    EXPECT_EQ(Ids(edges), (std::vector<uint32_t>{0, 3, 1, 2}));
    EXPECT_EQ(Ids(vertices), (std::vector<uint32_t>{1, 0, 3, 2, 1}));

    // Chain 0-1-2-3 given backwards, with an id past the store: it stays behind.
    const L_LUMOMESH chain = EdgesOnly({{0, 1}, {1, 2}, {2, 3}});
    BaseList<uint32_t> reversed = ListOf({2, 99, 1, 0});
    LMeshSortEdges(chain, reversed, nullptr);
    EXPECT_EQ(Ids(reversed), (std::vector<uint32_t>{2, 1, 0, 99}));
}

// A grid whose inner vertices are lifted at random, so edge curvatures vary.
L_LUMOMESH BumpyGrid(int n, unsigned seed)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(n, n);
    std::minstd_rand random(seed);
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) mesh.vertices.At(v)->position[2] = float(random() % 5) * 0.2f;
    LMeshRecomputeNormals(mesh);
    return mesh;
}

float Curvature(const L_LUMOMESH& mesh, uint32_t e)
{
    float c = 0;
    LMeshComputeEdgeMeanCurvature(mesh, e, &c);
    return c;
}

// The growing walk taken literally, with a linear search for membership.
std::vector<uint32_t> ReferenceGrow(const L_LUMOMESH& mesh, uint32_t seed, float tolerance,
                                    std::vector<uint32_t> list, short& result)
{
    list.push_back(seed);
    const float s = Curvature(mesh, seed);
    result = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        BaseList<uint32_t> around(16, 128);
        LMeshGetEdgesAroundEdge(mesh, list[i], around);
        if (around.count == 0) {
            result = -2;
            break;
        }
        for (uint32_t n : Ids(around))
            if (std::fabs(Curvature(mesh, n) - s) < tolerance && std::find(list.begin(), list.end(), n) == list.end())
                list.push_back(n);
    }
    return list;
}

TEST(LMeshGetConnectedEdges, MatchesTheLiteralWalkOnRandomSeeds)
{
    const L_LUMOMESH mesh = BumpyGrid(6, 3);
    std::minstd_rand random(11);
    for (int trial = 0; trial < 200; ++trial) {
        const uint32_t seed = uint32_t(random() % mesh.edges.count);
        const float tolerance = float(random() % 40);
        std::vector<uint32_t> before;
        if (trial % 3 == 0) before = {uint32_t(random() % mesh.edges.count)};
        short expectedResult = 0;
        const std::vector<uint32_t> expected = ReferenceGrow(mesh, seed, tolerance, before, expectedResult);
        BaseList<uint32_t> edges = ListOf(before);
        EXPECT_EQ(LMeshGetConnectedEdges(mesh, seed, tolerance, edges, false, nullptr), expectedResult);
        ASSERT_EQ(Ids(edges), expected) << "trial " << trial;
    }
}

TEST(LMeshGetConnectedEdges, RefusesNoSeedAndStopsAtAnIsolatedEdge)
{
    const L_LUMOMESH grid = testmesh::MakeGrid(2, 2);
    BaseList<uint32_t> edges;
    EXPECT_EQ(LMeshGetConnectedEdges(grid, LM_NONE, 1.0f, edges, true, nullptr), -1);
    EXPECT_EQ(edges.count, 0u);
    EXPECT_EQ(LMeshGetConnectedEdges(grid, 3, 0.0f, edges, false, nullptr), 0);
    EXPECT_EQ(Ids(edges), std::vector<uint32_t>{3});  // strict comparison: tolerance 0 admits nothing

    const L_LUMOMESH isolated = EdgesOnly({{0, 1}});
    BaseList<uint32_t> alone;
    EXPECT_EQ(LMeshGetConnectedEdges(isolated, 0, 1.0f, alone, false, nullptr), -2);
    EXPECT_EQ(Ids(alone), std::vector<uint32_t>{0});
}

TEST(LMeshGetConnectedEdgesBatch, ReturnsEachFreeBoundaryAsOneClosedChain)
{
    L_LUMOMESH grid = testmesh::MakeGrid(5, 5);
    BaseList<uint32_t> hole = ListOf({24, 25});  // square (2, 2)
    LMeshDeleteFacets(grid, hole);
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(grid, -1.0f, 1e-6f, edgeChains, vertexChains);
    ASSERT_EQ(edgeChains.count, 2u);
    EXPECT_EQ(edgeChains.Peek(0)->count, 20u);  // the outer border comes first (lowest edge id)
    EXPECT_EQ(edgeChains.Peek(1)->count, 4u);
    for (uint32_t c = 0; c < 2; ++c) {
        const BaseList<uint32_t>& vertices = *vertexChains.Peek(c);
        EXPECT_EQ(*vertices.Peek(0), *vertices.Peek(vertices.count - 1));
    }
    testmesh::ExpectFreeBoundaryChains(grid, edgeChains, vertexChains);

    L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<BaseList<uint32_t>> none, noVertices;
    LMeshGetConnectedEdgesBatch(cube, -1.0f, 1e-6f, none, noVertices);
    EXPECT_EQ(none.count, 0u);
    EXPECT_EQ(noVertices.count, 0u);
}

TEST(LMeshGetConnectedEdgesBatch, WalksTheBoundaryOfARealOpenPart)
{
    const std::filesystem::path path = "../shared/data/meshes/conveyor_holes_ascii.stl";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "test mesh folder ../shared/data/meshes is absent";
    L_LUMOMESH mesh;
    ASSERT_TRUE(LMeshLoadFromSTL(path.wstring().c_str(), 0.0f, &mesh));
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, -1.0f, 1e-6f, edgeChains, vertexChains);
    ASSERT_GE(edgeChains.count, 1u);
    testmesh::ExpectFreeBoundaryChains(mesh, edgeChains, vertexChains);
}

TEST(LMeshConnectConnectedEdgesBatch, JoinsPiecesOfOneBoundaryInEitherDirection)
{
    // The outer border of a grid, cut into three chains; the middle one is reversed.
    L_LUMOMESH grid = testmesh::MakeGrid(3, 3);
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(grid, -1.0f, 1e-6f, edgeChains, vertexChains);
    ASSERT_EQ(edgeChains.count, 1u);
    const std::vector<uint32_t> edges = Ids(*edgeChains.Peek(0)), vertices = Ids(*vertexChains.Peek(0));
    BaseList<BaseList<uint32_t>> pieces, pieceVertices;
    const size_t cuts[4] = {0, 4, 9, edges.size()};
    for (int p = 0; p < 3; ++p) {
        std::vector<uint32_t> e(edges.begin() + cuts[p], edges.begin() + cuts[p + 1]);
        std::vector<uint32_t> v(vertices.begin() + cuts[p], vertices.begin() + cuts[p + 1] + 1);
        if (p == 1) {
            std::reverse(e.begin(), e.end());
            std::reverse(v.begin(), v.end());
        }
        *pieces.At(p) = ListOf(e);
        *pieceVertices.At(p) = ListOf(v);
    }
    LMeshConnectConnectedEdgesBatch(grid, pieces, pieceVertices, 1e-3f);
    ASSERT_EQ(pieces.count, 1u);
    ASSERT_EQ(pieceVertices.count, 1u);
    EXPECT_EQ(Ids(*pieces.Peek(0)), edges);
    EXPECT_EQ(Ids(*pieceVertices.Peek(0)), vertices);
}

}  // namespace
