#include "LscFormats.h"
#include "LscMemory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using Bytes = std::string;

// The reader's documented status values.
enum : short { kOk = 0, kBadHeader = 2, kMissingProperty = 3, kTruncated = 4, kBadNumber = 5, kBadIndex = 6 };

struct PlyResult {
    short status = -1;
    uint32_t count = 0;
    std::vector<float> floats;
    bool dataNull = true;
};

class PlyReader : public ::testing::Test {
protected:
    PlyResult Read(const Bytes& content)
    {
        const std::string path = ::testing::TempDir() + "lsc_ply_" + std::to_string(::getpid());
        if (FILE* f = std::fopen(path.c_str(), "wb")) {
            std::fwrite(content.data(), 1, content.size(), f);
            std::fclose(f);
        }
        PlyResult result = ReadPath(std::wstring(path.begin(), path.end()));
        std::remove(path.c_str());
        return result;
    }

    static PlyResult ReadPath(const std::wstring& path)
    {
        const uint64_t before = l_memptr_bytes_in_use();
        PlyResult result;
        float sentinel[1] = {};
        float* data = sentinel;  // must be overwritten on every path
        result.count = 99;
        result.status = nsLscApi::LscLibReadPlyFile(path.c_str(), data, result.count);
        result.dataNull = data == nullptr;
        if (data == sentinel) {
            ADD_FAILURE() << "data left as passed in";
            return result;
        }
        if (data) result.floats.assign(data, data + size_t(result.count) * 9);
        nsLscApi::LscLibFreePlyFileData(data);
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(l_memptr_bytes_in_use(), before);  // nothing kept, whatever the outcome
        return result;
    }
};

// Binary values in a chosen byte order.
template <class T>
void Put(Bytes& out, T value, bool bigEndian)
{
    char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i) out += bytes[bigEndian ? sizeof(T) - 1 - i : i];
}

// The unit square 0-1-2-3 counter-clockwise at z = 2, as a quad.
const std::vector<float> kQuadAsFan = {0, 0, 2, 1, 0, 2, 1, 1, 2,   0, 0, 2, 1, 1, 2, 0, 1, 2};

