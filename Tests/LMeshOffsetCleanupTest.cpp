#include "LMesh.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <stdlib.h>
#include <unistd.h>

#include "TestFiles.h"
#include "TestMeshes.h"

namespace {

const char kTemporaryName[] = "_templmeshoffsetcleanup28092009_.stl";

bool FileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }
std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// Every facet slot, after `first` ones: the walk tests neighbours, never its seed,
// so a seed must be a facet that crosses nothing.
BaseList<uint32_t> Seeds(const L_LUMOMESH& mesh, std::vector<uint32_t> first)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f) first.push_back(f);
    BaseList<uint32_t> seeds;
    for (uint32_t f : first) *seeds.At(seeds.count) = f;
    return seeds;
}

// The unit cube and a copy moved by (0.5, 0.3, 0.2) in one mesh: a closed shape whose
// two sheets cross as an offset's do at an inward corner. (LMeshOffset itself moves the
// inner corner of an L-shaped block exactly onto both offset sides, so it crosses
// nothing.) Facets 10 (x = 0) and 18 (x = 1.5) cross nothing.
L_LUMOMESH MakeOverlappingCubes()
{
    L_LUMOMESH first = testmesh::MakeCube(), second = testmesh::MakeCube();
    std::vector<float> coords;
    std::vector<int> indices;
    for (const L_LUMOMESH* cube : {&first, &second}) {
        const int base = int(coords.size() / 3);
        const float shift[3] = {cube == &first ? 0.0f : 0.5f, cube == &first ? 0.0f : 0.3f,
                                cube == &first ? 0.0f : 0.2f};
        for (uint32_t v = 0; v < cube->vertices.count; ++v)
            for (int c = 0; c < 3; ++c) coords.push_back(cube->vertices.Peek(v)->position[c] + shift[c]);
        for (uint32_t f = 0; f < cube->facets.count; ++f)
            for (int k = 0; k < 3; ++k) indices.push_back(base + int(cube->facets.Peek(f)->vertex[k]));
    }
    return testmesh::FromIndexed(coords, indices);
}

uint32_t CountCrossings(L_LUMOMESH& mesh)
{
    BaseList<uint32_t> found;
    LMeshDeleteIntersections(mesh, 1e-4f, 1e-5f, nullptr, &found, false);
    return found.count;
}

// Each test gets a folder of its own: the cleanup's temporary file has a fixed name, and
// tests run in parallel processes.
class CleanUpAfterOffset : public TempFilesTest {
protected:
    void SetUp() override
    {
        std::string pattern = ::testing::TempDir() + "lmesh_oc_XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        folder = pattern + "/";
    }

    void TearDown() override
    {
        TempFilesTest::TearDown();
        std::filesystem::remove_all(folder);
    }

    std::string folder;
};

}  // namespace

TEST_F(CleanUpAfterOffset, NoSeedsStillWeldsASoupIntoOneClosedCube)
{
    const L_LUMOMESH cube = testmesh::MakeCube();
    L_LUMOMESH soup;
    for (uint32_t f = 0; f < cube.facets.count; ++f) {
        float corners[3][3];
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c)
                corners[k][c] = cube.vertices.Peek(cube.facets.Peek(f)->vertex[k])->position[c];
        LMeshAddTriangle(soup, corners[0], corners[1], corners[2], 0);
    }
    RecountFacets(soup);
    ASSERT_EQ(LMeshCleanUpAfterOffset(soup, BaseList<uint32_t>(), Wide(folder).c_str()), 0);
    EXPECT_EQ(soup.facetCount, 12u);
    EXPECT_EQ(soup.vertexCount, 8u);
    EXPECT_TRUE(testmesh::FreeEdges(soup).empty());
    EXPECT_FLOAT_EQ(LMeshComputeVolume(soup), 1.0f);
    EXPECT_FALSE(FileExists(folder + kTemporaryName));
}

TEST_F(CleanUpAfterOffset, CrossingSheetsAreCutToTheirOuterParts)
{
    L_LUMOMESH mesh = MakeOverlappingCubes();
    ASSERT_GT(CountCrossings(mesh), 0u);
    ASSERT_EQ(LMeshCleanUpAfterOffset(mesh, Seeds(mesh, {10, 18}), Wide(folder).c_str()), 0);
    EXPECT_EQ(CountCrossings(mesh), 0u);
    EXPECT_TRUE(testmesh::FreeEdges(mesh).empty());
    // The union of the cubes: 2 less the 0.5 x 0.7 x 0.8 they share, up to float rounding.
    EXPECT_NEAR(LMeshComputeVolume(mesh), 1.72, 1e-5);
}

