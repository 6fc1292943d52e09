#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using testmesh::Ids;

namespace {

using Cells = BaseList<BaseList<uint32_t>>;
using Summary = std::vector<std::vector<double>>;

// Each box as {min x, max x, facet ids...}.
Summary Summarise(const BaseList<LM_BOX>& boxes)
{
    Summary result;
    for (uint32_t i = 0; i < boxes.count; ++i) {
        const LM_BOX& box = *boxes.Peek(i);
        result.push_back({box.bounds.min[0], box.bounds.max[0]});
        for (uint32_t f : Ids(box.facets)) result.back().push_back(f);
    }
    return result;
}

L_BOUNDSf Bounds(float x0, float y0, float z0, float x1, float y1, float z1) { return {{x0, y0, z0}, {x1, y1, z1}}; }

Summary NonUniform(const L_LUMOMESH& mesh, uint32_t limit)
{
    BaseList<LM_BOX> boxes(16, 512);
    LMeshBoxFacetsNonUniform(mesh, boxes, limit);
    return Summarise(boxes);
}

// The cell that the grid arithmetic gives a point, read through the edge query.
uint32_t CellOf(float x, float y, float z, const L_BOUNDSf& bounds, uint32_t n)
{
    const L_LUMOMESH mesh = testmesh::FromIndexed({x, y, z, 0, 0, 0, 0, 0, 0}, {0, 1, 2});
    Cells cells;
    BaseList<uint32_t> edges;
    uint32_t cell = 12345;
    LMeshQueryEdgeBox(mesh, bounds, 0, n, cells, cell, edges);
    return cell;
}

}  // namespace

TEST(BoxFacets, RegularGridRunsXFastestAndRewritesOnlyItsOwnBoxes)
{
    const L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<LM_BOX> boxes(16, 512);
    *boxes.At(5)->facets.At(0) = 42;
    LMeshBoxFacets(cube, 0, 2, 2, boxes);
    EXPECT_EQ(Summarise(boxes)[0], (std::vector<double>{DBL_MAX, -DBL_MAX}));

    LMeshBoxFacets(cube, 2, 2, 1, boxes);
    // Closed boxes: a face lying on a box wall touches it.
    EXPECT_EQ(Summarise(boxes), (Summary{{0, 0.5, 0, 1, 2, 3, 4, 5, 10, 11},
                                         {0.5, 1, 0, 1, 2, 3, 4, 5, 6, 7},
                                         {0, 0.5, 0, 1, 2, 3, 8, 9, 10, 11},
                                         {0.5, 1, 0, 1, 2, 3, 6, 7, 8, 9},
                                         {DBL_MAX, -DBL_MAX},
                                         {DBL_MAX, -DBL_MAX, 42}}));
}

TEST(BoxFacetsNonUniform, DeadFacetsStayInTheRootBoxOnly)
{
    // Up to the limit, one box over every slot: dead vertices (x up to 6) and facets too.
    const L_LUMOMESH dead = testmesh::MakeMeshWithDeadSlots();
    const Summary root = {{0, 6, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}};
    EXPECT_EQ(NonUniform(dead, 500), root);
    EXPECT_EQ(NonUniform(dead, 13), root);
    std::vector<int> seen(13, 0);
    for (const std::vector<double>& box : NonUniform(dead, 4))
        for (size_t i = 2; i < box.size(); ++i) ++seen[size_t(box[i])];
    for (uint32_t f = 0; f < 11; ++f) EXPECT_GT(seen[f], 0) << "live facet " << f;
    EXPECT_EQ(seen[11] + seen[12], 0);
}

TEST(BoxFacetsNonUniform, HalvesAtTheMiddleAndFinishesShallowBoxesFirst)
{
    // Square i of the strip holds facets 2i and 2i + 1 and spans x [i, i + 1].
    EXPECT_EQ(NonUniform(testmesh::MakeGrid(4, 1), 4), (Summary{{0, 1, 0, 1, 2, 3},
                                                               {3, 4, 4, 5, 6, 7},
                                                               {1, 1.5, 0, 1, 2, 3},
                                                               {1.5, 2, 2, 3, 4, 5},
                                                               {2, 2.5, 2, 3, 4, 5},
                                                               {2.5, 3, 4, 5, 6, 7}}));
}

