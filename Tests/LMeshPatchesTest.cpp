#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <vector>

#include "LMesh.h"
#include "MeshSnapshot.h"
#include "TestMeshes.h"

using testmesh::Ids;

namespace {

std::vector<uint32_t> Sorted(const BaseList<uint32_t>& list)
{
    std::vector<uint32_t> ids = Ids(list);
    std::sort(ids.begin(), ids.end());
    return ids;
}

std::vector<uint32_t> Range(uint32_t count)
{
    std::vector<uint32_t> ids(count);
    for (uint32_t i = 0; i < count; ++i) ids[i] = i;
    return ids;
}

bool RefuseAll(const L_LUMOMESH&, uint32_t, uint32_t, const void*) { return false; }

// Refuses only the crossing from data[0] to data[1].
bool RefuseOneCrossing(const L_LUMOMESH&, uint32_t from, uint32_t to, const void* data)
{
    const uint32_t* pair = static_cast<const uint32_t*>(data);
    return !(from == pair[0] && to == pair[1]);
}

// The edge of facet f joining vertices a and b.
uint32_t SideOf(const L_LUMOMESH& mesh, uint32_t f, uint32_t a, uint32_t b)
{
    for (int k = 0; k < 3; ++k) {
        const uint32_t e = mesh.facets.Peek(f)->edge[k];
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if ((edge.vertex[0] == a && edge.vertex[1] == b) || (edge.vertex[0] == b && edge.vertex[1] == a)) return e;
    }
    return LM_NONE;
}

// The split as documented: the component of the lowest live facet is cut out of a
// copy, and the operation recurses on another copy without it.
bool ReferenceSplit(const L_LUMOMESH& mesh, std::vector<L_LUMOMESH>& out)
{
    BaseList<uint32_t> live, queue, rest;
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (mesh.facets.Peek(f)->flags & LM_LIVE) *live.At(live.count) = f;
    if (mesh.facetCount == 0 || live.count == 0) return false;
    std::vector<uint8_t> seen(mesh.facets.count, 0);
    *queue.At(0) = *live.Peek(0);
    seen[*live.Peek(0)] = 1;
    for (uint32_t i = 0; i < queue.count; ++i) {
        const uint32_t f = *queue.Peek(i);
        for (int k = 0; k < 3; ++k) {
            const LM_EDGE* edge = mesh.edges.Peek(mesh.facets.Peek(f)->edge[k]);
            if (!edge || !(edge->flags & LM_LIVE)) continue;
            const uint32_t a = edge->facet[0], b = edge->facet[1];
            const uint32_t next = a != LM_NONE && a != f ? a : b != LM_NONE && b != f ? b : LM_NONE;
            if (next >= seen.size() || seen[next]) continue;
            seen[next] = 1;
            *queue.At(queue.count) = next;
        }
    }
    out.push_back(mesh);
    for (uint32_t f : Ids(live))
        if (!seen[f]) *rest.At(rest.count) = f;
    if (rest.count == 0) return true;
    LMeshDeleteFacets(out.back(), rest);
    L_LUMOMESH copy(mesh);
    LMeshDeleteFacets(copy, queue);
    return ReferenceSplit(copy, out);
}

}  // namespace

TEST(NeighborFacets, UnfilteredFillReachesEveryLiveFacetOnly)
{
    const L_LUMOMESH cube = testmesh::MakeCube();
    for (bool depthFirst : {false, true}) {
        BaseList<uint32_t> found;
        EXPECT_TRUE(LMeshFindNeighborFacets(cube, 5, nullptr, nullptr, &found, depthFirst));
        EXPECT_EQ(*found.Peek(0), 5u);
        EXPECT_EQ(Sorted(found), Range(12));
    }
    EXPECT_TRUE(LMeshFindNeighborFacets(cube, 0, nullptr, nullptr, nullptr, false));
    // Facet 11 is dead while its edges still name it.
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindNeighborFacets(testmesh::MakeMeshWithDeadSlots(), 0, nullptr, nullptr, &found, false));
    EXPECT_EQ(Sorted(found), Range(11));
    EXPECT_FALSE(LMeshFindNeighborFacets(cube, 12, nullptr, nullptr, &found, false));
    EXPECT_EQ(found.count, 11u);  // a seed past the store leaves the list as it was
}

TEST(NeighborFacets, RefusedCrossingLeavesTheNeighbourReachableFromElsewhere)
{
    const L_LUMOMESH grid = testmesh::MakeGrid(2, 2);
    BaseList<uint32_t> found;
    *found.At(0) = 99;
    EXPECT_TRUE(LMeshFindNeighborFacets(grid, 3, RefuseAll, nullptr, &found, true));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{3}));
    // Facet 1 may not step to its square's other half 0, which is reached round the grid.
    const uint32_t refused[2] = {1, 0};
    EXPECT_TRUE(LMeshFindNeighborFacets(grid, 1, RefuseOneCrossing, refused, &found, false));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{1, 4, 7, 5, 6, 3, 2, 0}));
}

