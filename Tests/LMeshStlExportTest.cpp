#include "LMesh.h"
#include "TestFiles.h"
#include "TestMeshes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

using namespace testmesh;

namespace {

std::string ReadBytes(const std::wstring& path)
{
    std::string bytes;
    if (FILE* f = fwopen(path.c_str(), "rb")) {
        for (int c; (c = std::fgetc(f)) != EOF;) bytes.push_back(char(c));
        std::fclose(f);
    }
    return bytes;
}

void WriteBytes(const std::wstring& path, const std::string& bytes)
{
    FILE* f = fwopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

uint32_t CountOf(const std::string& stl)
{
    uint32_t count = 0;
    if (stl.size() >= 84) std::memcpy(&count, stl.data() + 80, 4);
    return count;
}

// Normal and three corners of record r.
std::vector<float> Record(const std::string& stl, uint32_t r)
{
    std::vector<float> floats(12);
    if (84 + 50 * size_t(r) + 48 <= stl.size()) std::memcpy(floats.data(), stl.data() + 84 + 50 * r, 48);
    return floats;
}

// Quarter turn about z, (x, y, z) -> (-y, x, z), or the identity; exact in float.
L_MATRIX Matrix(bool turn)
{
    L_MATRIX m{};
    m.m[turn ? 1 : 0] = 1, m.m[turn ? 4 : 5] = turn ? -1 : 1, m.m[10] = 1, m.m[15] = 1;
    return m;
}

class StlExport : public TempFilesTest {
protected:
    const std::wstring native = Path("native"), memory = Path("memory"), stdio = Path("stdio"), mapped = Path("map");
    const L_MATRIX identity = Matrix(false), turn = Matrix(true);
};

TEST_F(StlExport, InMemoryWriterSavesLiveFacetsInListOrder)
{
    EXPECT_TRUE(LMeshSaveToStlBin(L_LUMOMESH(), memory.c_str(), nullptr, 0, nullptr));
    EXPECT_EQ(ReadBytes(memory), std::string("ZEFA", 4) + std::string(80, '\0'));

    ASSERT_TRUE(LMeshSaveToStlBin(MakeCube(), memory.c_str(), nullptr, 0, nullptr));
    const std::string cube = ReadBytes(memory);
    EXPECT_EQ(cube.size(), 84u + 12 * 50);
    EXPECT_EQ(Record(cube, 0), (std::vector<float>{0, 0, -1, 0, 0, 0, 1, 1, 0, 1, 0, 0}));
    L_LUMOMESH reloaded;
    EXPECT_TRUE(LMeshLoadFromSTL(memory.c_str(), 0, &reloaded));
    EXPECT_EQ((std::vector<uint32_t>{reloaded.vertexCount, reloaded.edgeCount, reloaded.facetCount}),
              (std::vector<uint32_t>{8, 18, 12}));

    BaseList<uint32_t> list;
    for (uint32_t id : {3u, 11u, 99u, 0u, 12u}) *list.At(list.count) = id;  // 11 and 12 dead, 99 unknown
    ASSERT_TRUE(LMeshSaveToStlBin(MakeMeshWithDeadSlots(), memory.c_str(), nullptr, 0, &list));
    const std::string listed = ReadBytes(memory);
    EXPECT_EQ(CountOf(listed), 2u);
    EXPECT_EQ(Record(listed, 0), Record(cube, 3));
    EXPECT_EQ(Record(listed, 1), Record(cube, 0));

    FILE* file = std::tmpfile();
    uint32_t count = 99;
    EXPECT_TRUE(LMeshAppendFacetsToStlBin(file, MakeMeshWithDeadSlots(), nullptr, 0, count));
    EXPECT_EQ(count, 11u);
    EXPECT_EQ(std::ftell(file), 11 * 50);  // records only
    std::fclose(file);
}

TEST_F(StlExport, MatrixAndScaleDifferBetweenMemoryAndConversion)
{
    const L_LUMOMESH cube = MakeCube();
    ASSERT_TRUE(LMeshWriteToFile(native.c_str(), cube));
    ASSERT_TRUE(LMeshSaveToStlBin(cube, memory.c_str(), &turn, 2, nullptr));
    ASSERT_TRUE(LMeshFileToStlBin(native.c_str(), stdio.c_str(), &turn, 2));
    ASSERT_TRUE(LMeshFileMapToStlBin(native.c_str(), mapped.c_str(), &turn, 2));
    // Front facet 4 on corners 0, 1, 5 with stored normal (0,-1,0): turned in memory only.
    EXPECT_EQ(Record(ReadBytes(memory), 4), (std::vector<float>{1, 0, 0, 0, 0, 0, 0, 2, 0, 0, 2, 2}));
    EXPECT_EQ(Record(ReadBytes(stdio), 4), (std::vector<float>{0, -1, 0, 0, 0, 0, 0, 2, 0, 0, 2, 2}));
    EXPECT_EQ(ReadBytes(mapped), ReadBytes(stdio));

    // Without a matrix the scale still applies in memory; the conversion takes no corners.
    ASSERT_TRUE(LMeshSaveToStlBin(cube, memory.c_str(), nullptr, 2, nullptr));
    EXPECT_EQ(Record(ReadBytes(memory), 0), (std::vector<float>{0, 0, -1, 0, 0, 0, 2, 2, 0, 2, 0, 0}));
    ASSERT_TRUE(LMeshFileMapToStlBin(native.c_str(), mapped.c_str(), nullptr, 2));
    EXPECT_EQ(Record(ReadBytes(mapped), 0), (std::vector<float>{0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(StlExport, ConversionRoutesAgreeOnGoodAndBrokenFiles)
{
    const L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    ASSERT_TRUE(LMeshWriteToFile(native.c_str(), mesh));
    ASSERT_TRUE(LMeshSaveToStlBin(mesh, memory.c_str(), nullptr, 0, nullptr));  // stored normals, as converted
    ASSERT_TRUE(LMeshFileToStlBin(native.c_str(), stdio.c_str(), &identity, 0));
    ASSERT_TRUE(LMeshFileMapToStlBin(native.c_str(), mapped.c_str(), &identity, 0));
    EXPECT_EQ(CountOf(ReadBytes(memory)), 11u);
    EXPECT_EQ(ReadBytes(stdio), ReadBytes(memory));
    EXPECT_EQ(ReadBytes(mapped), ReadBytes(memory));

    // A cut file fails on both routes, leaving the same records and count 0 in front.
    const std::string good = ReadBytes(native);
    WriteBytes(native, good.substr(0, 56 + 11 * 17 + 41 * 5));
    EXPECT_FALSE(LMeshFileToStlBin(native.c_str(), stdio.c_str(), &identity, 0));
    EXPECT_FALSE(LMeshFileMapToStlBin(native.c_str(), mapped.c_str(), &identity, 0));
    EXPECT_EQ(ReadBytes(mapped).size(), 84u + 5 * 50);
    EXPECT_EQ(CountOf(ReadBytes(mapped)), 0u);
    EXPECT_EQ(ReadBytes(stdio), ReadBytes(mapped));

    std::string bad = good;  // only the stdio route tests the magic
    bad[0] ^= 1;
    WriteBytes(native, bad);
    EXPECT_FALSE(LMeshFileToStlBin(native.c_str(), stdio.c_str(), &identity, 0));
    EXPECT_TRUE(LMeshFileMapToStlBin(native.c_str(), mapped.c_str(), &identity, 0));
    EXPECT_FALSE(LMeshFileMapToStlBin(Path("missing").c_str(), mapped.c_str(), &identity, 0));
}

TEST_F(StlExport, AppendAddsToTheCountAndKeepsTheHeader)
{
    ASSERT_TRUE(LMeshWriteToFile(native.c_str(), MakeTetrahedron()));
    const uint32_t five = 5;
    const std::string start = std::string(80, 'h') + std::string(reinterpret_cast<const char*>(&five), 4) +
                              std::string(5 * 50, 'r');
    WriteBytes(stdio, start);
    WriteBytes(mapped, start);
    EXPECT_TRUE(LMeshFileAppendToStlBin(native.c_str(), stdio.c_str(), &identity, 0));
    EXPECT_TRUE(LMeshFileMapAppendToStlBin(native.c_str(), mapped.c_str(), &identity, 0));
    const std::string appended = ReadBytes(stdio);
    EXPECT_EQ(appended.size(), start.size() + 4 * 50);
    EXPECT_EQ(appended.substr(0, 80), start.substr(0, 80));
    EXPECT_EQ(CountOf(appended), 9u);
    EXPECT_EQ(ReadBytes(mapped), appended);
    EXPECT_FALSE(LMeshFileMapAppendToStlBin(native.c_str(), Path("absent").c_str(), &identity, 0));
}

}  // namespace
