// Subcommands that work on native .lmesh files only: compaction file to file, and the
// facet groups a file carries.
#include "Commands.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>

#include "CommandSupport.h"

namespace {

namespace fs = std::filesystem;

std::wstring Wide(const std::string& path)
{
    std::wstring wide;
    LscUtf8ToWide(path.c_str(), wide);
    return wide;
}

uint64_t NativeFileBytes(const LM_MESH_HEADER& header)
{
    return 56 + 17 * (uint64_t(header.vertexSlots) + header.edgeSlots) + 41 * uint64_t(header.facetSlots);
}

// The header of a whole native file, or false with a one-line reason.
bool ReadNativeHeader(const std::string& path, LM_MESH_HEADER& header, std::string& error)
{
    std::error_code code;
    const uint64_t size = fs::file_size(path, code);
    if (code) {
        error = code.message();
        return false;
    }
    if (!LMeshReadFileHeader(Wide(path).c_str(), &header)) {
        error = "not a native .lmesh file";
        return false;
    }
    if (size < NativeFileBytes(header)) {
        error = "the native file is shorter than its header says";
        return false;
    }
    return true;
}

std::string Counts(const LM_MESH_HEADER& header)
{
    return std::to_string(header.facetCount) + " facets, " + std::to_string(header.vertexCount) + " vertices, " +
           std::to_string(header.edgeCount) + " edges";
}

// Live facets per group number, group 0 included.
std::map<uint32_t, uint32_t> CountFacetsPerGroup(const L_LUMOMESH& mesh)
{
    std::map<uint32_t, uint32_t> counts;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (facet.flags & LM_LIVE) ++counts[uint32_t{facet.groupId}];  // a copy: the field is packed
    }
    return counts;
}

const char* const kCompactHelp =
    "usage: lmesh compact IN OUT\n"
    "\n"
    "Rewrites the native mesh file IN as OUT without its dead slots: the room that\n"
    "removed facets, edges and vertices still take, and vertices and edges that no live\n"
    "facet uses. What stays keeps its order and is renumbered from 0; facet groups keep\n"
    "their numbers. IN is streamed, not loaded as a mesh, and never changes. If IN has no\n"
    "dead slots, OUT becomes an exact copy of it, so OUT always exists on success. OUT\n"
    "must be a different file from IN.\n";

const char* const kGroupsHelp =
    "usage: lmesh groups FILE\n"
    "\n"
    "Lists the facet groups of a native mesh file: each group number carried by a live\n"
    "facet with its count of live facets, the live facets in no group, and the group\n"
    "count, which is the number the next new group will get. Groups whose facets were\n"
    "all removed are not listed.\n";

}  // namespace

int RunCompact(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("compact", kCompactHelp, args, {{}, {}}, 2, parsed, exitCode)) return exitCode;
    const std::string& in = parsed.positional[0];
    const std::string& out = parsed.positional[1];
    LM_MESH_HEADER before;
    std::string error;
    if (!ReadNativeHeader(in, before, error)) return Failure("compact", "cannot read '" + in + "': " + error);
    std::error_code code;
    if (fs::equivalent(in, out, code)) return UsageError("compact", "OUT must be a different file from IN");

    bool alreadyCompact = false;
    bool compacted;
    {
        Stage stage("compacting", before.facetSlots > kProgressFacets);
        compacted = LMeshCompactToFile(Wide(in).c_str(), Wide(out).c_str(), alreadyCompact);
    }
    if (!compacted) return Failure("compact", "cannot write '" + out + "'");
    if (alreadyCompact) {
        if (!fs::copy_file(in, out, fs::copy_options::overwrite_existing, code))
            return Failure("compact", "cannot copy to '" + out + "': " + code.message());
        std::printf("%s has no dead slots: copied it unchanged to %s (%s)\n", in.c_str(), out.c_str(),
                    Counts(before).c_str());
        return 0;
    }
    LM_MESH_HEADER after;
    if (!LMeshReadFileHeader(Wide(out).c_str(), &after)) return Failure("compact", "cannot read back '" + out + "'");
    std::printf("wrote %s: %s (dropped %u facet, %u vertex and %u edge slots)\n", out.c_str(), Counts(after).c_str(),
                before.facetSlots - after.facetSlots, before.vertexSlots - after.vertexSlots,
                before.edgeSlots - after.edgeSlots);
    return 0;
}

int RunGroups(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("groups", kGroupsHelp, args, {{}, {}}, 1, parsed, exitCode)) return exitCode;
    const std::string& path = parsed.positional[0];
    LM_MESH_HEADER header;
    std::string error;
    if (!ReadNativeHeader(path, header, error)) return Failure("groups", "cannot read '" + path + "': " + error);
    // One pass over a loaded mesh counts every group, however many there are.
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("groups", path, 0.0f, mesh, format, exitCode)) return exitCode;
    std::map<uint32_t, uint32_t> counts = CountFacetsPerGroup(mesh);
    const uint32_t ungrouped = counts[0];
    counts.erase(0);

    std::printf("file          %s\n", path.c_str());
    std::printf("facets        %u\n", mesh.facetCount);
    std::printf("group count   %u\n", mesh.groupCount);
    std::printf("no group      %u facets\n", ungrouped);
    std::printf("groups        %zu in use\n", counts.size());
    for (const auto& [id, facets] : counts) std::printf("  group %-8u %u facets\n", id, facets);
    return 0;
}
