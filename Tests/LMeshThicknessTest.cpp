#include "LMesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "TestMeshes.h"

namespace {

// The unit cube of TestMeshes.h stretched to sx by sy by sz: facets 0-3 are the
// bottom and top, 4-11 the four sides.
L_LUMOMESH MakeBox(float sx, float sy, float sz)
{
    std::vector<float> coords = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
    for (size_t i = 0; i < coords.size(); i += 3) {
        coords[i] *= sx;
        coords[i + 1] *= sy;
        coords[i + 2] *= sz;
    }
    return testmesh::FromIndexed(coords, {0, 2, 1, 0, 3, 2, 4, 5, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4,
                                          1, 2, 6, 1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7});
}

// A closed slab [0,n] x [0,n] x [0,1], wound outward, every face cut into unit squares
// of two facets: the bottom's 2 n n facets first (ids 0 .. 2 n n - 1), then the top's,
// then the sides'. Vertex (i, j, k) is k (n+1)^2 + j (n+1) + i.
L_LUMOMESH MakeSlab(int n)
{
    std::vector<float> coords;
    for (int k = 0; k <= 1; ++k)
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i) coords.insert(coords.end(), {float(i), float(j), float(k)});
    auto v = [n](int i, int j, int k) { return k * (n + 1) * (n + 1) + j * (n + 1) + i; };
    std::vector<int> ids;
    auto quad = [&ids](int a, int b, int c, int d) { ids.insert(ids.end(), {a, b, c, a, c, d}); };
    for (int k = 0; k <= 1; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                if (k == 0) quad(v(i, j, 0), v(i, j + 1, 0), v(i + 1, j + 1, 0), v(i + 1, j, 0));
                else quad(v(i, j, 1), v(i + 1, j, 1), v(i + 1, j + 1, 1), v(i, j + 1, 1));
            }
    for (int i = 0; i < n; ++i) {
        quad(v(i, 0, 0), v(i + 1, 0, 0), v(i + 1, 0, 1), v(i, 0, 1));          // y = 0
        quad(v(i + 1, n, 0), v(i, n, 0), v(i, n, 1), v(i + 1, n, 1));          // y = n
        quad(v(0, i + 1, 0), v(0, i, 0), v(0, i, 1), v(0, i + 1, 1));          // x = 0
        quad(v(n, i, 0), v(n, i + 1, 0), v(n, i + 1, 1), v(n, i, 1));          // x = n
    }
    return testmesh::FromIndexed(coords, ids);
}

BaseList<uint32_t> AllFacets(const L_LUMOMESH& mesh)
{
    BaseList<uint32_t> ids;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) *ids.At(f) = f;
    return ids;
}

template <class T>
std::vector<T> Values(const BaseList<T>& list)
{
    std::vector<T> values;
    for (uint32_t i = 0; i < list.count; ++i) values.push_back(*list.Peek(i));
    return values;
}

struct Result {
    int returned = 0;
    std::vector<float> radius, contact;
    std::vector<uint32_t> opposite;
};

Result ShortForm(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets)
{
    BaseList<float> radius, contact;
    BaseList<uint32_t> opposite;
    Result result;
    result.returned = LMeshComputeThickness(mesh, facets, radius, opposite, contact, 0.0);
    result.radius = Values(radius);
    result.contact = Values(contact);
    result.opposite = Values(opposite);
    return result;
}

Result ShortForm(const L_LUMOMESH& mesh) { return ShortForm(mesh, AllFacets(mesh)); }

Result FullForm(const L_LUMOMESH& mesh, LM_THICKNESS_PARAMS& params)
{
    BaseList<float> radius, contact;
    BaseList<uint32_t> opposite;
    Result result;
    result.returned = LMeshComputeThickness(mesh, radius, opposite, contact, params, nullptr, nullptr);
    result.radius = Values(radius);
    result.contact = Values(contact);
    result.opposite = Values(opposite);
    return result;
}

