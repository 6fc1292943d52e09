// Facet groups. A group is the number in a facet's groupId, 0 meaning none; there is
// no group table, and the header's groupCount is one above the highest number handed
// out. Every operation exists for a mesh in memory and for a saved native file, which
// it edits in place without loading the mesh: the groupId of facet j lies 36 bytes
// into its record at 56 + 17 V + 41 j (V the vertex slots), its flags 40 bytes in.
//
// Listed facet ids are checked against the facet slots before anything is written,
// and a file's length against its header, so a bad list or a short file fails with
// nothing changed. Walks over all facets of a file move whole blocks of records,
// writing a block back only when it changed.
#include "LMeshNativeFile.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t kBlockFacets = 4096;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

bool AllBelow(const BaseList<uint32_t>& facets, uint32_t slots)
{
    for (uint32_t i = 0; i < facets.count; ++i)
        if (*facets.Peek(i) >= slots) return false;
    return true;
}

void Append(BaseList<uint32_t>& list, uint32_t value) { *list.At(list.count) = value; }

// Clears the group `id` from a facet, live or dead, and raises `groupCount` past the
// group of any other live facet; true when the facet changed. Dead facets keep their
// other ids but do not count.
bool ClearGroupOf(LM_FACET& facet, uint32_t id, uint32_t& groupCount)
{
    if (facet.groupId == id) {
        facet.groupId = 0;
        return true;
    }
    if (IsLive(facet.flags) && facet.groupId >= groupCount) groupCount = facet.groupId + 1;
    return false;
}

// Ids already checked against the store, so At never grows it.
void SetGroupOf(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, uint32_t id)
{
    for (uint32_t i = 0; i < facets.count; ++i) mesh.facets.At(*facets.Peek(i))->groupId = id;
}

// A native file opened for its facet records. Open only when the header is good and
// the file is as long as the header says, so no record it names can lie past the end.
class FacetFile {
public:
    FacetFile(const wchar_t* path, const char* mode) : file_(fwopen(path, mode))
    {
        open_ = file_ && ReadMeshHeader(file_, header_) && FileBytesFor(header_) <= Length();
    }
    ~FacetFile() { Close(); }
    FacetFile(const FacetFile&) = delete;
    FacetFile& operator=(const FacetFile&) = delete;

    bool IsOpen() const { return open_; }
    LM_MESH_HEADER& Header() { return header_; }

    bool ReadGroupId(uint32_t facet, uint32_t& id)
    {
        return Seek(GroupIdOffset(facet)) && std::fread(&id, sizeof id, 1, file_) == 1;
    }
    bool WriteGroupId(uint32_t facet, uint32_t id)
    {
        return Seek(GroupIdOffset(facet)) && std::fwrite(&id, sizeof id, 1, file_) == 1;
    }
    bool ReadFacets(uint32_t first, uint32_t n, LM_FACET* records)
    {
        return Seek(FacetOffset(first)) && std::fread(records, sizeof(LM_FACET), n, file_) == n;
    }
    bool WriteFacets(uint32_t first, uint32_t n, const LM_FACET* records)
    {
        return Seek(FacetOffset(first)) && std::fwrite(records, sizeof(LM_FACET), n, file_) == n;
    }
    bool WriteHeader() { return Seek(0) && WriteMeshHeader(file_, header_); }

    // True when the file closed with every write flushed.
    bool Close()
    {
        const bool closed = file_ && std::fclose(file_) == 0;
        file_ = nullptr;
        return closed;
    }

private:
    uint64_t FacetOffset(uint32_t facet) const { return FileBytesFor(header_.vertexSlots, facet, 0); }
    uint64_t GroupIdOffset(uint32_t facet) const { return FacetOffset(facet) + offsetof(LM_FACET, groupId); }
    bool Seek(uint64_t offset) { return fseeko(file_, off_t(offset), SEEK_SET) == 0; }

    uint64_t Length()
    {
        if (fseeko(file_, 0, SEEK_END) != 0) return 0;
        const off_t end = ftello(file_);
        return end > 0 ? uint64_t(end) : 0;
    }

    FILE* file_;
    LM_MESH_HEADER header_{};
    bool open_ = false;
};

// Visits every facet record of the file in slot order, a block at a time; a visit
// that returns true has changed its block, which is then written back.
template <class Visit>
bool ForEachFacetBlock(FacetFile& file, Visit visit)
{
    std::vector<LM_FACET> block(kBlockFacets);
    const uint32_t slots = file.Header().facetSlots;
    for (uint32_t first = 0; first < slots; first += kBlockFacets) {
        const uint32_t n = std::min(kBlockFacets, slots - first);
        if (!file.ReadFacets(first, n, block.data())) return false;
        if (visit(block.data(), n) && !file.WriteFacets(first, n, block.data())) return false;
    }
    return true;
}

bool WriteGroupIds(FacetFile& file, const BaseList<uint32_t>& facets, uint32_t id)
{
    for (uint32_t i = 0; i < facets.count; ++i)
        if (!file.WriteGroupId(*facets.Peek(i), id)) return false;
    return true;
}

// Opens a file and checks the listed ids against its facet slots.
bool OpenForList(FacetFile& file, const BaseList<uint32_t>& facets)
{
    return file.IsOpen() && AllBelow(facets, file.Header().facetSlots);
}

}  // namespace

bool LMeshCreateGroup(L_LUMOMESH& mesh, BaseList<uint32_t>& facets, uint32_t* id)
{
    if (!AllBelow(facets, mesh.facets.count)) return false;
    const uint32_t newId = mesh.groupCount++;  // used up even by an empty list
    SetGroupOf(mesh, facets, newId);
    if (id) *id = newId;
    return true;
}

