#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "LMesh.h"
#include "LMeshPlane.h"
#include "TestMeshes.h"

namespace {

L_LUMOMESH BoxedCube()
{
    L_LUMOMESH cube = testmesh::MakeCube();
    LMeshComputeAbsoluteBoundingBox(cube);
    return cube;
}

std::vector<uint32_t> IdsOf(const BaseList<uint32_t>& list)
{
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < list.count; ++i) ids.push_back(*list.Peek(i));
    return ids;
}

double SignedDistance(const L_POINT& p, const L_PLANE& plane)
{
    const double length = std::sqrt(plane.normal.x * plane.normal.x + plane.normal.y * plane.normal.y +
                                    plane.normal.z * plane.normal.z);
    return ((p.x - plane.point.x) * plane.normal.x + (p.y - plane.point.y) * plane.normal.y +
            (p.z - plane.point.z) * plane.normal.z) /
           length;
}

void ExpectEndsOnPlane(const List<L_ELEMENT>& elements, const L_PLANE& plane, double tolerance)
{
    for (uint32_t i = 1; i <= elements.Size(); ++i) {
        L_POINT start, end;
        ASSERT_EQ(elements.Get(i)->get_start_end_point(&start, &end), 0);
        EXPECT_NEAR(SignedDistance(start, plane), 0.0, tolerance) << "element " << i;
        EXPECT_NEAR(SignedDistance(end, plane), 0.0, tolerance) << "element " << i;
    }
}

void ExpectAllChainsClosed(const List<L_ELEMENT>& elements, double tolerance)
{
    List<Connected_Set_Of_Elements> sets;
    ASSERT_EQ(create_connected_sets_of_elements(elements, tolerance, &sets), 0);
    ASSERT_GT(sets.Size(), 0u);
    for (uint32_t i = 1; i <= sets.Size(); ++i) EXPECT_EQ(sets.Get(i)->closed, 1) << "chain " << i;
}

const L_PLANE kMidHeight = {{0.3, 0.4, 0.5}, {0.0, 0.0, 2.0}};

}  // namespace

TEST(PlaneSection, CubeAtMidHeightGivesOneSegmentPerSideFacetInFacetOrder)
{
    const L_LUMOMESH cube = BoxedCube();
    List<L_ELEMENT> raw;
    BaseList<uint32_t> facets;
    ASSERT_TRUE(LMeshPlaneSection(cube, kMidHeight, raw, 0, 1e-6, &facets));
    EXPECT_EQ(IdsOf(facets), (std::vector<uint32_t>{4, 5, 6, 7, 8, 9, 10, 11}));
    ASSERT_EQ(raw.Size(), 8u);
    for (uint32_t i = 1; i <= raw.Size(); ++i) EXPECT_EQ(raw.Get(i)->TypeGet(), L_ELEMENT_LINE);
    ExpectEndsOnPlane(raw, kMidHeight, 0.0);
    // Facet 4 is (0,1,5) on the front: it is cut from its edge 0-5 to its edge 1-5.
    const L_SEGM first = raw.Get(1)->Segment();
    const double xs[2] = {std::fmin(first.start.x, first.end.x), std::fmax(first.start.x, first.end.x)};
    EXPECT_DOUBLE_EQ(xs[0], 0.5);
    EXPECT_DOUBLE_EQ(xs[1], 1.0);
    EXPECT_DOUBLE_EQ(first.start.y, 0.0);
}

TEST(PlaneSection, CubeChainedReducesToTheFourSidesOfTheSquare)
{
    const L_LUMOMESH cube = BoxedCube();
    List<L_ELEMENT> chained;
    ASSERT_TRUE(LMeshPlaneSection(cube, kMidHeight, chained, 1, 1e-6, nullptr));
    ASSERT_EQ(chained.Size(), 4u);
    for (uint32_t i = 1; i <= chained.Size(); ++i) {
        ASSERT_EQ(chained.Get(i)->TypeGet(), L_ELEMENT_LINE);
        const L_SEGM side = chained.Get(i)->Segment();
        EXPECT_NEAR(dist_PP(&side.start, &side.end), 1.0, 1e-12);
    }
    ExpectEndsOnPlane(chained, kMidHeight, 0.0);
    ExpectAllChainsClosed(chained, 1e-9);
}

TEST(PlaneSection, NoElementMeansFalseButTouchingFacetsAreListed)
{
    const L_LUMOMESH cube = BoxedCube();
    List<L_ELEMENT> elements;
    BaseList<uint32_t> facets;
    EXPECT_FALSE(LMeshPlaneSection(cube, {{0, 0, 2}, {0, 0, 1}}, elements, 0, 1e-6, &facets));
    EXPECT_EQ(elements.Size(), 0u);
    EXPECT_EQ(facets.count, 0u);

    // Through corner 6 (1,1,1) only: the facets around it touch in one point each.
    EXPECT_FALSE(LMeshPlaneSection(cube, {{1, 1, 1}, {1, 1, 1}}, elements, 1, 1e-6, &facets));
    EXPECT_EQ(elements.Size(), 0u);
    EXPECT_EQ(IdsOf(facets), (std::vector<uint32_t>{2, 3, 6, 7, 9}));

    facets.Clear();
    EXPECT_FALSE(LMeshPlaneSection(cube, {{0.5, 0.5, 0.5}, {0, 0, 0}}, elements, 0, 1e-6, &facets));
    EXPECT_EQ(facets.count, 0u);
}