// Balls stop within the 0.9999 ratio of touching, so radii are near, not exact.
constexpr float kNear = 1e-3f;

}  // namespace

TEST(Thickness, EmptyAndDegenerateMeshesGiveNoBall)
{
    const L_LUMOMESH empty;
    EXPECT_TRUE(ShortForm(empty).radius.empty());
    LM_THICKNESS_PARAMS params;
    EXPECT_EQ(FullForm(empty, params).returned, 1);

    // Three corners on one line, and a lone triangle with nothing across it.
    for (const L_LUMOMESH& mesh : {testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 2, 0, 0}, {0, 1, 2}),
                                   testmesh::MakeTriangle()}) {
        const Result result = ShortForm(mesh);
        ASSERT_EQ(result.radius.size(), 1u);
        EXPECT_EQ(result.radius[0], -1.0f);
        EXPECT_EQ(result.contact[0], 0.0f);
    }
    // An id past the store has no ball.
    BaseList<uint32_t> listed;
    *listed.At(0) = 99;
    const Result past = ShortForm(MakeBox(1, 1, 1), listed);
    EXPECT_EQ(past.radius, std::vector<float>{-1.0f});
    EXPECT_EQ(past.opposite, std::vector<uint32_t>{LM_NONE});
}

// A triangle's centroid lies a third of the way across its face, so the ball that
// touches it there meets the nearer side wall first: radius s/3 on a cube of side s.
TEST(Thickness, CubeBallsReachTheNearestSideWall)
{
    const Result result = ShortForm(MakeBox(2, 2, 2));
    EXPECT_EQ(result.returned, 1);
    ASSERT_EQ(result.radius.size(), 12u);
    for (uint32_t f = 0; f < 12; ++f) {
        EXPECT_NEAR(result.radius[f], 2.0f / 3.0f, kNear) << f;
        EXPECT_LT(result.opposite[f], 12u);
        // Centroid (1/3 across) to the contact on the side wall, a radius up and over.
        EXPECT_NEAR(result.contact[f], std::sqrt(2.0f) * 2.0f / 3.0f, kNear) << f;
    }
}

TEST(Thickness, PlateBallsSpanItsThickness)
{
    const Result result = ShortForm(MakeBox(10, 10, 1));
    EXPECT_EQ(result.returned, 100);  // a hundred cubes of the plate's thickness fill its box
    for (uint32_t f = 0; f < 4; ++f) {
        EXPECT_NEAR(result.radius[f], 0.5f, kNear) << f;
        EXPECT_NEAR(result.contact[f], 1.0f, kNear) << f;  // straight across
        EXPECT_LT(result.opposite[f], 4u);                   // the other big face
    }
    for (uint32_t f = 4; f < 12; ++f) EXPECT_NEAR(result.radius[f], 1.0f / 3.0f, kNear) << f;
}

TEST(Thickness, RayCrossesToTheOppositeWall)
{
    LM_THICKNESS_PARAMS params;
    params.useRay = 1;
    FullForm(MakeBox(10, 10, 1), params);
    const std::vector<float> rays = Values(params.rayThickness);
    ASSERT_EQ(rays.size(), 12u);
    for (uint32_t f = 0; f < 4; ++f) EXPECT_NEAR(rays[f], 1.0f, 1e-4f) << f;    // across the plate
    for (uint32_t f = 4; f < 12; ++f) EXPECT_NEAR(rays[f], 10.0f, 1e-3f) << f;  // along it, side to side
}

TEST(Thickness, OpenSheetHasNoBall)
{
    const Result result = ShortForm(testmesh::MakeGrid(3, 3));
    ASSERT_EQ(result.radius.size(), 18u);
    EXPECT_EQ(result.radius, std::vector<float>(18, -1.0f));
    EXPECT_EQ(result.contact, std::vector<float>(18, 0.0f));
    EXPECT_EQ(result.opposite, std::vector<uint32_t>(18, LM_NONE));
}

