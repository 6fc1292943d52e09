#include <cstring>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "TestMeshes.h"

using namespace testmesh;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr size_t kHeadBytes = 27, kBlockHeadBytes = 5, kRecordBytes = 19;

void Append(Bytes& bytes, const void* data, size_t size)
{
    bytes.insert(bytes.end(), static_cast<const unsigned char*>(data), static_cast<const unsigned char*>(data) + size);
}
void AppendU32(Bytes& bytes, uint32_t value) { Append(bytes, &value, 4); }
void AppendFF(Bytes& bytes, size_t count) { bytes.insert(bytes.end(), count, 0xFF); }

// The three corner ids of facet record i of a file with `vertices` vertex records.
std::vector<uint32_t> CornersInFile(const Bytes& file, uint32_t vertices, uint32_t i)
{
    const size_t at = kHeadBytes + kBlockHeadBytes * 2 + kRecordBytes * (vertices + i);
    std::vector<uint32_t> corners(3);
    if (at + 12 <= file.size()) std::memcpy(corners.data(), &file[at], 12);
    return corners;
}

std::vector<uint32_t> Corners(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET& f = *mesh.facets.Peek(facet);
    return {f.vertex[0], f.vertex[1], f.vertex[2]};
}

class ZprExport : public TempFilesTest {};

TEST_F(ZprExport, OneTriangleFileIsExactly113Bytes)
{
    L_LUMOMESH mesh = MakeTriangle();
    BaseList<uint32_t> colours;
    *colours.At(0) = 0xAA332211u;
    const std::wstring path = Path("one.zpr");
    ASSERT_EQ(LMeshSaveToZPRFormat(mesh, path.c_str(), colours), 0);

    Bytes expected = {0xAA, 0x03, 15, 0, 0, 0};
    Append(expected, "Created By ZEFA", 15);
    expected.insert(expected.end(), {0x01, 0x00, 0x01, 0xFF, 0xFF, 0xFF, 10});
    AppendU32(expected, 3 * 19 + 5);
    const float positions[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (const auto& p : positions) {
        Append(expected, p, 12);
        AppendFF(expected, 7);
    }
    expected.push_back(20);
    AppendU32(expected, 19 + 5);
    for (uint32_t v : {0u, 1u, 2u}) AppendU32(expected, v);
    expected.insert(expected.end(), {0x11, 0x22, 0x33});
    AppendFF(expected, 4);
    ASSERT_EQ(expected.size(), 113u);
    EXPECT_EQ(ReadFileBytes(path), expected);
}

TEST_F(ZprExport, FacetsWhoseStoredNormalDisagreesAreReversedInTheMesh)
{
    L_LUMOMESH mesh = MakeTetrahedron();
    BaseList<uint32_t> flipped;
    *flipped.At(0) = 1;
    LMeshReverseNormals(mesh, &flipped);
    mesh.facets.At(2)->normal[0] *= 0.9999f;  // merely inexact is enough
    const std::vector<uint32_t> before0 = Corners(mesh, 0), before1 = Corners(mesh, 1), before2 = Corners(mesh, 2);
    const std::wstring path = Path("tetra.zpr");
    ASSERT_EQ(LMeshSaveToZPRFormat(mesh, path.c_str(), BaseList<uint32_t>()), 0);

    EXPECT_EQ(Corners(mesh, 0), before0);
    EXPECT_EQ(Corners(mesh, 1), (std::vector<uint32_t>{before1[0], before1[2], before1[1]}));
    EXPECT_EQ(Corners(mesh, 2), (std::vector<uint32_t>{before2[0], before2[2], before2[1]}));
    const Bytes file = ReadFileBytes(path);
    for (uint32_t f = 0; f < 4; ++f) EXPECT_EQ(CornersInFile(file, 4, f), Corners(mesh, f)) << "facet " << f;
}

TEST_F(ZprExport, DegenerateFacetIsReversed)
{
    L_LUMOMESH mesh = MakeTriangle();
    const float onTheLine[3] = {2, 0, 0};
    std::memcpy(mesh.vertices.At(2)->position, onTheLine, sizeof onTheLine);
    ASSERT_EQ(LMeshSaveToZPRFormat(mesh, Path("flat.zpr").c_str(), BaseList<uint32_t>()), 0);
    EXPECT_EQ(Corners(mesh, 0), (std::vector<uint32_t>{0, 2, 1}));
}

TEST_F(ZprExport, ColoursPastTheListAreZero)
{
    L_LUMOMESH mesh = MakeGrid(1, 1);
    BaseList<uint32_t> colours;
    *colours.At(0) = 0x00C0FFEEu;
    const std::wstring path = Path("grid.zpr");
    ASSERT_EQ(LMeshSaveToZPRFormat(mesh, path.c_str(), colours), 0);
    const Bytes file = ReadFileBytes(path);
    ASSERT_EQ(file.size(), kHeadBytes + 2 * kBlockHeadBytes + kRecordBytes * (4 + 2));
    const Bytes colourBytes[2] = {{file.end() - 26, file.end() - 23}, {file.end() - 7, file.end() - 4}};
    EXPECT_EQ(colourBytes[0], (Bytes{0xEE, 0xFF, 0xC0}));
    EXPECT_EQ(colourBytes[1], (Bytes{0, 0, 0}));
}

TEST_F(ZprExport, EmptyMeshAndUnopenablePath)
{
    L_LUMOMESH empty;
    const std::wstring path = Path("empty.zpr");
    EXPECT_EQ(LMeshSaveToZPRFormat(empty, path.c_str(), BaseList<uint32_t>()), -2);
    EXPECT_TRUE(ReadFileBytes(path).empty());
    L_LUMOMESH mesh = MakeTriangle();
    EXPECT_EQ(LMeshSaveToZPRFormat(mesh, L"/no/such/folder/x.zpr", BaseList<uint32_t>()), -1);
}

}  // namespace