// The square with awkward types everywhere: double coordinates among a colour, a list
// and a short, an unknown element between vertices and faces, and faces with a uchar
// count, int indices and trailing list and scalar properties.
Bytes MakeOddBinarySquare(bool bigEndian)
{
    Bytes file = std::string("ply\nformat ") + (bigEndian ? "binary_big_endian" : "binary_little_endian") +
                 " 1.0\nelement vertex 4\nproperty uchar red\nproperty double x\n"
                 "property list ushort float uv\nproperty double y\nproperty int16 flags\nproperty float64 z\n"
                 "element edge 1\nproperty list uint uchar ends\nproperty int crease\n"
                 "element face 1\nproperty list uchar int vertex_indices\nproperty list int short extra\n"
                 "property float quality\nend_header\n";
    const double xy[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (uint16_t v = 0; v < 4; ++v) {
        Put<uint8_t>(file, 200, bigEndian);
        Put<double>(file, xy[v][0], bigEndian);
        Put<uint16_t>(file, v, bigEndian);  // v texture values
        for (uint16_t i = 0; i < v; ++i) Put<float>(file, 0.5f, bigEndian);
        Put<double>(file, xy[v][1], bigEndian);
        Put<int16_t>(file, -1, bigEndian);
        Put<double>(file, 2, bigEndian);
    }
    Put<uint32_t>(file, 2, bigEndian);
    file += "\x01\x02";
    Put<int32_t>(file, 7, bigEndian);
    Put<uint8_t>(file, 4, bigEndian);
    for (int32_t i = 0; i < 4; ++i) Put<int32_t>(file, i, bigEndian);
    Put<int32_t>(file, 3, bigEndian);
    for (int16_t i = 0; i < 3; ++i) Put<int16_t>(file, i, bigEndian);
    Put<float>(file, 1.5f, bigEndian);
    return file;
}

// The square twice, as strip rows: "1 2 0 3", a restart, then "1 1 0 2 3" whose
// leading join (1,1,0) repeats an id; then a row too short to give a triangle. All
// four triangles face +z only if parity restarts at -1 and survives the dropped join.
const std::vector<std::vector<int>> kSquareStripRows = {{1, 2, 0, 3, -1, 1, 1, 0, 2, 3}, {0, 1}};
const std::vector<float> kSquareFromStrips = {1, 0, 2, 1, 1, 2, 0, 0, 2,   0, 0, 2, 1, 1, 2, 0, 1, 2,
                                              0, 0, 2, 1, 0, 2, 1, 1, 2,   0, 0, 2, 1, 1, 2, 0, 1, 2};

// Strips before the vertices, as ASCII or as binary with short ids.
Bytes MakeStripSquare(const std::string& format)
{
    const bool ascii = format == "ascii", bigEndian = format == "binary_big_endian";
    Bytes file = "ply\nformat " + format + " 1.0\nelement tristrips 2\n" +
                 (ascii ? "property list int int vertex_indices\n" : "property list uchar short vertex_indices\n") +
                 "element vertex 4\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
    for (const std::vector<int>& row : kSquareStripRows) {
        if (ascii) file += std::to_string(row.size());
        else Put<uint8_t>(file, uint8_t(row.size()), bigEndian);
        for (int id : row) {
            if (ascii) file += " " + std::to_string(id);
            else Put<int16_t>(file, int16_t(id), bigEndian);
        }
        if (ascii) file += "\n";
    }
    const float xy[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (const auto& corner : xy) {
        if (ascii) file += std::to_string(corner[0]) + " " + std::to_string(corner[1]) + " 2\n";
        else for (float v : {corner[0], corner[1], 2.0f}) Put<float>(file, v, bigEndian);
    }
    return file;
}

TEST_F(PlyReader, AsciiQuadSplitsAsFanAndShortFacesGiveNothing)
{
    const PlyResult result = Read(
        "ply\r\nformat ascii 1.0\r\ncomment made by hand\r\nobj_info anything at all\r\n"
        "element vertex 5\r\nproperty float x\r\nproperty float y\r\nproperty float z\r\n"
        "property list uchar float normal\r\nelement face 3\r\nproperty list uchar uint vertex_indices\r\n"
        "end_header\r\n"
        "0 0 2 0\n1 0 2 3 0 0 1\n1 1 +2 1 9\n0 1 2e0 0\nnan 0 0 0\n"
        "4 0 1 2 3\n2 0 1\n3 4 0 1\n");
    ASSERT_EQ(result.status, kOk);
    ASSERT_EQ(result.count, 3u);
    EXPECT_EQ(std::vector<float>(result.floats.begin(), result.floats.begin() + 18), kQuadAsFan);
    EXPECT_TRUE(std::isnan(result.floats[18]));  // NaN is data, not an error
}

// Byte order, odd types, unknown elements and element order change nothing read.
TEST_F(PlyReader, GoodFilesGiveTheirTrianglesInElementOrder)
{
    std::vector<float> fanThenStrip = kQuadAsFan;
    fanThenStrip.insert(fanThenStrip.end(), {0, 0, 2, 1, 0, 2, 1, 1, 2});
    const struct {
        const char* what;
        Bytes content;
        std::vector<float> floats;
    } cases[] = {
        {"odd types, little-endian", MakeOddBinarySquare(false), kQuadAsFan},
        {"odd types, big-endian", MakeOddBinarySquare(true), kQuadAsFan},
        {"ascii strips", MakeStripSquare("ascii"), kSquareFromStrips},
        {"little-endian strips", MakeStripSquare("binary_little_endian"), kSquareFromStrips},
        {"big-endian strips", MakeStripSquare("binary_big_endian"), kSquareFromStrips},
        {"faces named vertex_index before vertices, then a strip",
         "ply\nformat ascii 1.0\nelement material 2\nproperty list int float rgb\nproperty char id\n"
         "element face 1\nproperty int tag\nproperty list ushort short vertex_index\n"
         "element vertex 4\nproperty short x\nproperty short y\nproperty uint z\n"
         "element tristrips 1\nproperty list int int vertex_indices\nend_header\n"
         "3 0.1 0.2 0.3 -5\n0 1\n-3 4 0 1 2 3\n0 0 2\n1 0 2\n1 1 2\n0 1 2\n5 0 1 2 -1 3\n",
         fanThenStrip},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const PlyResult result = Read(c.content);
        ASSERT_EQ(result.status, kOk);
        EXPECT_EQ(result.floats, c.floats);
    }
}

TEST_F(PlyReader, HostileFilesFailCleanly)
{
    const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
    const std::string asciiHead = "ply\nformat ascii 1.0\nelement vertex 3\n" + xyz +
                                  "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    const std::string stripHead = "ply\nformat ascii 1.0\nelement vertex 3\n" + xyz +
                                  "element tristrips 1\nproperty list int int vertex_indices\nend_header\n"
                                  "0 0 0\n1 0 0\n0 1 0\n";
    const struct {
        const char* what;
        Bytes content;
        short status;
    } cases[] = {
        {"empty file", "", kBadHeader},
        {"bad magic", "plx\nformat ascii 1.0\nend_header\n", kBadHeader},
        {"no end_header", "ply\nformat ascii 1.0\nelement vertex 3\n" + xyz, kBadHeader},
        {"no format", "ply\nend_header\n", kBadHeader},
        {"unknown format", "ply\nformat binary_middle_endian 1.0\nend_header\n", kBadHeader},
        {"unknown type", "ply\nformat ascii 1.0\nelement vertex 1\nproperty float128 x\nend_header\n", kBadHeader},
        {"property before element", "ply\nformat ascii 1.0\nproperty float x\nend_header\n", kBadHeader},
        {"no z", "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nend_header\n0 0\n",
         kMissingProperty},
        {"no index list", "ply\nformat ascii 1.0\nelement face 0\nproperty int vertex_indices\nend_header\n",
         kMissingProperty},
        {"index past vertices", asciiHead + "0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n", kBadIndex},
        {"negative index", asciiHead + "0 0 0\n1 0 0\n0 1 0\n3 0 -1 2\n", kBadIndex},
        {"strip id past vertices", stripHead + "5 0 1 -1 2 3\n", kBadIndex},
        {"strip id below -1", stripHead + "4 0 1 2 -2\n", kBadIndex},
        {"strip without index list", "ply\nformat ascii 1.0\nelement tristrips 0\nproperty int i\nend_header\n",
         kMissingProperty},
        {"strip cut short", stripHead + "4 0 1 2\n", kTruncated},
        {"garbage number", asciiHead + "0 0 0\n1 0x 0\n0 1 0\n3 0 1 2\n", kBadNumber},
        {"fractional count", asciiHead + "0 0 0\n1 0 0\n0 1 0\n3.5 0 1 2\n", kBadNumber},
        {"ascii cut short", asciiHead + "0 0 0\n1 0 0\n0 1 0\n3 0 1\n", kTruncated},
        {"4 billion vertices", "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\n" + xyz +
                                   "end_header\n0123456789",
         kTruncated},
        {"huge list count", "ply\nformat binary_little_endian 1.0\nelement strip 1\nproperty list uint int i\n"
                            "end_header\n\xff\xff\xff\xff",
         kTruncated},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const PlyResult result = Read(c.content);
        EXPECT_EQ(result.status, c.status);
        EXPECT_TRUE(result.dataNull);
        EXPECT_EQ(result.count, 0u);
    }
}

TEST_F(PlyReader, EveryCutOfABinaryBodyIsTruncation)
{
    for (const Bytes& whole : {MakeOddBinarySquare(true), MakeStripSquare("binary_little_endian")}) {
        const size_t bodyStart = whole.find("end_header\n") + 11;
        for (size_t size = bodyStart; size < whole.size(); ++size) {
            SCOPED_TRACE(size);
            EXPECT_EQ(Read(whole.substr(0, size)).status, kTruncated);
        }
    }
}

// Real files of the shared corpus, with the triangle counts its manifest lists.
TEST_F(PlyReader, CorpusFilesGiveTheirTriangleCounts)
{
    const std::string folder = "../shared/data/meshes/";
    if (::access(folder.c_str(), R_OK) != 0) GTEST_SKIP() << "mesh corpus not found at " << folder;
    const struct {
        const char* name;
        short status;
        uint32_t triangles;
    } files[] = {
        {"bunny_res2_ascii.ply", kOk, 16301},               // ASCII, extra vertex properties
        {"suzanne_quads_ascii.ply", kOk, 968},              // quads split as fans
        {"planar_sheet_ascii.ply", kOk, 6080},              // double coordinates
        {"screwdriver_big_endian.ply", kOk, 13574},         // big-endian, padded counts
        {"fuze_texcoords_binary.ply", kOk, 1000},           // face list and scalars after the indices
        {"range_scan_camera_binary.ply", kOk, 86766},       // a camera element first
        {"thingi73416_split9_large_binary.ply", kOk, 691560},
        {"brain_tristrips_binary.ply", kOk, 36752},         // one strip row, 5,884 restarts, no joins
        {"empty_ascii.ply", kOk, 0},                        // zero vertices and faces
        {"empty_zero_bytes.ply", kBadHeader, 0},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        const std::string path = folder + file.name;
        const PlyResult result = ReadPath(std::wstring(path.begin(), path.end()));
        EXPECT_EQ(result.status, file.status);
        EXPECT_EQ(result.count, file.triangles);
        EXPECT_EQ(result.dataNull, file.status != kOk);  // an empty mesh still gets an array
        // A byte-order slip shows up as wild or non-finite coordinates.
        for (float v : result.floats) ASSERT_TRUE(std::isfinite(v) && std::fabs(v) < 1e6f);
    }
}

}  // namespace