// The unit cube with a vertex 0.002 from corner 5 on the edge 5-6: the top facet
// (4, 5, 8) and the side facet (1, 8, 5) are needles. The top needle borrows from its
// flat neighbour (4, 8, 6), facet 3, not from the needle across 5-8 or the side across 4-5.
TEST(Thickness, NeedleTakesItsFlatNeighboursValues)
{
    const L_LUMOMESH mesh = testmesh::FromIndexed(
        {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1, 1, 0.002f, 1},
        {0, 2, 1, 0, 3, 2, 4, 5, 8, 4, 8, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4,
         1, 2, 6, 1, 6, 8, 1, 8, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7});
    const Result result = ShortForm(mesh);
    EXPECT_EQ(result.radius[2], result.radius[3]);
    EXPECT_EQ(result.opposite[2], result.opposite[3]);
    EXPECT_EQ(result.contact[2], result.contact[3]);
    EXPECT_NEAR(result.radius[3], 1.0f / 3.0f, kNear);
}

TEST(Thickness, ParityCheckOnAnInvertedMeshChangesNothing)
{
    LM_THICKNESS_PARAMS plain;
    const Result expected = FullForm(MakeBox(10, 10, 1), plain);
    L_LUMOMESH inverted = MakeBox(10, 10, 1);
    LMeshReverseFacets(inverted, nullptr);
    LM_THICKNESS_PARAMS checked;
    checked.percentage = 250.0;  // counts as 100
    const Result result = FullForm(inverted, checked);
    EXPECT_EQ(result.radius, expected.radius);
    EXPECT_EQ(result.opposite, expected.opposite);
    EXPECT_EQ(result.contact, expected.contact);
}

// The clearance to a second mesh: a sheet inside the slab at z = 0.4. Facets amid the
// slab's flat faces (all neighbours parallel) stop on it; those along the rim, whose
// neighbours turn, stop on the slab itself.
TEST(Thickness, FlatStretchesStopOnTheSecondMesh)
{
    const L_LUMOMESH slab = MakeSlab(4);
    LM_THICKNESS_PARAMS params;
    params.mesh = testmesh::MakeGrid(4, 4);
    const float lift[3] = {0.0f, 0.0f, 0.4f};
    LMeshTranslate(params.mesh, lift, nullptr);
    const Result result = FullForm(slab, params);
    const uint32_t amidBottom = 2 * (1 * 4 + 1), amidTop = 32 + 2 * (2 * 4 + 2), rim = 0;
    EXPECT_NEAR(result.radius[amidBottom], 0.2f, kNear);
    EXPECT_NEAR(result.radius[amidTop], 0.3f, kNear);
    EXPECT_LT(result.opposite[amidBottom], params.mesh.facets.count);
    EXPECT_NEAR(result.radius[rim], 1.0f / 3.0f, kNear);
}

class ThicknessProgress : public TempFilesTest {};

// The file is rewritten on every facet but those at a multiple of count / 100, so up
// to 199 facets (a step of 1) it stays empty.
TEST_F(ThicknessProgress, WrittenOnlyFromTwoHundredFacets)
{
    LM_THICKNESS_PARAMS params;
    for (const L_LUMOMESH& mesh : {MakeBox(1, 1, 1), MakeSlab(6)}) {  // 12 and 192 facets
        const std::wstring empty = Path("progress_empty");
        wcsncpy(params.progressFile, empty.c_str(), 511);
        FullForm(mesh, params);
        EXPECT_TRUE(ReadFileBytes(empty).empty());
        EXPECT_TRUE(std::ifstream(std::string(empty.begin(), empty.end())).good());  // created all the same
    }
    // 252 facets, step 2: the last facet written is 251, leaving 251 * 100 / 252.
    const std::wstring large = Path("progress_large");
    wcsncpy(params.progressFile, large.c_str(), 511);
    FullForm(MakeSlab(7), params);
    const std::vector<unsigned char> bytes = ReadFileBytes(large);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "99");

    LM_THICKNESS_PARAMS plain, unopenable;
    wcsncpy(unopenable.progressFile, L"/nonexistent-folder/progress", 511);
    EXPECT_EQ(FullForm(MakeSlab(6), unopenable).radius, FullForm(MakeSlab(6), plain).radius);
}