TEST(NeighborFacets, AngularDeviationComparesNeighboursNotTheSeed)
{
    const L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> found;
    EXPECT_TRUE(LMeshFindFacetsByAngularDeviation(cube, 2, 0.1f, &found));
    EXPECT_EQ(Sorted(found), (std::vector<uint32_t>{2, 3}));  // the top face
    // Neighbours differ by at most a right angle, though the bottom faces away from the top.
    EXPECT_TRUE(LMeshFindFacetsByAngularDeviation(cube, 2, 1.6f, &found));
    EXPECT_EQ(Sorted(found), Range(12));
}

TEST(Border, BoundaryEdgesSeeOnlyTheSecondLinkWhileBorderFacetsSeeBoth)
{
    EXPECT_FALSE(LMeshHasBoundaryEdges(L_LUMOMESH()));
    EXPECT_TRUE(LMeshHasBoundaryEdges(testmesh::MakeTriangle()));
    L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> border;
    *border.At(0) = 99;
    EXPECT_FALSE(LMeshHasBoundaryEdges(cube));
    EXPECT_FALSE(LMeshFindBorderFacets(cube, &border));
    // The diagonal between facets 0 and 1 loses its first link and keeps its second.
    cube.edges.At(SideOf(cube, 0, 0, 2))->facet[0] = LM_NONE;
    EXPECT_FALSE(LMeshHasBoundaryEdges(cube));
    EXPECT_TRUE(LMeshFindBorderFacets(cube, &border));
    EXPECT_EQ(Ids(border), (std::vector<uint32_t>{99, 0, 1}));
}

TEST(Patches, TableByGroupAndFacetsOnceForEachForeignNeighbour)
{
    L_LUMOMESH grid = testmesh::MakeGrid(2, 2);
    for (uint32_t f = 0; f < 8; ++f) grid.facets.At(f)->groupId = f % 3;
    grid.facets.At(3)->flags = 0;
    BaseList<BaseList<uint32_t>> table;
    *table.At(4)->At(0) = 99;
    LMeshConstructFacetHashTable(grid, 2, table);  // group 2 has no entry
    ASSERT_EQ(table.count, 2u);
    EXPECT_EQ(Ids(*table.Peek(0)), (std::vector<uint32_t>{0, 6}));
    EXPECT_EQ(Ids(*table.Peek(1)), (std::vector<uint32_t>{1, 4, 7}));
    // Facet 0 alone in group 1: its neighbours 1 and 3 are both foreign.
    for (uint32_t f = 0; f < 8; ++f) grid.facets.At(f)->groupId = f == 0 ? 1 : 0;
    grid.facets.At(3)->flags = LM_LIVE;
    LMeshConstructFacetHashTable(grid, 2, table);
    BaseList<uint32_t> facets;
    LMeshGetBoundaryFacetsOfAPatch(grid, 1, facets, table);
    LMeshGetBoundaryFacetsOfAPatch(grid, 0, facets, table);
    EXPECT_EQ(Ids(facets), (std::vector<uint32_t>{0, 0, 1, 3}));
}

TEST(Patches, BoundaryEdgesOfAGroupFormOneSortedLoop)
{
    // Square 1 (facets 2, 3, corners 1, 2, 5, 4) is group 1, square 0 group 0; the
    // diagonal 1-5 lies inside group 1.
    L_LUMOMESH grid = testmesh::MakeGrid(2, 1);
    for (uint32_t f = 0; f < 4; ++f) grid.facets.At(f)->groupId = f / 2;
    BaseList<BaseList<uint32_t>> table;
    LMeshConstructFacetHashTable(grid, 2, table);
    BaseList<uint32_t> listed;
    *listed.At(0) = 2;
    *listed.At(1) = 3;
    const uint32_t group = 1;
    for (int route = 0; route < 3; ++route) {  // group alone, group and table, list alone
        BaseList<BaseList<uint32_t>> edges, vertices;
        LMeshGetBoundaryEdgesOfAPatch(grid, route < 2 ? &group : nullptr, route == 2 ? &listed : nullptr, edges,
                                      vertices, route == 1 ? &table : nullptr);
        ASSERT_EQ(edges.count, 1u) << "route " << route;
        EXPECT_EQ(edges.Peek(0)->count, 4u);
        std::vector<uint32_t> loop = Ids(*vertices.Peek(0));
        ASSERT_EQ(loop.size(), 5u);
        EXPECT_EQ(loop.front(), loop.back());
        loop.pop_back();
        std::sort(loop.begin(), loop.end());
        EXPECT_EQ(loop, (std::vector<uint32_t>{1, 2, 4, 5}));
    }
    // Against group 0 both listed facets report the diagonal; it is kept once.
    const uint32_t other = 0;
    BaseList<BaseList<uint32_t>> edges, vertices;
    LMeshGetBoundaryEdgesOfAPatch(grid, &other, &listed, edges, vertices, nullptr);
    uint32_t total = 0;
    for (uint32_t i = 0; i < edges.count; ++i) total += edges.Peek(i)->count;
    EXPECT_EQ(total, 4u);
}

