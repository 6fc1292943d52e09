// lmesh intersections: lists the facets of a mesh that pass through other facets, and
// can write the mesh without them.
#include "Commands.h"

#include <cstdio>
#include <string>

#include "CommandSupport.h"

namespace {

// A crossing shorter than a micrometre is rounding where facets touch, in millimetres.
constexpr double kDefaultMinimumLength = 0.001;
constexpr double kDefaultTolerance = 1e-4;
constexpr size_t kMostRangesShown = 100;

const char* const kIntersectionsHelp =
    "usage: lmesh intersections IN [--delete OUT] [--min-length L] [--tolerance T]\n"
    "\n"
    "Finds facets that pass through other facets of the same mesh: pairs that cross\n"
    "along a segment longer than L, share no edge and do not lie in one plane. Prints\n"
    "how many facets cross and their ids (runs of ids as FIRST-LAST), each id once.\n"
    "STL and PLY corners are joined only where they coincide exactly.\n"
    "\n"
    "  --delete OUT    also delete the second facet of each crossing pair (the first of\n"
    "                  a pair stays, so one side of each crossing survives) and write\n"
    "                  the rest to OUT (.stl or native .lmesh)\n"
    "  --min-length L  crossings no longer than L are ignored (default 0.001)\n"
    "  --tolerance T   corners closer than T per coordinate count as one when deciding\n"
    "                  whether two facets share an edge (default 0.0001)\n";

// "3-7, 12, 15-16": ascending ids as runs.
std::string CompactIds(const std::vector<uint32_t>& ids)
{
    std::string text;
    size_t ranges = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
        size_t last = i;
        while (last + 1 < ids.size() && ids[last + 1] == ids[last] + 1) ++last;
        if (++ranges > kMostRangesShown) return text + ", ... (more follow)";
        if (!text.empty()) text += ", ";
        text += std::to_string(ids[i]);
        if (last > i) text += "-" + std::to_string(ids[last]);
        i = last;
    }
    return text;
}

}  // namespace

int RunIntersections(const std::vector<std::string>& args)
{
    const char* const command = "intersections";
    std::vector<std::string> rest = args;
    std::string out;
    if (!TakeTextOption(rest, "--delete", out)) return UsageError(command, "--delete needs an output file");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kIntersectionsHelp, rest, {{}, {"--min-length", "--tolerance"}}, 1, parsed, exitCode))
        return exitCode;
    const float minimumLength = float(NumberOr(parsed, "--min-length", kDefaultMinimumLength));
    const float tolerance = float(NumberOr(parsed, "--tolerance", kDefaultTolerance));
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    std::vector<uint32_t> crossing;
    {
        Stage stage("searching", mesh.facetCount > kProgressFacets);
        crossing = FindCrossingFacets(mesh, minimumLength, tolerance);
    }
    std::printf("facets        %u\n", mesh.facetCount);
    std::printf("crossing      %zu\n", crossing.size());
    if (!crossing.empty()) std::printf("ids           %s\n", CompactIds(crossing).c_str());
    if (out.empty()) return 0;
    uint32_t deleted;
    {
        Stage stage("deleting", mesh.facetCount > kProgressFacets);
        deleted = LMeshDeleteIntersections(mesh, minimumLength, tolerance, nullptr, nullptr, true);
    }
    if (!Save(command, out, mesh, 1.0f, exitCode)) return exitCode;
    std::printf("deleted       %u; wrote %s with %u facets\n", deleted, out.c_str(), mesh.facetCount);
    return 0;
}
