// lmesh offset: grows (or shrinks) a surface along its normals, and optionally cuts
// away where the grown surface then passes through itself.
#include "Commands.h"

#include <cstdio>
#include <filesystem>
#include <stdlib.h>
#include <string>
#include <system_error>

#include "CommandSupport.h"

namespace {

constexpr double kDefaultRightAngleTolerance = 5.0;
// A right-angle corner needs 41 percent more than the distance; 50 lets it through and
// keeps sharper corners from shooting out.
constexpr double kDefaultMaxStretch = 50.0;
// Crossings are counted as `lmesh intersections` counts them by default.
constexpr float kCrossingMinimumLength = 0.001f;
constexpr float kCrossingTolerance = 1e-4f;

const char* const kOffsetHelp =
    "usage: lmesh offset IN OUT --distance D [--right-angle-tolerance A] [--max-stretch P]\n"
    "                    [--cleanup]\n"
    "\n"
    "Moves every vertex by D along the mean of the directions of the facets around it\n"
    "(outward for a positive D on an outward-facing mesh, inward for a negative one),\n"
    "keeping the topology, and writes OUT (.stl or native .lmesh). Edges whose facets\n"
    "meet within A degrees of a right angle move along the bisector of the two, so flat\n"
    "sides stay flat. At a corner the move is lengthened so the sides keep their\n"
    "distance, by at most P percent. Reports facets and the bounding box before and\n"
    "after. STL and PLY corners are joined only where they coincide exactly.\n"
    "\n"
    "  --distance D                the offset distance (required)\n"
    "  --right-angle-tolerance A   degrees around 90 (default 5)\n"
    "  --max-stretch P             percent a corner move may be lengthened (default 50)\n"
    "  --cleanup                   then cut away where the surface passes through itself\n"
    "                              (inward corners narrower than the offset) and rebuild\n"
    "                              the mesh through a temporary file in the system\n"
    "                              temporary folder, joining corners closer than 0.001:\n"
    "                              meant for parts in millimetres, it coarsens a part\n"
    "                              whose edges are that short. Also reports the facets\n"
    "                              that cross others before and after\n";

void PrintBox(const char* label, L_LUMOMESH& mesh)
{
    LMeshComputeAbsoluteBoundingBox(mesh);
    std::printf("%-13s (%g, %g, %g) - (%g, %g, %g)\n", label, mesh.bboxMin[0], mesh.bboxMin[1], mesh.bboxMin[2],
                mesh.bboxMax[0], mesh.bboxMax[1], mesh.bboxMax[2]);
}

// A private folder under the system's temporary one, so that two runs at once do not
// share the cleanup's fixed file name. Empty when none can be made.
std::string MakePrivateFolder()
{
    std::error_code error;
    std::filesystem::path base = std::filesystem::temp_directory_path(error);
    if (error) base = "/tmp";
    std::string pattern = (base / "lmesh_offset_XXXXXX").string();
    return ::mkdtemp(pattern.data()) ? pattern : std::string();
}

// Seeds the cleanup with every live facet. False when its temporary file failed.
bool CleanUp(L_LUMOMESH& mesh)
{
    BaseList<uint32_t> seeds;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!(mesh.facets.Peek(f)->flags & LM_LIVE)) continue;
        uint32_t* slot = seeds.At(seeds.count);
        if (slot) *slot = f;
    }
    const std::string folder = MakePrivateFolder();
    if (folder.empty()) return false;
    // The cleanup appends its file name to the folder directly.
    const std::wstring prefix = (std::filesystem::path(folder) / "").wstring();
    const bool cleaned = LMeshCleanUpAfterOffset(mesh, seeds, prefix.c_str()) == 0;
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return cleaned;
}

}  // namespace

int RunOffset(const std::vector<std::string>& args)
{
    const char* const command = "offset";
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kOffsetHelp, args,
                 {{"--cleanup"}, {"--distance", "--right-angle-tolerance", "--max-stretch"}}, 2, parsed, exitCode))
        return exitCode;
    if (!parsed.numbers.count("--distance")) return UsageError(command, "--distance is required");
    const float distance = float(parsed.numbers.at("--distance"));
    const float rightAngle = float(NumberOr(parsed, "--right-angle-tolerance", kDefaultRightAngleTolerance));
    const float maxStretch = float(NumberOr(parsed, "--max-stretch", kDefaultMaxStretch));
    const bool cleanup = parsed.flags.count("--cleanup") > 0;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    const uint32_t facetsBefore = mesh.facetCount;
    PrintBox("box before", mesh);
    {
        Stage stage("offsetting", mesh.facetCount > kProgressFacets);
        LMeshOffset(mesh, distance, rightAngle, maxStretch, nullptr);
    }
    if (cleanup) {
        const size_t crossingBefore = FindCrossingFacets(mesh, kCrossingMinimumLength, kCrossingTolerance).size();
        {
            Stage stage("cleaning up", mesh.facetCount > kProgressFacets);
            if (!CleanUp(mesh)) return Failure(command, "the temporary file of the cleanup could not be written or read");
        }
        const size_t crossingAfter = FindCrossingFacets(mesh, kCrossingMinimumLength, kCrossingTolerance).size();
        std::printf("crossing      %zu facets before the cleanup, %zu after\n", crossingBefore, crossingAfter);
    }
    PrintBox("box after", mesh);
    if (!Save(command, parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("facets        %u before, %u after; wrote %s\n", facetsBefore, mesh.facetCount,
                parsed.positional[1].c_str());
    return 0;
}
