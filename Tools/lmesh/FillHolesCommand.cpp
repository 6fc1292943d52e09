// lmesh fill-holes: closes the boundary loops of a mesh with new facets and welds them
// to the rim.
#include "Commands.h"

#include <algorithm>
#include <cstdio>

#include "CommandSupport.h"

namespace {

// The default weld, as a share of the mesh's largest extent: patch corners are copies
// of rim corners, so only the rounding of the weld itself has to be covered.
constexpr double kDefaultWeldShare = 1e-6;
constexpr float kOrientTolerance = 1e-10f;
constexpr uint32_t kLoopsListed = 20;

const char* const kFillHolesHelp =
    "usage: lmesh fill-holes IN OUT [--keep-longest] [--tolerance T] [--orient]\n"
    "\n"
    "Finds the loops of border edges (edges with a facet on one side only), closes each\n"
    "with a patch of new facets (group 0), welds the patches to their rims and writes OUT\n"
    "(.stl or native .lmesh). Reports the loops found and how many were filled. A loop\n"
    "that cannot be triangulated (it crosses itself when seen along its best plane, or is\n"
    "flat to a line) stays open. Where a border touches itself at a vertex the loop may\n"
    "be found in pieces, and each piece is closed on its own. STL and PLY corners are\n"
    "joined only where they coincide exactly.\n"
    "\n"
    "  --keep-longest  leave open the loop with most edges (the rim of an open surface)\n"
    "  --tolerance T   weld distance for joining patches to rims (default: a millionth\n"
    "                  of the mesh's largest extent)\n"
    "  --orient        afterwards make the winding consistent and face outward; patches\n"
    "                  are wound in the order their loop was walked, which may disagree\n"
    "                  with the surface around them\n";

void PrintLoops(const BaseList<BaseList<uint32_t>>& edgeChains)
{
    uint32_t edges = 0;
    for (uint32_t i = 0; i < edgeChains.count; ++i) edges += edgeChains.Peek(i)->count;
    std::printf("loops found   %u (%u border edges)\n", edgeChains.count, edges);
    for (uint32_t i = 0; i < std::min(edgeChains.count, kLoopsListed); ++i)
        std::printf("  loop %-6u %u edges\n", i + 1, edgeChains.Peek(i)->count);
    if (edgeChains.count > kLoopsListed) std::printf("  ... and %u more\n", edgeChains.count - kLoopsListed);
}

}  // namespace

int RunFillHoles(const std::vector<std::string>& args)
{
    const char* const command = "fill-holes";
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kFillHolesHelp, args, {{"--keep-longest", "--orient"}, {"--tolerance"}}, 2, parsed,
                 exitCode))
        return exitCode;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    const float tolerance = float(NumberOr(parsed, "--tolerance", LargestExtent(mesh) * kDefaultWeldShare));
    const uint32_t facetsBefore = mesh.facetCount, borderBefore = CountBorderEdges(mesh);
    int32_t filled;
    {
        Stage stage("filling", mesh.facetCount > kProgressFacets);
        BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
        LMeshGetConnectedEdgesBatch(mesh, -1.0f, kFreeEdgeTolerance, edgeChains, vertexChains);
        PrintLoops(edgeChains);
        filled = LMeshFillHolesInBatch(mesh, -1.0f, kFreeEdgeTolerance, tolerance, parsed.flags.count("--keep-longest") != 0,
                                       false, nullptr);
        if (parsed.flags.count("--orient")) LMeshOrientFacets(mesh, kOrientTolerance, 1);
    }
    if (!Save(command, parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("loops filled  %d (weld tolerance %g)\n", filled, tolerance);
    std::printf("facets        %u before, %u after\n", facetsBefore, mesh.facetCount);
    std::printf("border edges  %u before, %u after; wrote %s\n", borderBefore, CountBorderEdges(mesh),
                parsed.positional[1].c_str());
    return 0;
}