TEST(Split, OneComponentIsACopyAndNoLiveFacetAddsNothing)
{
    BaseList<L_LUMOMESH> meshes;
    EXPECT_FALSE(LMeshSplitIntoConnectedMeshes(L_LUMOMESH(), meshes));
    L_LUMOMESH dead = testmesh::MakeTriangle();
    dead.facets.At(0)->flags = 0;
    EXPECT_FALSE(LMeshSplitIntoConnectedMeshes(dead, meshes));
    EXPECT_EQ(meshes.count, 0u);
    const L_LUMOMESH holed = testmesh::MakeMeshWithDeadSlots();
    EXPECT_TRUE(LMeshSplitIntoConnectedMeshes(holed, meshes));
    ASSERT_EQ(meshes.count, 1u);
    EXPECT_EQ(testmesh::Snapshot(*meshes.Peek(0)), testmesh::Snapshot(holed));
}

TEST(Split, ComponentsMatchThePeelingOneAtATime)
{
    // Interleaved ids: a tetrahedron (facets 0, 2, 4, 6), a strip (1, 3, 5, 7) and a
    // lone triangle (8). Strip facet 3 dies, and the edge 5-9 between strip facets 5
    // and 7 is dead though both live: the first deletion revives it, so the strip
    // comes off as one piece.
    L_LUMOMESH mesh = testmesh::FromIndexed(
        {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1,                      // tetrahedron 0-3
         5, 0, 0, 6, 0, 0, 7, 0, 0, 5, 1, 0, 6, 1, 0, 7, 1, 0,  // strip 4-9
         9, 9, 9, 10, 9, 9, 9, 10, 9},                          // triangle 10-12
        {0, 2, 1, 4, 5, 8, 0, 1, 3, 4, 8, 7, 1, 2, 3, 5, 6, 9, 0, 3, 2, 5, 9, 8, 10, 11, 12});
    BaseList<uint32_t> gone;
    *gone.At(0) = 3;
    LMeshDeleteFacets(mesh, gone);
    mesh.edges.At(SideOf(mesh, 5, 5, 9))->flags = 0;
    --mesh.edgeCount;

    std::vector<L_LUMOMESH> expected;
    ASSERT_TRUE(ReferenceSplit(mesh, expected));
    BaseList<L_LUMOMESH> meshes;
    ASSERT_TRUE(LMeshSplitIntoConnectedMeshes(mesh, meshes));
    ASSERT_EQ(meshes.count, 3u);
    ASSERT_EQ(expected.size(), 3u);
    const uint32_t facetCounts[3] = {4, 3, 1};
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(testmesh::Snapshot(*meshes.Peek(i)), testmesh::Snapshot(expected[i])) << "component " << i;
        EXPECT_EQ(meshes.Peek(i)->facetCount, facetCounts[i]);
        EXPECT_EQ(meshes.Peek(i)->facets.count, mesh.facets.count);
    }
}

TEST(Split, CorpusPartOfEightShells)
{
    const std::string path = "../shared/data/meshes/thingi88566_8parts_binary.stl";
    if (!std::ifstream(path)) GTEST_SKIP() << "mesh corpus not found: " << path;
    L_LUMOMESH mesh;
    ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &mesh));
    std::vector<L_LUMOMESH> expected;
    ReferenceSplit(mesh, expected);
    BaseList<L_LUMOMESH> meshes;
    ASSERT_TRUE(LMeshSplitIntoConnectedMeshes(mesh, meshes));
    ASSERT_EQ(meshes.count, 8u);
    for (uint32_t i = 0; i < meshes.count; ++i) {
        testmesh::ExpectMeshConsistent(*meshes.Peek(i));
        EXPECT_FALSE(LMeshHasBoundaryEdges(*meshes.Peek(i))) << "shell " << i;
        EXPECT_EQ(testmesh::Snapshot(*meshes.Peek(i)), testmesh::Snapshot(expected[i])) << "shell " << i;
    }
}
