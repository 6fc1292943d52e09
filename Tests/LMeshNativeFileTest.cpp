#include "LMesh.h"
#include "TestFiles.h"
#include "TestMeshes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace testmesh;

namespace {

using Bytes = std::vector<unsigned char>;

class NativeFile : public TempFilesTest {};

// Paths here are ASCII, so narrowing them is exact.
Bytes ReadBytes(const std::wstring& path)
{
    std::ifstream in(std::string(path.begin(), path.end()), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::wstring& path, const Bytes& bytes)
{
    std::ofstream out(std::string(path.begin(), path.end()), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    ASSERT_TRUE(out.good());  // else a bad-file case would fail for the wrong reason
}

uint32_t U32At(const Bytes& bytes, size_t offset)
{
    uint32_t value = 0;  // the file is little-endian, as is every machine this runs on
    if (offset + 4 <= bytes.size()) std::memcpy(&value, &bytes[offset], 4);
    return value;
}

template <class Record>
Bytes StoreBytes(const BaseList<Record>& list)
{
    Bytes bytes(size_t(list.count) * sizeof(Record));
    for (uint32_t i = 0; i < list.count; ++i) std::memcpy(&bytes[i * sizeof(Record)], list.Peek(i), sizeof(Record));
    return bytes;
}

// Header, then each store, byte for byte.
void ExpectSameImage(const L_LUMOMESH& expected, const L_LUMOMESH& actual)
{
    const LM_MESH_HEADER a = LMeshGetHeader(expected), b = LMeshGetHeader(actual);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_EQ(StoreBytes(expected.vertices), StoreBytes(actual.vertices));
    EXPECT_EQ(StoreBytes(expected.facets), StoreBytes(actual.facets));
    EXPECT_EQ(StoreBytes(expected.edges), StoreBytes(actual.edges));
}

}  // namespace

TEST_F(NativeFile, BytesLieAtTheDocumentedOffsets)
{
    const std::wstring empty = Path("empty"), triangle = Path("triangle");
    EXPECT_TRUE(LMeshWriteToFile(empty.c_str(), L_LUMOMESH()));
    const Bytes header = ReadBytes(empty);
    ASSERT_EQ(header.size(), 56u);
    EXPECT_EQ((std::vector<uint32_t>{U32At(header, 0), U32At(header, 24), U32At(header, 28), U32At(header, 52)}),
              (std::vector<uint32_t>{0x01D934A8u, 0, 0x7F7FFFFFu, 1}));  // magic, edgeCount, +FLT_MAX, groups
    L_LUMOMESH reread = MakeCube();
    EXPECT_TRUE(LMeshReadFromFile(empty.c_str(), reread));
    ExpectSameImage(L_LUMOMESH(), reread);

    const L_LUMOMESH mesh = MakeTriangle();
    ASSERT_TRUE(LMeshWriteToFile(triangle.c_str(), mesh));
    const Bytes bytes = ReadBytes(triangle);
    const size_t facet = 56 + 3 * 17;  // facets follow the vertices, ahead of the edges
    ASSERT_EQ(bytes.size(), facet + 41 + 3 * 17);
    EXPECT_EQ(U32At(bytes, 12), 1u);                // facetSlots sits before edgeSlots
    EXPECT_EQ(U32At(bytes, 56 + 17), 0x3F800000u);  // vertex 1 x = 1.0f
    EXPECT_EQ(U32At(bytes, facet + 8), 2u);         // third corner
    EXPECT_EQ(U32At(bytes, facet + 32), 0x3F800000u);  // normal z
    EXPECT_EQ(Bytes(bytes.begin() + facet + 41, bytes.end()), StoreBytes(mesh.edges));
}

TEST_F(NativeFile, RoundTripKeepsDeadSlotsLinksAndFlagBits)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    mesh.vertices.At(2)->flags |= 0xF0;
    mesh.facets.At(11)->flags = 0xA4;  // dead, high bits set
    mesh.facets.At(4)->groupId = 7;
    const std::wstring path = Path("dead");
    ASSERT_TRUE(LMeshWriteToFile(path.c_str(), mesh));

    // Read over larger meshes: their surplus slots must not survive.
    L_LUMOMESH mapped = MakeGrid(70, 70), streamed = MakeGrid(70, 70);
    EXPECT_TRUE(LMeshReadFromFile(path.c_str(), mapped));
    ExpectSameImage(mesh, mapped);
    FILE* file = fwopen(path.c_str(), "rb");
    EXPECT_TRUE(LMeshReadFromFile(file, streamed));
    std::fclose(file);
    ExpectSameImage(mesh, streamed);
}

TEST_F(NativeFile, WholePagesAndTailsMatchOnBothRoutes)
{
    // 4225 vertices (a page and a tail), 8192 facets (exactly two pages), 12416 edges.
    const L_LUMOMESH mesh = MakeGrid(64, 64);
    const std::wstring mapped = Path("mapped"), streamed = Path("stdio"), small = Path("small");
    ASSERT_TRUE(LMeshWriteToFile(mapped.c_str(), mesh));
    FILE* file = fwopen(streamed.c_str(), "wb");
    ASSERT_TRUE(LMeshWriteToFile(file, mesh));
    EXPECT_EQ(std::ftell(file), 56 + 17 * (4225 + 12416) + 41 * 8192);  // left at its end
    std::fclose(file);
    EXPECT_EQ(ReadBytes(mapped), ReadBytes(streamed));
    L_LUMOMESH read;
    EXPECT_TRUE(LMeshReadFromFile(mapped.c_str(), read));
    ExpectSameImage(mesh, read);

    // Saving a small mesh over the big file leaves exactly the small image.
    ASSERT_TRUE(LMeshWriteToFile(mapped.c_str(), MakeTetrahedron()));
    ASSERT_TRUE(LMeshWriteToFile(small.c_str(), MakeTetrahedron()));
    EXPECT_EQ(ReadBytes(mapped), ReadBytes(small));

    // Header slots above the stores must not read past them: the file is sized by the stores.
    L_LUMOMESH cube = MakeCube();
    cube.vertexSlots += 5000;
    EXPECT_TRUE(LMeshWriteToFile(small.c_str(), cube));
    EXPECT_EQ(ReadBytes(small).size(), 56u + 17 * (8 + 18) + 41 * 12);
}

TEST_F(NativeFile, BoundingBoxAndMeshDataReaders)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    mesh.facets.At(3)->flags &= 254;  // a dead facet between live ones
    const float boxMin[3] = {0, 0, 0}, boxMax[3] = {10, 20, 30};
    std::memcpy(mesh.bboxMin, boxMin, sizeof boxMin);
    std::memcpy(mesh.bboxMax, boxMax, sizeof boxMax);
    const std::wstring path = Path("readers");
    ASSERT_TRUE(LMeshWriteToFile(path.c_str(), mesh));
    L_BOUNDS bounds;
    EXPECT_TRUE(LMeshReadFileBBox(path.c_str(), bounds));
    EXPECT_EQ(std::vector<double>(bounds.max, bounds.max + 3), (std::vector<double>{10, 0, 0}));  // as documented

