#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using testmesh::Ids;
using Vec = std::vector<uint32_t>;

namespace {

BaseList<uint32_t> ListOf(const Vec& ids)
{
    BaseList<uint32_t> list;
    for (uint32_t id : ids) *list.At(list.count) = id;
    return list;
}

}  // namespace

// The closed fan's centre starts at edge 10, between facets 4 and 5. The open fan's
// starts at edge 6, a middle edge: the walk runs forward to the boundary edge 8, then
// back from 6, and what it finds backward goes in front.
TEST(NeighbourhoodQueries, FansAreListedInWalkOrder)
{
    const L_LUMOMESH closed = testmesh::MakeClosedFan(), open = testmesh::MakeOpenFan();
    BaseList<uint32_t> closedFacets, closedEdges, facets, edges, vertices;
    EXPECT_EQ(LMeshGetFacetsAndEdgesAroundVertex(closed, 0, closedFacets, closedEdges), 0);
    EXPECT_EQ(Ids(closedFacets), (Vec{4, 5, 0, 1, 2, 3}));
    EXPECT_EQ(Ids(closedEdges), (Vec{10, 0, 2, 4, 6, 8}));
    EXPECT_EQ(LMeshGetFacetsAndEdgesAroundVertex(open, 0, facets, edges), 1);
    EXPECT_EQ(Ids(facets), (Vec{0, 1, 2, 3}));
    EXPECT_EQ(Ids(edges), (Vec{0, 2, 4, 6, 8}));
    EXPECT_EQ(LMeshGetVerticesAroundVertex(open, 0, vertices), 1);
    EXPECT_EQ(Ids(vertices), (Vec{1, 2, 3, 4, 5}));

    // Triangle edges 0 (0,1), 1 (1,2), 2 (0,2); its corners start at 0, 1 and 2.
    const L_LUMOMESH triangle = testmesh::MakeTriangle();
    const Vec expected[3] = {{2, 0}, {0, 1}, {1, 2}};
    for (uint32_t v = 0; v < 3; ++v) {
        BaseList<uint32_t> corner, facet;
        EXPECT_EQ(LMeshGetEdgesAroundVertex(triangle, v, corner), 1);
        EXPECT_EQ(Ids(corner), expected[v]);
        EXPECT_EQ(LMeshGetFacetsAroundVertex(triangle, v, facet), 1);
        EXPECT_EQ(Ids(facet), (Vec{0}));
    }
}

TEST(NeighbourhoodQueries, CallersEntriesStayInFrontAndCountTowardsTheLimit)
{
    const L_LUMOMESH fan = testmesh::MakeOpenFan();  // 9 edges
    BaseList<uint32_t> edges = ListOf({90, 91});
    EXPECT_EQ(LMeshGetEdgesAroundVertex(fan, 0, edges), 1);
    EXPECT_EQ(Ids(edges), (Vec{90, 91, 0, 2, 4, 6, 8}));

    // With five entries the backward walk reaches the edge count before edge 0.
    BaseList<uint32_t> crowded = ListOf({90, 91, 92, 93, 94});
    EXPECT_EQ(LMeshGetEdgesAroundVertex(fan, 0, crowded), -1);
    EXPECT_EQ(Ids(crowded), (Vec{90, 91, 92, 93, 94, 2, 4, 6, 8}));

    // The vertex map covers the caller's edges too: edge 7 is (4,5).
    BaseList<uint32_t> mapped = ListOf({7}), vertices;
    EXPECT_EQ(LMeshGetEdgesAndVerticesAroundVertex(fan, 0, mapped, vertices), 1);
    EXPECT_EQ(Ids(vertices), (Vec{4, 1, 2, 3, 4, 5}));
}