// On the box's side facets the ball meets the big faces, which lie at a right angle.
TEST(ThicknessFilters, AngleFilterDropsPairsThatDoNotFace)
{
    LM_THICKNESS_PARAMS params;
    params.applyFilter = 1;
    params.angle = 100.0;      // a right angle is too near: the cube's pairs are all dropped
    params.smoothAngle = 30.0; // and no neighbour lies near enough in direction to refill them
    const Result cube = FullForm(MakeBox(1, 1, 1), params);
    EXPECT_EQ(cube.radius, std::vector<float>(12, 0.0f));
    EXPECT_EQ(cube.opposite, std::vector<uint32_t>(12, LM_NONE));

    params.smoothAngle = -1.0;  // any neighbour: the plate's sides refill from its big faces
    const Result plate = FullForm(MakeBox(10, 10, 1), params);
    for (uint32_t f = 0; f < 12; ++f) EXPECT_NEAR(plate.radius[f], 0.5f, kNear) << f;
}

TEST(ThicknessFilters, ClampsHoldBothFacetsOfAPair)
{
    LM_THICKNESS_PARAMS params;
    params.applyFilter = 1;
    params.angle = 45.0;
    params.maxThickness = 0.45f / 1000.0f;
    const Result capped = FullForm(MakeBox(10, 10, 1), params);
    for (uint32_t f = 0; f < 4; ++f) EXPECT_EQ(capped.radius[f], float(params.maxThickness * 1000.0)) << f;
    EXPECT_NEAR(capped.radius[4], 1.0f / 3.0f, kNear);

    // Raised sides raise the big faces they stop on as well.
    params.maxThickness = 1.0f;
    params.minThickness = 0.4f / 1000.0f;
    const Result raised = FullForm(MakeBox(10, 10, 1), params);
    EXPECT_EQ(raised.radius, std::vector<float>(12, float(params.minThickness * 1000.0)));
}

// A real part read by hand: the plate's box is 12.7 high, its flat faces are walls of
// that thickness, and they hold most of its area.
TEST(Thickness, MachinedPlateIsAsThickAsItsBox)
{
    const std::string path = "../shared/data/meshes/plate_holes_binary.stl";
    if (!std::ifstream(path)) GTEST_SKIP() << "mesh corpus not found: " << path;
    L_LUMOMESH part;
    ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &part));
    LMeshComputeAbsoluteBoundingBox(part);
    const float wall = part.bboxMax[2] - part.bboxMin[2];
    ASSERT_NEAR(wall, 12.7f, 1e-4f);

    LM_THICKNESS_PARAMS params;
    params.applyFilter = params.applyHistogram = params.applyGapFill = 1;
    for (const Result& result : {ShortForm(part), FullForm(part, params)}) {
        double area = 0.0, atWall = 0.0, flat = 0.0, flatAtWall = 0.0;
        for (uint32_t f = 0; f < part.facets.count; ++f) {
            const double a = LMeshTriangleArea(part, f);
            const bool full = std::fabs(2.0f * result.radius[f] - wall) < 0.02f;
            const bool isFlat = std::fabs(part.facets.Peek(f)->normal[2]) > 0.99f;
            area += a;
            atWall += full ? a : 0.0;
            flat += isFlat ? a : 0.0;
            flatAtWall += isFlat && full ? a : 0.0;
        }
        EXPECT_GT(atWall / area, 0.85);
        EXPECT_GT(flatAtWall / flat, 0.99);
    }
}