TEST(BoxFacetsNonUniform, SplitsStopWhenNothingSeparatesAndDropEmptyHalves)
{
    // Every facet of the fan touches the centre, the middle of the box.
    EXPECT_EQ(NonUniform(testmesh::MakeClosedFan(), 2), (Summary{{-2, 2, 0, 1, 2, 3, 4, 5}}));
    // Facets 0 and 1 fill x [0, 0.5], facet 2 x [3, 4]: the half [1, 2] is empty.
    const L_LUMOMESH apart = testmesh::FromIndexed(
        {0, 0, 0, 0.5f, 0, 0, 0.5f, 1, 0, 0, 1, 0, 3, 0, 0, 4, 0, 0, 4, 1, 0}, {0, 1, 3, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(NonUniform(apart, 1), (Summary{{2, 4, 2}, {0, 1, 0, 1}}));
    // The middle of [0, inf] is inf: a child would equal its parent for ever.
    const float inf = std::numeric_limits<float>::infinity();
    const L_LUMOMESH infinite = testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, inf, 0, 0}, {0, 1, 2, 0, 3, 2});
    EXPECT_EQ(NonUniform(infinite, 1), (Summary{{0, inf, 0, 1}}));
}

TEST(BoxFacetsNonUniform, WideFacetsDoNotMultiplyTheBoxes)
{
    // Left alone, the halving would isolate each small triangle with all 600 slivers.
    const L_LUMOMESH soup = testmesh::MakeSliverSoup(600, 1500);
    BaseList<LM_BOX> boxes(16, 512), table(16, 512);
    LMeshBoxFacetsNonUniform(soup, boxes, 500);
    uint64_t ids = 0;
    for (uint32_t b = 0; b < boxes.count; ++b) ids += boxes.Peek(b)->facets.count;
    EXPECT_GT(boxes.count, 1u);
    EXPECT_LE(ids, 32u * soup.facets.count);

    // Facets whose boxes meet still share a box.
    LMeshBoxFacetsIndexTable(soup, boxes, table);
    std::vector<L_BOUNDS> bounds(soup.facets.count);
    for (uint32_t f = 0; f < soup.facets.count; ++f) ComputeFacetBounds(soup, *soup.facets.Peek(f), bounds[f]);
    uint32_t meeting = 0;
    for (uint32_t f = 0; f < soup.facets.count; f += 7) {
        const std::vector<uint32_t> cells = Ids(table.Peek(f)->facets);
        for (uint32_t g = 0; g < soup.facets.count; ++g) {
            short overlap = 0;
            check_bb_overlapping(bounds[f], bounds[g], &overlap);
            if (!overlap) continue;
            ++meeting;
            const std::vector<uint32_t> other = Ids(table.Peek(g)->facets);
            EXPECT_TRUE(std::find_first_of(cells.begin(), cells.end(), other.begin(), other.end()) != cells.end())
                << f << " and " << g;
        }
    }
    EXPECT_GT(meeting, 1000u);
}

TEST(BoxFacetsIndexTable, ListsTheBoxesOfEachFacetInOrder)
{
    const L_LUMOMESH strip = testmesh::MakeGrid(4, 1);  // the six boxes of the halving test above
    BaseList<LM_BOX> boxes(16, 512), table(16, 512);
    LMeshBoxFacetsNonUniform(strip, boxes, 4);
    *boxes.At(1)->facets.At(4) = 99;  // past the store: skipped
    *table.At(2)->facets.At(0) = 7;   // a reused table keeps nothing of its past
    EXPECT_EQ(LMeshBoxFacetsIndexTable(strip, boxes, table), 0);
    ASSERT_EQ(table.count, 8u);
    EXPECT_EQ(Ids(table.Peek(2)->facets), (std::vector<uint32_t>{0, 2, 3, 4}));
    EXPECT_EQ(Ids(table.Peek(7)->facets), (std::vector<uint32_t>{1, 5}));
}

TEST(CellGrid, CellArithmetic)
{
    // x wholly negative, so measured from its maximum; z flat, so every z is cell 0.
    const L_BOUNDSf negative = Bounds(-4, 0, 0, -1, 3, 0);
    EXPECT_EQ(CellOf(-1, 0, 0, negative, 4), 0u);
    EXPECT_EQ(CellOf(-2, 3, 0, negative, 4), 13u);
    EXPECT_EQ(CellOf(-1, -1, 5, negative, 4), 4u);  // near-side overrun folds back to cell 1
    // Crossing zero: measured from the minimum; the far corner is the last cell.
    const L_BOUNDSf crossing = Bounds(-1, -1, -1, 2, 2, 2);
    EXPECT_EQ(CellOf(2, 2, 2, crossing, 4), 63u);
    EXPECT_EQ(CellOf(1, 1, 1, Bounds(0, 0, 0, 1, 1, 1), 1), 0u);
    EXPECT_EQ(CellOf(1e10f, 0, 0, Bounds(0, 0, 0, 1, 1, 1), 2), LM_NONE);  // past a 32-bit cell number
}