TEST(PlaneSection, DeadFacetsCountWhileBadCornersAndNaNGiveNothing)
{
    L_LUMOMESH cube = BoxedCube();
    cube.facets.At(5)->flags &= uint8_t(~LM_LIVE);
    cube.facets.At(4)->vertex[0] = 100000;  // a corner past the vertex store
    cube.vertices.At(3)->position[0] = NAN;  // facets 8, 10 and 11 use vertex 3
    List<L_ELEMENT> raw;
    BaseList<uint32_t> facets;
    ASSERT_TRUE(LMeshPlaneSection(cube, kMidHeight, raw, 0, 1e-6, &facets));
    EXPECT_EQ(IdsOf(facets), (std::vector<uint32_t>{5, 6, 7, 9}));
    EXPECT_EQ(raw.Size(), 4u);
}

TEST(PlaneSection, TiltedCutThroughRealPartLiesOnThePlaneInClosedChains)
{
    const std::string path = "../shared/data/meshes/plate_holes_binary.stl";
    if (!std::ifstream(path)) GTEST_SKIP() << "mesh corpus not found: " << path;
    L_LUMOMESH part;
    ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &part));
    LMeshComputeAbsoluteBoundingBox(part);
    const L_PLANE plane = {{(part.bboxMin[0] + part.bboxMax[0]) * 0.5, (part.bboxMin[1] + part.bboxMax[1]) * 0.5,
                            (part.bboxMin[2] + part.bboxMax[2]) * 0.5},
                           {0.31, -0.17, 0.93}};
    // Pieces up to 1000 times zefatoll.length are dropped, leaving gaps that small.
    const double tolerance = 2000.0 * zefatoll.length;
    List<L_ELEMENT> raw, chained;
    BaseList<uint32_t> facets;
    ASSERT_TRUE(LMeshPlaneSection(part, plane, raw, 0, tolerance, &facets));
    EXPECT_LE(raw.Size(), facets.count);
    ExpectEndsOnPlane(raw, plane, 1e-9);
    ExpectAllChainsClosed(raw, tolerance);

    ASSERT_TRUE(LMeshPlaneSection(part, plane, chained, 1, tolerance, nullptr));
    EXPECT_LT(chained.Size(), raw.Size());
    ExpectEndsOnPlane(chained, plane, 1e-9);
    ExpectAllChainsClosed(chained, tolerance);
}

// The block-skipping cutter gives exactly the plain section's lines, in the same order,
// for planes at every angle and place, also through corners, edges and a NaN vertex.
TEST(PlaneSection, BlockSectionEqualsThePlainSection)
{
    const std::string path = "../shared/data/meshes/plate_holes_binary.stl";
    if (!std::ifstream(path)) GTEST_SKIP() << "mesh corpus not found: " << path;
    L_LUMOMESH part;
    ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &part));
    LMeshComputeAbsoluteBoundingBox(part);
    part.vertices.At(7)->position[1] = NAN;
    const FacetBlockSection blocks(part);
    uint32_t seed = 12345;
    auto next = [&seed] { return (seed = seed * 1664525u + 1013904223u) / 4294967296.0; };
    for (int i = 0; i < 60; ++i) {
        // Half the planes pass through a vertex, with an axis-aligned normal every third time.
        const LM_VERTEX& vertex = *part.vertices.Peek(uint32_t(next() * part.vertices.count));
        L_PLANE plane = {{vertex.position[0], vertex.position[1], vertex.position[2]},
                         {next() - 0.5, next() - 0.5, next() - 0.5}};
        if (i % 2) plane.point = {part.bboxMin[0] + next() * 60, part.bboxMin[1] + next() * 60, next() * 20};
        if (i % 3 == 0) plane.normal = {0, 0, 1};
        List<L_ELEMENT> plain, blocked;
        EXPECT_EQ(LMeshPlaneSection(part, plane, plain, 0, 1e-6, nullptr), blocks.Section(plane, blocked)) << i;
        ASSERT_EQ(plain.Size(), blocked.Size()) << i;
        for (uint32_t k = 1; k <= plain.Size(); ++k) {
            const L_SEGM &a = plain.Get(k)->Segment(), &b = blocked.Get(k)->Segment();
            EXPECT_TRUE(a.start.x == b.start.x && a.start.y == b.start.y && a.start.z == b.start.z &&
                        a.end.x == b.end.x && a.end.y == b.end.y && a.end.z == b.end.z)
                << i << " " << k;
        }
    }
}