    LM_MESH_HEADER header;
    TObjArray<float> vertices;
    TObjArray<uint32_t> facets;
    ASSERT_TRUE(LMeshReadMeshDataFromFile(path.c_str(), header, vertices, facets));
    ASSERT_EQ(vertices.count, 3 * 11u);  // dead vertices included
    EXPECT_EQ(std::memcmp(vertices.data + 3 * 9, mesh.vertices.Peek(9)->position, 12), 0);
    ASSERT_EQ(facets.count, 3 * 13u);  // sized by slots, filled by the 10 live facets at the front
    std::vector<uint32_t> live;
    for (uint32_t f : {0, 1, 2, 4, 5, 6, 7, 8, 9, 10})
        live.insert(live.end(), mesh.facets.Peek(f)->vertex, mesh.facets.Peek(f)->vertex + 3);
    EXPECT_EQ(std::vector<uint32_t>(facets.data, facets.data + 30), live);

    ASSERT_TRUE(LMeshWriteToFile(path.c_str(), L_LUMOMESH()));  // no facets: an array without data
    EXPECT_FALSE(LMeshReadMeshDataFromFile(path.c_str(), header, vertices, facets));
}

TEST_F(NativeFile, BadFilesFailAndLeaveTheMeshEmpty)
{
    const std::wstring good = Path("good");
    ASSERT_TRUE(LMeshWriteToFile(good.c_str(), MakeCube()));
    const Bytes image = ReadBytes(good);
    Bytes wrongMagic = image, claim(image.begin(), image.begin() + 56), wrapping = claim;
    wrongMagic[0] ^= 1;
    claim[7] = 0x05;  // a bare header promising 0x05000000 vertices
    const uint32_t counts[5] = {0xFFFFFFFFu, 8, 0, 12, 1};  // V + E wraps to 0 in 32-bit arithmetic
    std::memcpy(&wrapping[4], counts, sizeof counts);
    const std::pair<const char*, Bytes> cases[] = {
        {"truncated", Bytes(image.begin(), image.end() - 1)}, {"wrong_magic", wrongMagic}, {"claim", claim},
        {"wrapping", wrapping}, {"short_header", Bytes(image.begin(), image.begin() + 30)}, {"zero_length", Bytes()}};
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.first);
        const std::wstring path = Path(bad.first);
        WriteBytes(path, bad.second);
        L_LUMOMESH mesh = MakeCube();
        EXPECT_FALSE(LMeshReadFromFile(path.c_str(), mesh));  // the stdio fallback fails too
        ExpectSameImage(L_LUMOMESH(), mesh);
        LM_MESH_HEADER header;
        TObjArray<float> vertices;
        TObjArray<uint32_t> facets;
        EXPECT_FALSE(LMeshReadMeshDataFromFile(path.c_str(), header, vertices, facets));
    }
    L_LUMOMESH mesh = MakeCube();
    EXPECT_FALSE(LMeshReadFromFile(L"/nonexistent_lmesh_dir/x", mesh));
    ExpectSameImage(L_LUMOMESH(), mesh);
    EXPECT_FALSE(LMeshWriteToFile(L"/nonexistent_lmesh_dir/x", mesh));
    L_BOUNDS bounds;
    EXPECT_FALSE(LMeshReadFileBBox(Path("wrong_magic").c_str(), bounds));
}

