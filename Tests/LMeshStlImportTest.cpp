#include "LMesh.h"
#include "LscFormats.h"
#include "TestMeshes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <unistd.h>

using namespace testmesh;
using namespace nsLscApi;

namespace {

const std::string kCorpus = "../shared/data/meshes/";

// A binary STL whose records carry a junk normal, which the loader must ignore.
std::string BinaryStl(const std::string& header, uint32_t count, const std::vector<float>& corners)
{
    std::string bytes = header;
    bytes.resize(80, '\0');
    bytes.append(reinterpret_cast<const char*>(&count), 4);
    const float junk[3] = {7, 7, 7};
    for (size_t t = 0; t + 9 <= corners.size(); t += 9)
        bytes.append(reinterpret_cast<const char*>(junk), 12)
            .append(reinterpret_cast<const char*>(&corners[t]), 36)
            .append(2, '\0');
    return bytes;
}

// Two triangles sharing the side (1,0,0)-(0,1,0).
const std::vector<float> kPair = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

class StlImport : public ::testing::Test {
protected:
    std::wstring Write(const std::string& bytes)
    {
        FILE* f = std::fopen(name_.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        return Wide(name_);
    }
    void TearDown() override { std::remove(name_.c_str()); }
    bool Load(const std::wstring& path, float tolerance = 0) { return LMeshLoadFromSTL(path.c_str(), tolerance, &mesh); }

    L_LUMOMESH mesh;
    std::string name_ = ::testing::TempDir() + "lmesh_stl_import_" + std::to_string(::getpid());
};

TEST_F(StlImport, BinaryRecordsWeldIntoSharedEdgesAndAddToTheMesh)
{
    EXPECT_TRUE(Load(Write(BinaryStl("solid but binary", 2, kPair))));
    ExpectMeshConsistent(mesh);
    EXPECT_EQ((std::vector<uint32_t>{mesh.vertexCount, mesh.edgeCount, mesh.facetCount}),
              (std::vector<uint32_t>{4, 5, 2}));
    EXPECT_EQ(+mesh.edges.Peek(1)->facet[1], 1u);       // side (1,2) of facet 0 is shared
    EXPECT_EQ(+mesh.facets.Peek(1)->normal[2], 1.0f);  // computed, not the file's
    EXPECT_TRUE(Load(Write(BinaryStl("", 2, kPair))));
    EXPECT_EQ(mesh.vertexCount, 8u);  // nothing welds to what was there before
}

TEST_F(StlImport, HostileBinaryFailsKeepingTheFacetsRead)
{
    EXPECT_FALSE(Load(Write(BinaryStl("", 3, kPair) + std::string(20, '\0'))));  // ends inside record 3
    EXPECT_EQ(mesh.facetCount, 2u);
    mesh.Reset();
    EXPECT_FALSE(Load(Write(BinaryStl("", 4000000000u, {0, 0, 0, 1, 0, 0, 0, 1, 0}))));  // sized by the file
    EXPECT_EQ(mesh.facetCount, 1u);
    mesh.Reset();
    EXPECT_FALSE(Load(Write(BinaryStl("", 0, kPair))));
    EXPECT_EQ(mesh.facetCount, 0u);

    const float nan = std::nanf("");  // NaN is data, at either kind of welding
    for (float tolerance : {0.0f, 0.01f}) {
        EXPECT_TRUE(Load(Write(BinaryStl("", 2, {nan, 0, 0, 1, 0, 0, 0, 1, 0, nan, nan, nan, 1, 1, 0, 0, 1, 0})),
                         tolerance));
        ExpectMeshConsistent(mesh);
    }
    EXPECT_EQ(mesh.facetCount, 4u);
}

TEST_F(StlImport, AsciiTokenLoopKeepsItsCounterQuirks)
{
    EXPECT_TRUE(Load(Write("solid t\n"
                           "facet normal 0 0 1 outer loop vertex 0 0 0 vertex 1 0 0 endloop endfacet\n"  // dropped
                           "FACET NORMAL 0 0 1 OUTER LOOP VERTEX 0 0 0 VERTEX 1 0 0 VERTEX 0 1 0\n"
                           "vertex 9 9 9 ENDLOOP ENDFACET endfacet\n"  // fourth corner skipped; added twice
                           "endsolid t\n")));
    EXPECT_EQ(mesh.facetCount, 2u);
    EXPECT_EQ(mesh.vertexCount, 3u);
}

TEST_F(StlImport, AsciiWithoutACompleteFacetLeavesTheMesh)
{
    mesh = MakeTriangle();
    EXPECT_FALSE(Load(Write("solid x\nfacet outer loop vertex 1 2 endloop endfacet endsolid\n")));
    EXPECT_FALSE(Load(Write("solid " + std::string(1000, 'v') + " vertex 1 2 3 endfacet\n")));  // one corner
    EXPECT_FALSE(Load(Write("")));
    EXPECT_FALSE(LMeshLoadFromSTL(L"/nonexistent/x.stl", 0, &mesh));
    EXPECT_EQ(mesh.facetCount, 1u);
    EXPECT_EQ(mesh.vertexCount, 3u);
}

TEST_F(StlImport, TypeCheckTellsBinaryByExactSizeThenByContent)
{
    EXPECT_EQ(LscLibCheckSTLFileType(Write(BinaryStl("solid x", 2, kPair)).c_str()), LSC_FILE_STL_BINARY);
    EXPECT_EQ(LscLibCheckSTLFileType(Write(BinaryStl("solid x", 9, kPair)).c_str()), LSC_FILE_STL_BINARY);
    EXPECT_EQ(LscLibCheckSTLFileType(Write(BinaryStl("model", 9, kPair)).c_str()), LSC_FILE_STL_BINARY);
    EXPECT_EQ(LscLibCheckSTLFileType(Write(" \n SOLID x\n" + std::string(200, ' ')).c_str()), LSC_FILE_STL_ASCII);
    EXPECT_EQ(LscLibCheckSTLFileType(Write("short").c_str()), LSC_FILE_UNKNOWN);
    EXPECT_EQ(LscLibCheckSTLFileType(L"/tmp"), LSC_FILE_UNKNOWN);
}

TEST_F(StlImport, CorpusFilesLoadAsTheirFormatSays)
{
    if (::access(kCorpus.c_str(), R_OK) != 0) GTEST_SKIP() << "mesh corpus not found at " << kCorpus;
    const struct {
        const char* name;
        bool loaded;
        uint32_t facets, vertices;  // vertices 0: not pinned
    } cases[] = {
        {"arm_link_header_solid_binary.stl", true, 1436, 895},  // seams 1e-4 apart: unwelded at tolerance 0
        {"block_uppercase_ascii.stl", true, 12, 8},              // a closed cube
        {"half_donut_binary.stl", true, 288, 0},                 // one byte past its records
        {"truncated_rear_case_binary.stl", false, 1000, 0},      // "solid" header, cut short
        {"one_facet_big_endian_binary.stl", false, 1, 0},        // count read as 16777216
        {"truncated_fuji_ascii.stl", false, 126, 0},             // ends inside a vertex line
        {"empty_solid_ascii.stl", false, 0, 0},
        {"empty_zero_facets_trailing_byte_binary.stl", false, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        mesh.Reset();
        EXPECT_EQ(Load(Wide(kCorpus + c.name)), c.loaded);
        EXPECT_EQ(mesh.facetCount, c.facets);
        EXPECT_TRUE(c.vertices == 0 || mesh.vertexCount == c.vertices) << mesh.vertexCount;
    }
}

TEST_F(StlImport, PlyToleranceIsInWholeUnits)
{
    const std::string ply =
        "ply\nformat ascii 1.0\nelement vertex 5\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 2\nproperty list uchar int vertex_indices\nend_header\n"
        "0 0 0\n4 0 0\n0 4 0\n4.5 0 0\n4 4 0\n3 0 1 2\n3 3 4 2\n";
    EXPECT_EQ(LMeshReadPlyFile(Write(ply).c_str(), mesh, 1), 0);
    EXPECT_EQ(mesh.vertexCount, 4u);  // (4.5,0,0) welds to (4,0,0); scaled by 25.4 it would not
    EXPECT_NE(LMeshReadPlyFile(L"/nonexistent/x.ply", mesh, 1), 0);
    EXPECT_EQ(mesh.facetCount, 2u);
}

}  // namespace