TEST(NeighbourhoodQueries, BrokenMeshesAndBadIdsFail)
{
    // Edges 2 and 8 of the closed fan each name one facet twice, so the walk
    // bounces between facets 1 and 3, never returns to facet 4, and hits the limit.
    L_LUMOMESH fan = testmesh::MakeClosedFan();
    fan.edges.At(2)->facet[0] = fan.edges.At(2)->facet[1] = 1;
    fan.edges.At(8)->facet[0] = fan.edges.At(8)->facet[1] = 3;
    BaseList<uint32_t> bounced;
    EXPECT_EQ(LMeshGetEdgesAroundVertex(fan, 0, bounced), -1);
    EXPECT_EQ(Ids(bounced), (Vec{10, 0, 2, 4, 6, 8, 6, 4, 2, 4, 6, 8}));

    // Starts at no edge, a stale edge, a dead edge (3) and an orphaned edge (7).
    L_LUMOMESH open = testmesh::MakeOpenFan();
    const uint32_t pastEdges = open.edges.count, pastFacets = open.facets.count;
    open.edges.At(3)->flags &= 254;
    open.edges.At(7)->facet[0] = LM_NONE;
    const uint32_t starts[4] = {LM_NONE, pastEdges, 3, 7};
    BaseList<uint32_t> list = ListOf({7});
    for (uint32_t v = 1; v <= 4; ++v) open.vertices.At(v)->edge = starts[v - 1];
    for (uint32_t v : {1u, 2u, 3u, 4u, open.vertices.count}) EXPECT_EQ(LMeshGetFacetsAroundVertex(open, v, list), -1);
    EXPECT_EQ(Ids(list), (Vec{7}));
    EXPECT_EQ(LMeshGetEdgesAroundEdge(open, pastEdges, list), -1);
    EXPECT_EQ(LMeshGetFacetsAroundFacetByVertices(open, pastFacets, list), -1);
    EXPECT_EQ(LMeshGetFacetsAroundFacetByEdges(open, LM_NONE, list), -1);
    // A facet link past the store inside the walk ends it without reading there.
    open.edges.At(8)->facet[0] = pastFacets;
    open.edges.At(8)->facet[1] = 2;
    EXPECT_EQ(LMeshGetEdgesAroundVertex(open, 0, list), -1);
}

TEST(NeighbourhoodQueries, EdgesAroundEdgeListEachEdgeOnce)
{
    // Cube edge 12 (0,4): vertex 0's fan, then vertex 4's (9 17 12 5 7), without 12.
    const L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> edges = ListOf({3});
    EXPECT_EQ(LMeshGetEdgesAroundEdge(cube, 12, edges), 0);
    EXPECT_EQ(Ids(edges), (Vec{3, 3, 0, 2, 11, 9, 17, 5, 7}));

    // An unsewn second facet on the triangle's corners makes edge 3 (1,0) beside
    // edge 0 (0,1): edge 0 is at both ends of edge 3 and is listed once.
    L_LUMOMESH doubled = testmesh::MakeTriangle();
    LMeshAddTriangle(doubled, 1, 0, 2, 0);
    BaseList<uint32_t> doubledEdges;
    EXPECT_EQ(LMeshGetEdgesAroundEdge(doubled, 3, doubledEdges), 0);
    EXPECT_EQ(Ids(doubledEdges), (Vec{0, 1, 2}));
}

TEST(NeighbourhoodQueries, FacetsAroundFacet)
{
    // Grid facet 8 (5,6,10): three interior corners of six facets each fill the
    // local list to exactly the 18-facet limit, and the walks still succeed.
    const L_LUMOMESH grid = testmesh::MakeGrid(3, 3);
    BaseList<uint32_t> byVertices;
    EXPECT_EQ(LMeshGetFacetsAroundFacetByVertices(grid, 8, byVertices), 0);
    EXPECT_EQ(Ids(byVertices), (Vec{9, 6, 1, 0, 3, 10, 11, 2, 5, 16, 17, 14}));
    // On the cube the three fans of facet 0 hold 14 facets against a limit of 12.
    const L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> overLimit;
    EXPECT_EQ(LMeshGetFacetsAroundFacetByVertices(cube, 0, overLimit), -1);
    EXPECT_EQ(Ids(overLimit), (Vec{5, 10, 1, 4, 8, 9, 6}));

    // Open-fan facet 1 has sides 2 (shared with 0), 3 (free) and 4 (shared with 2);
    // a free side written as facet[0] = LM_NONE counts the same.
    L_LUMOMESH fan = testmesh::MakeOpenFan();
    BaseList<uint32_t> byEdges;
    EXPECT_EQ(LMeshGetFacetsAroundFacetByEdges(fan, 1, byEdges), 1);
    fan.edges.At(3)->facet[0] = LM_NONE;
    fan.edges.At(3)->facet[1] = 1;
    EXPECT_EQ(LMeshGetFacetsAroundFacetByEdges(fan, 1, byEdges), 1);
    EXPECT_EQ(LMeshGetFacetsAroundFacetByEdges(cube, 0, byEdges), 0);
    EXPECT_EQ(Ids(byEdges), (Vec{0, 2, 0, 2, 1, 6, 4}));
}