TEST_F(NativeFile, StreamsThatCannotBeMappedTakeTheStdioRoute)
{
    const L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    const std::wstring reference = Path("reference"), fifo = Path("fifo");
    ASSERT_TRUE(LMeshWriteToFile(reference.c_str(), mesh));
    const Bytes image = ReadBytes(reference);
    const std::string fifoName(fifo.begin(), fifo.end());
    ASSERT_EQ(::mkfifo(fifoName.c_str(), 0600), 0);
    std::thread feeder([&, name = fifoName] {
        const int fd = ::open(name.c_str(), O_WRONLY);
        (void)!::write(fd, image.data(), image.size());
        ::close(fd);
    });
    L_LUMOMESH read;
    EXPECT_FALSE(LMeshReadFromFile(fifo.c_str(), read));  // read whole, yet false
    feeder.join();
    ExpectSameImage(mesh, read);

    // A pipe has no length to check, so a header promising 100 million vertices
    // must not size the stores: they grow only as records arrive.
    Bytes claim(image.begin(), image.begin() + 56);
    claim[7] = 0x05;  // vertexSlots 0x05000000
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::thread writer([&] {
        (void)!::write(ends[1], claim.data(), claim.size());
        ::close(ends[1]);
    });
    FILE* pipe = ::fdopen(ends[0], "rb");
    const uint64_t before = l_memptr_bytes_in_use();
    l_memptr_reset_peak();
    EXPECT_FALSE(LMeshReadFromFile(pipe, read));
    EXPECT_LT(l_memptr_peak_bytes() - before, 1u << 20);
    writer.join();
    std::fclose(pipe);
    ExpectSameImage(L_LUMOMESH(), read);
}
