// lmesh extend: grows strips of new facets out of a mesh's free boundary, along the
// surface's own tangent, so that a surface that stops at an edge continues past it.
#include "Commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
#include <string>
#include <utility>

#include "CommandSupport.h"

namespace {

// Strips are welded to themselves (and with --merge to the mesh) within this share of
// the mesh's largest extent: their corners are copies of rim corners or of each other.
constexpr double kWeldShare = 1e-6;
constexpr uint32_t kChainsListed = 20;
// Each chain's strip is a mesh of its own, a few hundred kilobytes even when small. A
// boundary through non-manifold vertices is walked again from many seeds: past this
// many chains listing each edge this many times over, the run is refused.
constexpr uint32_t kManyChains = 1000;
constexpr uint32_t kRepeatedWalks = 4;

const char* const kExtendHelp =
    "usage: lmesh extend IN OUT --distance D [--longest-only] [--no-cleanup] [--merge]\n"
    "\n"
    "Continues an open surface past its free boundary (edges with a facet on one side\n"
    "only): each chain of border edges grows a strip of new facets D wide, in the\n"
    "direction the surface runs across each edge (measured at least 1 unit back into the\n"
    "surface), and OUT (.stl or native .lmesh) receives the strips, or with --merge the\n"
    "input with the strips joined to it. The input is not changed otherwise. Reports, per\n"
    "chain, its edges, the records (edges shorter than 0.015 join a long neighbour) and\n"
    "the triangles of its strip. STL and PLY corners are joined only where they coincide\n"
    "exactly.\n"
    "\n"
    "  --distance D     how far the surface is extended (required, above 0)\n"
    "  --longest-only   extend only the chain with most vertices (the outer rim)\n"
    "  --no-cleanup     leave the strips as each edge gives them: gaps at convex corners,\n"
    "                   overlaps at concave ones\n"
    "  --merge          write the input mesh with the strips joined to its boundary\n";

// The chain of most vertices; of equals the first.
uint32_t LongestChain(const BaseList<BaseList<uint32_t>>& vertexChains)
{
    uint32_t longest = 0;
    for (uint32_t i = 1; i < vertexChains.count; ++i)
        if (vertexChains.Peek(i)->count > vertexChains.Peek(longest)->count) longest = i;
    return longest;
}

// How many edges the chains list in all, and how many distinct ones.
std::pair<uint64_t, uint64_t> ListedAndDistinctEdges(const BaseList<BaseList<uint32_t>>& edgeChains)
{
    std::set<uint32_t> distinct;
    uint64_t listed = 0;
    for (uint32_t c = 0; c < edgeChains.count; ++c) {
        const BaseList<uint32_t>& chain = *edgeChains.Peek(c);
        listed += chain.count;
        for (uint32_t i = 0; i < chain.count; ++i) distinct.insert(*chain.Peek(i));
    }
    return {listed, distinct.size()};
}

// The records the extension makes from a chain before its cleanups.
uint32_t RecordsOf(L_LUMOMESH& mesh, float distance, const BaseList<uint32_t>& edges,
                   const BaseList<uint32_t>& vertices)
{
    BaseList<LM_EXTENDEDGE> records(16, 4096);
    LMeshCreateExtensionStructureBeforeExtend(mesh, distance, edges, vertices, records);
    return records.count;
}

}  // namespace

int RunExtend(const std::vector<std::string>& args)
{
    const char* const command = "extend";
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kExtendHelp, args, {{"--longest-only", "--no-cleanup", "--merge"}, {"--distance"}}, 2,
                 parsed, exitCode))
        return exitCode;
    if (!parsed.numbers.count("--distance")) return UsageError(command, "--distance is required");
    const double distance = parsed.numbers.at("--distance");
    if (!(distance > 0.0) || !std::isfinite(distance)) return UsageError(command, "--distance must be above 0");
    const bool longestOnly = parsed.flags.count("--longest-only") > 0;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;

    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, -1.0f, kFreeEdgeTolerance, edgeChains, vertexChains);
    if (edgeChains.count == 0) return Failure(command, "the mesh has no free boundary: nothing to extend");
    const auto [listed, distinct] = ListedAndDistinctEdges(edgeChains);
    if (!longestOnly && edgeChains.count > kManyChains && listed > kRepeatedWalks * distinct)
        return Failure(command, "the free boundary runs through non-manifold vertices: its " + std::to_string(distinct) +
                                    " edges make " + std::to_string(edgeChains.count) + " chains that list them " +
                                    std::to_string(listed) +
                                    " times, and each chain would get a strip of its own. Repair the mesh first "
                                    "(lmesh repair), or extend the longest chain alone (--longest-only)");
    BaseList<L_LUMOMESH> strips;
    {
        Stage stage("extending", mesh.facetCount > kProgressFacets);
        LMeshExtendMesh(mesh, float(distance), strips, longestOnly, parsed.flags.count("--no-cleanup") == 0);
    }
    const uint32_t first = longestOnly ? LongestChain(vertexChains) : 0;
    std::printf("chains        %u found, %u extended\n", edgeChains.count, strips.count);
    for (uint32_t i = 0; i < std::min(strips.count, kChainsListed); ++i) {
        const uint32_t c = first + i;
        std::printf("  chain %-5u %u edges, %u records, %u triangles\n", c + 1, edgeChains.Peek(c)->count,
                    RecordsOf(mesh, float(distance), *edgeChains.Peek(c), *vertexChains.Peek(c)),
                    strips.Peek(i)->facetCount);
    }
    if (strips.count > kChainsListed) std::printf("  ... and %u more\n", strips.count - kChainsListed);

    const float weld = float(LargestExtent(mesh) * kWeldShare);
    L_LUMOMESH strip;
    L_LUMOMESH& output = parsed.flags.count("--merge") ? mesh : strip;
    uint32_t triangles = 0;
    for (uint32_t i = 0; i < strips.count; ++i) {
        triangles += strips.Peek(i)->facetCount;
        LMeshMerge(*strips.Peek(i), output, weld, false);
    }
    // Corners drawn to one point leave triangles of no area; they carry nothing.
    const uint32_t withEmpty = output.facetCount;
    LMeshDeleteAreaZeroFacets(output, 0.0f);
    const uint32_t empty = withEmpty - output.facetCount;
    LMeshOptimizeEdges(output, weld, nullptr, nullptr, nullptr, 1);
    LMeshComputeAbsoluteBoundingBox(output);
    if (!Save(command, parsed.positional[1], output, 1.0f, exitCode)) return exitCode;
    std::printf("strips        %u triangles, %u of no area dropped\n", triangles, empty);
    std::printf("wrote         %s: %u facets, %u border edges\n", parsed.positional[1].c_str(), output.facetCount,
                CountBorderEdges(output));
    return 0;
}
