#include <cfloat>
#include <cstring>
#include <vector>

#include "TestFiles.h"
#include "TestMeshes.h"

using namespace testmesh;

namespace {

using Bytes = std::vector<unsigned char>;

// Header and all three stores, byte for byte.
Bytes Image(const L_LUMOMESH& mesh)
{
    const LM_MESH_HEADER header = LMeshGetHeader(mesh);
    Bytes bytes(reinterpret_cast<const unsigned char*>(&header), reinterpret_cast<const unsigned char*>(&header + 1));
    auto append = [&bytes](const void* record, size_t size) {
        bytes.insert(bytes.end(), static_cast<const unsigned char*>(record),
                     static_cast<const unsigned char*>(record) + size);
    };
    for (uint32_t i = 0; i < mesh.vertices.count; ++i) append(mesh.vertices.Peek(i), sizeof(LM_VERTEX));
    for (uint32_t i = 0; i < mesh.edges.count; ++i) append(mesh.edges.Peek(i), sizeof(LM_EDGE));
    for (uint32_t i = 0; i < mesh.facets.count; ++i) append(mesh.facets.Peek(i), sizeof(LM_FACET));
    return bytes;
}

void Kill(L_LUMOMESH& mesh, uint32_t facet)
{
    mesh.facets.At(facet)->flags &= 254;
    --mesh.facetCount;
}

void ExpectBox(const L_LUMOMESH& mesh, float low, float high)
{
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(+mesh.bboxMin[k], low);
        EXPECT_EQ(+mesh.bboxMax[k], high);
    }
}

// Every record live, and each vertex linked to the last edge in index order that touches it.
void ExpectCompacted(const L_LUMOMESH& mesh)
{
    ExpectMeshConsistent(mesh);
    EXPECT_EQ(mesh.vertexCount, mesh.vertexSlots);
    EXPECT_EQ(mesh.edgeCount, mesh.edgeSlots);
    EXPECT_EQ(mesh.facetCount, mesh.facetSlots);
    std::vector<uint32_t> lastEdge(mesh.vertices.count, LM_NONE);
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        EXPECT_TRUE(mesh.edges.Peek(e)->flags & LM_LIVE);
        for (int k = 0; k < 2; ++k) lastEdge.at(mesh.edges.Peek(e)->vertex[k]) = e;
    }
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        EXPECT_TRUE(mesh.vertices.Peek(v)->flags & LM_LIVE);
        EXPECT_EQ(+mesh.vertices.Peek(v)->edge, lastEdge[v]) << "vertex " << v;
    }
}

uint32_t CountBorderEdges(const L_LUMOMESH& mesh)
{
    uint32_t border = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) border += mesh.edges.Peek(e)->facet[1] == LM_NONE;
    return border;
}

TEST(Compact, MeshWithoutHolesIsLeftExactlyAsItIs)
{
    L_LUMOMESH mesh = MakeCube();
    mesh.bboxMax[0] = 5.0f;  // too wide, and not recomputed
    mesh.groupCount = 7;
    mesh.vertices.At(3)->edge = 0;
    const Bytes before = Image(mesh);
    LMeshCompact(mesh);
    EXPECT_EQ(Image(mesh), before);
}

TEST(Compact, DropsDeadSlotsAndWhatNoLiveFacetUses)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    // A live vertex far away, and a live edge from it to vertex 0, both named by no facet.
    LM_VERTEX* lone = mesh.vertices.At(mesh.vertices.count);
    const float far[3] = {9, 9, 9};
    std::memcpy(lone->position, far, sizeof far);
    lone->flags = LM_LIVE;
    LM_EDGE* stray = mesh.edges.At(mesh.edges.count);
    stray->vertex[0] = 0, stray->vertex[1] = mesh.vertices.count - 1;
    stray->facet[0] = 0, stray->facet[1] = LM_NONE;
    stray->flags = LM_LIVE;
    mesh.vertexSlots = mesh.vertices.count, mesh.edgeSlots = mesh.edges.count;

    LMeshCompact(mesh);
    EXPECT_EQ(mesh.vertexCount, 8u);
    EXPECT_EQ(mesh.edgeCount, 18u);
    EXPECT_EQ(mesh.facetCount, 11u);
    EXPECT_EQ(mesh.groupCount, 1u);
    ExpectBox(mesh, 0.0f, 1.0f);  // exact for the kept vertices: the far one is gone
    ExpectCompacted(mesh);
    EXPECT_EQ(CountBorderEdges(mesh), 3u);  // the dead facet's sides lost their twin
}

TEST(Compact, DeadFirstFacetOfAnEdgeBecomesNoneAndTheSecondIsKept)
{
    L_LUMOMESH mesh = MakeCube();
    ASSERT_EQ(mesh.edges.Peek(mesh.facets.Peek(0)->edge[0])->facet[0], 0u);
    const uint32_t shared = mesh.facets.Peek(0)->edge[0];
    const uint32_t twin = mesh.edges.Peek(shared)->facet[1];
    Kill(mesh, 0);  // the links still name it
    LMeshCompact(mesh);
    const LM_EDGE& edge = *mesh.edges.Peek(shared);  // no edge before it was dropped
    EXPECT_EQ(+edge.facet[0], LM_NONE);
    EXPECT_EQ(+edge.facet[1], twin - 1);
}