TEST(CellGrid, VerticesAreListedOnceAndStraysLeftOut)
{
    // The dead vertices at (5, 5, 5), (6, 5, 5) and (5, 6, 5) would be in cells 42, 43, 46.
    Cells cells;
    ASSERT_TRUE(LMeshBoxVertices(testmesh::MakeMeshWithDeadSlots(), 4, Bounds(0, 0, 0, 6, 6, 6), cells));
    EXPECT_EQ(Ids(*cells.Peek(0)), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(cells.Peek(42)->count + cells.Peek(43)->count + cells.Peek(46)->count, 0u);

    // n = 2 over [0, 0.5]^3: vertex 1 spills into the next row; the apex, vertex 3,
    // lies past the last layer, is left out of the vertex grid and fails the edge grid.
    const L_LUMOMESH tetra = testmesh::MakeTetrahedron();
    const L_BOUNDSf small = Bounds(0, 0, 0, 0.5f, 0.5f, 0.5f);
    ASSERT_TRUE(LMeshBoxVertices(tetra, 2, small, cells));
    EXPECT_EQ(Ids(*cells.Peek(0)), (std::vector<uint32_t>{0}));
    EXPECT_EQ(Ids(*cells.Peek(2)), (std::vector<uint32_t>{1}));
    EXPECT_EQ(Ids(*cells.Peek(4)), (std::vector<uint32_t>{2}));
    EXPECT_FALSE(LMeshBoxEdges(tetra, 2, small, cells));
    BaseList<uint32_t> edges;
    uint32_t cell = 0;
    EXPECT_FALSE(LMeshQueryEdgeBox(tetra, small, 3, 2, cells, cell, edges));
    EXPECT_EQ(cell, 8u);
    EXPECT_FALSE(LMeshBoxVertices(tetra, 1626, small, cells));  // 1626^3 > 2^32
}

TEST(CellGrid, EdgesAreListedOncePerSample)
{
    // n = 2 over the unit cube: corners 0, 1, 2 of the triangle lie in cells 0, 1, 2;
    // every quarter, middle and three-quarter sample in cell 0. Edges: (0,1) (1,2) (0,2).
    const L_LUMOMESH triangle = testmesh::MakeTriangle();
    const L_BOUNDSf unit = Bounds(0, 0, 0, 1, 1, 1);
    Cells cells;
    ASSERT_TRUE(LMeshBoxEdges(triangle, 2, unit, cells));
    EXPECT_EQ(Ids(*cells.Peek(0)), (std::vector<uint32_t>{0, 0, 0, 0, 1, 1, 1, 2, 2, 2, 2}));
    EXPECT_EQ(Ids(*cells.Peek(1)), (std::vector<uint32_t>{0, 1}));

    BaseList<uint32_t> edges;
    uint32_t cell = 0;
    EXPECT_TRUE(LMeshQueryEdgeBox(triangle, unit, 2, 2, cells, cell, edges));
    EXPECT_EQ(cell, 2u);
    EXPECT_EQ(Ids(edges), (std::vector<uint32_t>{1, 2}));
    EXPECT_FALSE(LMeshQueryEdgeBox(triangle, unit, 3, 2, cells, cell, edges));  // no vertex 3
}

TEST(CellGrid, VertexQueryGathersAroundEveryListedVertex)
{
    // n = 3 over the hexagon: the centre, vertex 0, is alone in cell 4.
    const L_LUMOMESH fan = testmesh::MakeClosedFan();
    const L_BOUNDSf bounds = Bounds(-2, -1.732f, 0, 2, 1.732f, 0);
    Cells cells, none;
    ASSERT_TRUE(LMeshBoxVertices(fan, 3, bounds, cells));
    BaseList<uint32_t> aroundFacets, aroundEdges, facets, edges;
    LMeshGetFacetsAndEdgesAroundVertex(fan, 0, aroundFacets, aroundEdges);
    uint32_t cell = 0;
    EXPECT_TRUE(LMeshQueryVertexBox(fan, bounds, 0, 3, cells, cell, &facets, &edges));
    EXPECT_EQ(cell, 4u);
    EXPECT_EQ(Ids(facets), Ids(aroundFacets));
    EXPECT_EQ(Ids(edges), Ids(aroundEdges));

    EXPECT_FALSE(LMeshQueryVertexBox(fan, bounds, 7, 3, cells, cell, &facets, &edges));  // no vertex 7
    EXPECT_FALSE(LMeshQueryVertexBox(fan, bounds, 0, 3, none, cell, &facets, &edges));  // cell past the grid
}
