#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "TestMeshes.h"

using namespace testmesh;

namespace {

using Bytes = std::vector<unsigned char>;

BaseList<uint32_t> List(std::initializer_list<uint32_t> ids)
{
    BaseList<uint32_t> list;
    for (uint32_t id : ids) *list.At(list.count) = id;
    return list;
}

uint32_t FileGroupCount(const std::wstring& path)
{
    LM_MESH_HEADER header{};
    EXPECT_TRUE(LMeshReadFileHeader(path.c_str(), &header));
    return header.groupCount;
}

class Groups : public TempFilesTest {};

TEST_F(Groups, NewMeshHandsOutOneAndRefusesUnknownIds)
{
    L_LUMOMESH mesh = MakeCube();
    BaseList<uint32_t> facets = List({2});
    EXPECT_FALSE(LMeshAddToGroup(mesh, 1, facets));
    uint32_t id = 0;
    EXPECT_TRUE(LMeshCreateGroup(mesh, facets, &id));
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(mesh.groupCount, 2u);
    BaseList<uint32_t> past = List({1, 12});  // 12 is past the slots: nothing is written
    EXPECT_FALSE(LMeshCreateGroup(mesh, past, &id));
    EXPECT_FALSE(LMeshAddToGroup(mesh, 1, past));
    EXPECT_EQ(+mesh.facets.Peek(1)->groupId, 0u);
    EXPECT_EQ(mesh.groupCount, 2u);
    EXPECT_EQ(mesh.facets.count, 12u);
}

TEST_F(Groups, GetGroupClearsInMemoryAndByPathOnlyWhenAsked)
{
    L_LUMOMESH mesh = MakeCube();
    BaseList<uint32_t> facets = List({4, 1});
    LMeshCreateGroup(mesh, facets, nullptr);
    const std::wstring path = Path("cube.lmesh");
    LMeshWriteToFile(path.c_str(), mesh);

    BaseList<uint32_t> found = List({99});
    EXPECT_TRUE(LMeshGetGroup(mesh, 1, &found));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{1, 4}));
    EXPECT_TRUE(LMeshGetGroup(path.c_str(), 1, &found, false));
    EXPECT_EQ(Ids(found), (std::vector<uint32_t>{1, 4, 1, 4}));
    EXPECT_FALSE(LMeshGetGroup(path.c_str(), 2, &found, true));  // cleared before the id is refused
    EXPECT_EQ(found.count, 0u);
    EXPECT_FALSE(LMeshGetGroup(mesh, 1, nullptr));
}