bool LMeshCreateGroup(const wchar_t* path, BaseList<uint32_t>& facets, uint32_t* id)
{
    FacetFile file(path, "r+b");
    if (!OpenForList(file, facets)) return false;
    const uint32_t newId = file.Header().groupCount;
    if (!WriteGroupIds(file, facets, newId)) return false;
    file.Header().groupCount = newId + 1;
    if (!file.WriteHeader()) return false;
    if (id) *id = newId;
    return file.Close();
}

bool LMeshAddToGroup(L_LUMOMESH& mesh, uint32_t id, BaseList<uint32_t>& facets)
{
    if (id >= mesh.groupCount || !AllBelow(facets, mesh.facets.count)) return false;
    SetGroupOf(mesh, facets, id);
    return true;
}

bool LMeshAddToGroup(const wchar_t* path, uint32_t id, BaseList<uint32_t>& facets)
{
    FacetFile file(path, "r+b");
    if (!OpenForList(file, facets) || id >= file.Header().groupCount) return false;
    return WriteGroupIds(file, facets, id) && file.Close();
}

bool LMeshSetGroup(L_LUMOMESH& mesh, uint32_t id)
{
    if (id >= mesh.groupCount) return false;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) mesh.facets.At(f)->groupId = id;
    mesh.groupCount = id + 1;
    return true;
}

bool LMeshSetGroup(const wchar_t* path, uint32_t id)
{
    FacetFile file(path, "r+b");
    if (!file.IsOpen() || id >= file.Header().groupCount) return false;
    const bool set = ForEachFacetBlock(file, [id](LM_FACET* block, uint32_t n) {
        for (uint32_t i = 0; i < n; ++i) block[i].groupId = id;
        return true;
    });
    if (!set) return false;
    file.Header().groupCount = id + 1;
    return file.WriteHeader() && file.Close();
}

bool LMeshGetGroup(const L_LUMOMESH& mesh, uint32_t id, BaseList<uint32_t>* facets)
{
    if (id >= mesh.groupCount || !facets) return false;
    facets->Clear();
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (IsLive(facet.flags) && facet.groupId == id) Append(*facets, f);
    }
    return true;
}

bool LMeshGetGroup(const wchar_t* path, uint32_t id, BaseList<uint32_t>* facets, bool clear)
{
    if (!facets) return false;
    LscMemoryMappedFile map;
    map.Open(path, LMMF_READ_ONLY, 0, 0, 0);
    LM_MESH_HEADER header;
    if (!ReadMappedHeader(map, header) || FileBytesFor(header) > map.Size()) return false;
    if (clear) facets->Clear();
    if (id >= header.groupCount) return false;
    const unsigned char* base = static_cast<const unsigned char*>(map.Base());
    const unsigned char* records = base + FileBytesFor(header.vertexSlots, 0, 0);
    LM_FACET facet;
    for (uint32_t f = 0; f < header.facetSlots; ++f) {
        std::memcpy(&facet, records + size_t(f) * sizeof facet, sizeof facet);
        if (IsLive(facet.flags) && facet.groupId == id) Append(*facets, f);
    }
    return true;
}

bool LMeshDeleteGroup(L_LUMOMESH& mesh, uint32_t id)
{
    if (id >= mesh.groupCount) return false;
    uint32_t groupCount = 1;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) ClearGroupOf(*mesh.facets.At(f), id, groupCount);
    mesh.groupCount = groupCount;
    return true;
}

bool LMeshDeleteGroup(const wchar_t* path, uint32_t id)
{
    FacetFile file(path, "r+b");
    if (!file.IsOpen() || id >= file.Header().groupCount) return false;
    uint32_t groupCount = 1;
    const bool cleared = ForEachFacetBlock(file, [id, &groupCount](LM_FACET* block, uint32_t n) {
        bool changed = false;
        for (uint32_t i = 0; i < n; ++i) changed = ClearGroupOf(block[i], id, groupCount) || changed;
        return changed;
    });
    if (!cleared) return false;
    file.Header().groupCount = groupCount;
    return file.WriteHeader() && file.Close();
}

bool LMeshGetGroups(const wchar_t* path, BaseList<uint32_t>& facets, BaseList<uint32_t>* groups)
{
    if (!groups) return false;
    FacetFile file(path, "rb");
    if (!OpenForList(file, facets)) return false;
    LTreeSSort found;
    for (uint32_t i = 0; i < facets.count; ++i) {
        uint32_t groupId;
        if (!file.ReadGroupId(*facets.Peek(i), groupId)) return false;
        found.AddKey(groupId);  // false for a group already found
    }
    groups->Clear();
    return found.GetAllKeys(*groups, false, false);
}

bool LMeshGetGroups(const wchar_t* path, BaseList<uint32_t>& facets, LTreeRCollect* groups)
{
    if (!groups) return false;
    FacetFile file(path, "rb");
    if (!OpenForList(file, facets)) return false;
    for (uint32_t i = 0; i < facets.count; ++i) {
        uint32_t groupId;
        if (!file.ReadGroupId(*facets.Peek(i), groupId)) return false;
        groups->AddIndex(groupId, *facets.Peek(i));
    }
    return true;
}

bool LMeshGetValidGroups(const wchar_t* path, BaseList<uint32_t>* groups)
{
    if (!groups) return false;
    FacetFile file(path, "rb");
    if (!file.IsOpen()) return false;
    LTreeSSort found;
    const bool read = ForEachFacetBlock(file, [&found](LM_FACET* block, uint32_t n) {
        for (uint32_t i = 0; i < n; ++i)
            if (IsLive(block[i].flags) && block[i].groupId != 0) found.AddKey(block[i].groupId);
        return false;
    });
    if (!read) return false;
    groups->Clear();
    return found.GetAllKeys(*groups, false, false);
}