TEST_F(CleanUpAfterOffset, DeadAndUnknownSeedsAreSkipped)
{
    L_LUMOMESH mesh = MakeOverlappingCubes();
    const float far[3] = {9, 9, 9}, farther[3] = {9, 10, 9}, farthest[3] = {9, 9, 10};
    BaseList<uint32_t> stray;
    *stray.At(0) = LMeshAddTriangle(mesh, far, farther, farthest, 0);
    LMeshDeleteFacets(mesh, stray);
    BaseList<uint32_t> seeds;
    *seeds.At(0) = *stray.Peek(0);
    *seeds.At(1) = mesh.facets.count + 5;
    const uint32_t before = CountCrossings(mesh);
    ASSERT_EQ(LMeshCleanUpAfterOffset(mesh, seeds, Wide(folder).c_str()), 0);
    EXPECT_EQ(mesh.facetCount, 24u);
    EXPECT_EQ(CountCrossings(mesh), before);
}

TEST_F(CleanUpAfterOffset, FileNameIsAppendedToTheFolderAndAlwaysRemoved)
{
    // Without a trailing separator the prefix becomes the start of the file's name; a
    // file already there is overwritten and removed.
    const std::string prefix = folder + "lmesh_oc_" + std::to_string(::getpid());
    const std::string path = prefix + kTemporaryName;
    ASSERT_TRUE(WriteFileBytes(Wide(path), {'o', 'l', 'd'}));
    L_LUMOMESH mesh = testmesh::MakeCube();
    EXPECT_EQ(LMeshCleanUpAfterOffset(mesh, BaseList<uint32_t>(), Wide(prefix).c_str()), 0);
    EXPECT_EQ(mesh.facetCount, 12u);
    EXPECT_FALSE(FileExists(path));

    // A folder under a plain file cannot be written.
    const std::wstring plain = Path("plain");
    ASSERT_TRUE(WriteFileBytes(plain, {'x'}));
    const std::wstring under = plain + L"/";
    EXPECT_EQ(LMeshCleanUpAfterOffset(mesh, BaseList<uint32_t>(), under.c_str()), -1);
    EXPECT_FALSE(FileExists(std::string(under.begin(), under.end()) + kTemporaryName));
    EXPECT_EQ(LMeshCleanUpAfterOffset(mesh, BaseList<uint32_t>(), static_cast<const wchar_t*>(nullptr)), -1);
}

TEST(IntermediateMesh, MovesTheListedCornersPartOfTheWay)
{
    const L_LUMOMESH first = testmesh::MakeTetrahedron();
    L_LUMOMESH second = first;
    const float move[3] = {2.0f, -4.0f, 8.0f};
    LMeshTranslate(second, move, nullptr);
    BaseList<uint32_t> facets;
    *facets.At(0) = 0;  // corners 0, 2, 1; corner 3 stays

    L_LUMOMESH mesh = first;
    EXPECT_EQ(LMeshGetIntermediateMesh(1, 2, mesh), 0);  // nothing started
    ASSERT_EQ(LMeshStartIntermediateMesh(first, second, facets), 1);
    L_LUMOMESH other = testmesh::MakeCube();
    EXPECT_EQ(LMeshGetIntermediateMesh(1, 2, other), 0);  // another facet count

    ASSERT_EQ(LMeshGetIntermediateMesh(1, 2, mesh), 1);
    for (uint32_t v = 0; v < 3; ++v)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(+mesh.vertices.Peek(v)->position[c], first.vertices.Peek(v)->position[c] + move[c] / 2);
    ASSERT_EQ(LMeshGetIntermediateMesh(3, 3, mesh), 1);
    for (uint32_t v = 0; v < 4; ++v)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(+mesh.vertices.Peek(v)->position[c], +(v < 3 ? second : first).vertices.Peek(v)->position[c]);

    LMeshEndIntermediateMesh();
    EXPECT_EQ(LMeshGetIntermediateMesh(3, 3, mesh), 0);
}