namespace {

// What the edge or facet navigation gives for v, in table order.
Vec Navigate(uint32_t v, bool facets)
{
    Vec found;
    uint32_t id = LM_NONE;
    if (!(facets ? LMeshGetFirstFacetByVertex(v, &id) : LMeshGetFirstEdgeByVertex(v, &id))) return found;
    do found.push_back(id);
    while (facets ? LMeshGetNextFacetByVertex(v, &id) : LMeshGetNextEdgeByVertex(v, &id));
    return found;
}

Vec Sorted(Vec ids)
{
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace

TEST(VertexNavigation, FirstAndNextListTheLiveEntitiesOfAVertex)
{
    const L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    LMeshStartEdgeByVertexNavigation(mesh);
    LMeshStartFacetByVertexNavigation(mesh);
    EXPECT_EQ(Sorted(Navigate(0, false)), (Vec{0, 2, 3, 11, 12}));
    EXPECT_EQ(Sorted(Navigate(3, true)), (Vec{1, 8, 10}));  // 11 is dead
    EXPECT_EQ(Navigate(8, true), (Vec{}));                  // only on dead facet 12

    // Next after vertex 0's last entry moves onto vertex 1's first and stays there,
    // so Next for vertex 1 then gives its second entry.
    const Vec ofOne = Navigate(1, false);
    ASSERT_EQ(ofOne.size(), 4u);
    uint32_t e = LM_NONE;
    ASSERT_EQ(Navigate(0, false).size(), 5u);
    EXPECT_TRUE(LMeshGetNextEdgeByVertex(1, &e));
    EXPECT_EQ(e, ofOne[1]);
    // At the table's last entry (vertex 7; 8 to 10 are only on dead edges) Next
    // stays false.
    ASSERT_EQ(Navigate(7, false).size(), 4u);
    EXPECT_FALSE(LMeshGetNextEdgeByVertex(7, &e));

    // Stopped or empty tables answer false and write nothing.
    LMeshStopFacetByVertexNavigation();
    e = 5;
    EXPECT_FALSE(LMeshGetFirstFacetByVertex(0, &e) || LMeshGetNextFacetByVertex(0, &e));
    LMeshStartEdgeByVertexNavigation(L_LUMOMESH());
    EXPECT_FALSE(LMeshGetFirstEdgeByVertex(0, &e) || LMeshGetNextEdgeByVertex(0, &e));
    EXPECT_EQ(e, 5u);
}

// 60000 pairs over many pages, from nearly sorted input: the sort must stay within
// its stack and the table must answer like a direct scan of the facets.
TEST(VertexNavigation, LargeMeshMatchesAScanOfTheFacets)
{
    const L_LUMOMESH grid = testmesh::MakeGrid(100, 100);
    std::vector<Vec> expected(grid.vertices.count);
    for (uint32_t f = 0; f < grid.facets.count; ++f)
        for (uint32_t k = 0; k < 3; ++k) expected[grid.facets.Peek(f)->vertex[k]].push_back(f);
    LMeshStartFacetByVertexNavigation(grid);
    for (uint32_t v = 0; v < grid.vertices.count; ++v) ASSERT_EQ(Sorted(Navigate(v, true)), expected[v]) << v;
    LMeshStopFacetByVertexNavigation();
}