// Each step is applied to a mesh and to its saved file; afterwards the file must be
// exactly what saving the mesh gives, results and group counts included.
TEST_F(Groups, FileFormsMatchMemoryFormsStepByStep)
{
    L_LUMOMESH mesh = MakeMeshWithDeadSlots();
    mesh.facets.At(12)->groupId = 9;  // dead: never counts
    const std::wstring path = Path("groups.lmesh"), image = Path("image.lmesh");
    LMeshWriteToFile(path.c_str(), mesh);
    const wchar_t* file = path.c_str();

    struct Step {
        const char* name;
        std::function<bool(L_LUMOMESH&)> inMemory;
        std::function<bool(const wchar_t*)> onFile;
        uint32_t groupCount;
    };
    BaseList<uint32_t> first = List({0, 1, 2}), none, second = List({3, 11, 2}), more = List({4, 5});
    uint32_t memoryId = 0, fileId = 0;
    const std::vector<Step> steps = {
        {"create", [&](L_LUMOMESH& m) { return LMeshCreateGroup(m, first, &memoryId); },
         [&](const wchar_t* p) { return LMeshCreateGroup(p, first, &fileId); }, 2},
        {"create empty", [&](L_LUMOMESH& m) { return LMeshCreateGroup(m, none, &memoryId); },
         [&](const wchar_t* p) { return LMeshCreateGroup(p, none, &fileId); }, 3},
        {"delete empty group", [](L_LUMOMESH& m) { return LMeshDeleteGroup(m, 2); },
         [](const wchar_t* p) { return LMeshDeleteGroup(p, 2); }, 2},
        {"create over", [&](L_LUMOMESH& m) { return LMeshCreateGroup(m, second, &memoryId); },
         [&](const wchar_t* p) { return LMeshCreateGroup(p, second, &fileId); }, 3},
        {"add", [&](L_LUMOMESH& m) { return LMeshAddToGroup(m, 1, more); },
         [&](const wchar_t* p) { return LMeshAddToGroup(p, 1, more); }, 3},
        {"add unknown", [&](L_LUMOMESH& m) { return !LMeshAddToGroup(m, 3, more); },
         [&](const wchar_t* p) { return !LMeshAddToGroup(p, 3, more); }, 3},
        {"delete highest", [](L_LUMOMESH& m) { return LMeshDeleteGroup(m, 2); },
         [](const wchar_t* p) { return LMeshDeleteGroup(p, 2); }, 2},
        {"set", [](L_LUMOMESH& m) { return LMeshSetGroup(m, 1); },
         [](const wchar_t* p) { return LMeshSetGroup(p, 1); }, 2},
        {"delete none", [](L_LUMOMESH& m) { return LMeshDeleteGroup(m, 0); },
         [](const wchar_t* p) { return LMeshDeleteGroup(p, 0); }, 2},
        {"set none", [](L_LUMOMESH& m) { return LMeshSetGroup(m, 0); },
         [](const wchar_t* p) { return LMeshSetGroup(p, 0); }, 1},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        EXPECT_TRUE(step.inMemory(mesh));
        EXPECT_TRUE(step.onFile(file));
        EXPECT_EQ(fileId, memoryId);
        EXPECT_EQ(mesh.groupCount, step.groupCount);
        EXPECT_EQ(FileGroupCount(path), step.groupCount);
        for (uint32_t id = 0; id < mesh.groupCount; ++id) {
            BaseList<uint32_t> inMemory, onFile;
            LMeshGetGroup(mesh, id, &inMemory);
            LMeshGetGroup(file, id, &onFile, true);
            EXPECT_EQ(Ids(onFile), Ids(inMemory)) << "group " << id;
        }
        LMeshWriteToFile(image.c_str(), mesh);
        EXPECT_EQ(ReadFileBytes(path), ReadFileBytes(image));
        if (std::string(step.name) == "add") {  // live facets hold groups 1 and 2; dead 11 is in 2
            BaseList<uint32_t> groups, listed = List({5, 0, 7, 11});
            EXPECT_TRUE(LMeshGetValidGroups(file, &groups));
            EXPECT_EQ(Ids(groups), (std::vector<uint32_t>{1, 2}));
            EXPECT_TRUE(LMeshGetGroups(file, listed, &groups));
            EXPECT_EQ(Ids(groups), (std::vector<uint32_t>{0, 1, 2}));
            LTreeRCollect pairs;
            EXPECT_TRUE(LMeshGetGroups(file, listed, &pairs));
            BaseList<uint32_t> inTwo;
            pairs.GetAllIndexesByKey(2, inTwo);
            EXPECT_EQ(Ids(inTwo), (std::vector<uint32_t>{11}));
        }
    }
}

TEST_F(Groups, BadFilesAndListsFailWithTheFileUnchanged)
{
    L_LUMOMESH mesh = MakeCube();
    BaseList<uint32_t> facets = List({0});
    LMeshCreateGroup(mesh, facets, nullptr);
    const std::wstring path = Path("bad.lmesh");
    LMeshWriteToFile(path.c_str(), mesh);
    const Bytes good = ReadFileBytes(path);
    Bytes truncated(good.begin(), good.end() - 1), wrongMagic = good;
    wrongMagic[3] ^= 0x40;
    BaseList<uint32_t> past = List({0, 12}), groups;
    LTreeRCollect pairs;
    uint32_t id = 77;

    for (const Bytes& bad : {truncated, wrongMagic}) {
        ASSERT_TRUE(WriteFileBytes(path, bad));
        const wchar_t* file = path.c_str();
        EXPECT_FALSE(LMeshCreateGroup(file, facets, &id));
        EXPECT_FALSE(LMeshAddToGroup(file, 1, facets));
        EXPECT_FALSE(LMeshSetGroup(file, 1));
        EXPECT_FALSE(LMeshDeleteGroup(file, 1));
        EXPECT_FALSE(LMeshGetGroup(file, 1, &groups, true));
        EXPECT_FALSE(LMeshGetGroups(file, facets, &groups));
        EXPECT_FALSE(LMeshGetGroups(file, facets, &pairs));
        EXPECT_FALSE(LMeshGetValidGroups(file, &groups));
        EXPECT_EQ(ReadFileBytes(path), bad);
    }
    ASSERT_TRUE(WriteFileBytes(path, good));
    EXPECT_FALSE(LMeshCreateGroup(path.c_str(), past, &id));
    EXPECT_FALSE(LMeshAddToGroup(path.c_str(), 1, past));
    EXPECT_FALSE(LMeshGetGroups(path.c_str(), past, &groups));
    EXPECT_FALSE(LMeshGetGroups(path.c_str(), past, &pairs));
    EXPECT_EQ(ReadFileBytes(path), good);
    EXPECT_EQ(id, 77u);
    EXPECT_FALSE(LMeshSetGroup(Path("missing.lmesh").c_str(), 0));
}

}  // namespace