TEST(Compact, RemovingEveryFacetEmptiesTheMesh)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (mesh.facets.Peek(f)->flags & LM_LIVE) Kill(mesh, f);
    mesh.facets.At(2)->groupId = 5;
    LMeshCompact(mesh);
    EXPECT_EQ(mesh.vertices.count + mesh.edges.count + mesh.facets.count, 0u);
    EXPECT_EQ(mesh.vertexSlots + mesh.vertexCount + mesh.edgeSlots + mesh.edgeCount, 0u);
    EXPECT_EQ(mesh.facetSlots + mesh.facetCount, 0u);
    EXPECT_EQ(mesh.groupCount, 1u);
    ExpectBox(mesh, FLT_MAX, -FLT_MAX);
}

TEST(Compact, GroupCountFollowsLiveFacetsOnly)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    mesh.facets.At(11)->groupId = 9;  // dead
    mesh.facets.At(4)->groupId = 2;
    mesh.groupCount = 10;
    LMeshCompact(mesh);
    EXPECT_EQ(mesh.groupCount, 3u);
    EXPECT_EQ(+mesh.facets.Peek(4)->groupId, 2u);
}

TEST(Compact, LinksPastTheStoresBecomeNone)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    mesh.facets.At(0)->vertex[0] = 5000;
    mesh.facets.At(0)->edge[1] = 5000;
    mesh.edges.At(0)->facet[0] = 5000;
    mesh.edges.At(0)->vertex[1] = LM_NONE - 1;
    LMeshCompact(mesh);
    EXPECT_EQ(+mesh.facets.Peek(0)->vertex[0], LM_NONE);
    EXPECT_EQ(+mesh.facets.Peek(0)->edge[1], LM_NONE);
    EXPECT_EQ(+mesh.edges.Peek(0)->facet[0], LM_NONE);
    EXPECT_EQ(+mesh.edges.Peek(0)->vertex[1], LM_NONE);
}

class CompactToFile : public TempFilesTest {};

// More than one store page, with every third facet removed.
L_LUMOMESH MakeLargeMeshWithHoles()
{
    L_LUMOMESH mesh = MakeGrid(60, 40);
    BaseList<uint32_t> dead;
    for (uint32_t f = 0; f < mesh.facets.count; f += 3) *dead.At(dead.count) = f;
    LMeshDeleteFacets(mesh, dead);
    return mesh;
}

TEST_F(CompactToFile, EqualsCompactThenWrite)
{
    for (const L_LUMOMESH& mesh : {MakeMeshWithDeadSlots(), MakeLargeMeshWithHoles()}) {
        const std::wstring source = Path("source.lmesh"), fromFile = Path("from_file.lmesh"),
                           fromMesh = Path("from_mesh.lmesh"), expected = Path("expected.lmesh");
        LMeshWriteToFile(source.c_str(), mesh);
        const Bytes sourceBytes = ReadFileBytes(source);
        L_LUMOMESH compacted(mesh);
        LMeshCompact(compacted);
        ExpectCompacted(compacted);
        LMeshWriteToFile(expected.c_str(), compacted);

        bool alreadyCompact = true;
        EXPECT_TRUE(LMeshCompactToFile(source.c_str(), fromFile.c_str(), alreadyCompact));
        EXPECT_FALSE(alreadyCompact);
        EXPECT_TRUE(LMeshCompactToFile(mesh, fromMesh.c_str()));

        const Bytes expectedBytes = ReadFileBytes(expected);
        EXPECT_EQ(expectedBytes.size(), 56 + 17 * (compacted.vertexCount + compacted.edgeCount) +
                                            41 * compacted.facetCount);
        EXPECT_EQ(ReadFileBytes(fromFile), expectedBytes);
        EXPECT_EQ(ReadFileBytes(fromMesh), expectedBytes);
        EXPECT_EQ(ReadFileBytes(source), sourceBytes);
    }
}

TEST_F(CompactToFile, SourceWithoutHolesCreatesNoTarget)
{
    const std::wstring source = Path("cube.lmesh"), target = Path("target.lmesh");
    LMeshWriteToFile(source.c_str(), MakeCube());
    bool alreadyCompact = false;
    EXPECT_TRUE(LMeshCompactToFile(source.c_str(), target.c_str(), alreadyCompact));
    EXPECT_TRUE(alreadyCompact);
    EXPECT_TRUE(ReadFileBytes(target).empty());
    // The mesh form writes such a mesh as it is, and takes the writer's answer for a null path.
    EXPECT_FALSE(LMeshCompactToFile(MakeCube(), static_cast<const wchar_t*>(nullptr)));
}

TEST_F(CompactToFile, BadSourcesFailWithoutTouchingTheSource)
{
    const std::wstring source = Path("source.lmesh"), target = Path("target.lmesh");
    LMeshWriteToFile(source.c_str(), MakeMeshWithDeadSlots());
    const Bytes good = ReadFileBytes(source);
    bool alreadyCompact = true;
    EXPECT_FALSE(LMeshCompactToFile(source.c_str(), nullptr, alreadyCompact));
    EXPECT_TRUE(alreadyCompact);  // untouched for a null path
    EXPECT_FALSE(LMeshCompactToFile(source.c_str(), source.c_str(), alreadyCompact));
    EXPECT_EQ(ReadFileBytes(source), good);

    Bytes truncated(good.begin(), good.end() - 1);
    ASSERT_TRUE(WriteFileBytes(source, truncated));
    EXPECT_FALSE(LMeshCompactToFile(source.c_str(), target.c_str(), alreadyCompact));
    Bytes wrongMagic = good;
    wrongMagic[0] ^= 1;
    ASSERT_TRUE(WriteFileBytes(source, wrongMagic));
    EXPECT_FALSE(LMeshCompactToFile(source.c_str(), target.c_str(), alreadyCompact));
    EXPECT_FALSE(alreadyCompact);
}

}  // namespace
