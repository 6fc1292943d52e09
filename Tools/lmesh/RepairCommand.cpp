// lmesh repair: the library's cleanup in one command: welding, removal of bad facets,
// and on request skinny facets, T-junctions, holes and overhangs, then orientation.
#include "Commands.h"

#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "CommandSupport.h"
#include "RepairSettings.h"

namespace {

const char* const kRepairHelp =
    "usage: lmesh repair IN OUT [options]\n"
    "\n"
    "Repairs a mesh in a fixed order and writes OUT (.stl or native .lmesh):\n"
    "  1. welds border edges whose ends lie within T of each other (cracks);\n"
    "  2. removes facets of area at most A;\n"
    "  3. removes repeated facets and coplanar facets whose edges cross;\n"
    "  4. removes loose facets and facets whose free edge lies on two others;\n"
    "  5. welds again; then, when asked for, removes folded-back flaps, collapses\n"
    "     skinny facets, splits facets at T-junctions and fills holes;\n"
    "  6. makes the winding consistent, each piece facing outward.\n"
    "Reports what each step did and the mesh before and after. STL and PLY corners\n"
    "are joined on loading only where they coincide exactly, so that the weld sees\n"
    "the cracks. The defaults follow the size of the part, so that they suit one in\n"
    "millimetres as well as one in metres.\n"
    "\n"
    "  --tolerance T     weld distance, and the coordinate tolerance of every step\n"
    "                    (default: 1e-5 of the largest extent, 0.001 for a part\n"
    "                    100 mm across)\n"
    "  --no-equal        keep repeated and overlapping facets\n"
    "  --no-non-manifold keep loose facets and facets stacked on a free edge\n"
    "  --area A          remove facets of area at most A (default: T squared); 0\n"
    "                    removes only exactly flat ones, a negative A none\n"
    "  --skinny R        collapse the shortest side of facets whose longest side is\n"
    "                    more than R times their smallest height (off by default)\n"
    "  --fill-holes      close every loop of border edges with new facets\n"
    "  --disjoints D     split a facet where a vertex lies within D of its free edge\n"
    "                    (a T-junction; off by default)\n"
    "  --no-orient       leave the winding as it is\n"
    "  --overhangs       remove flaps: facets with two free sides folded back onto\n"
    "                    the facet they hang from\n";

// A negative area switches the removal off: Heron's area is never negative.
RepairSettings ReadSettings(const ParsedArguments& parsed, L_LUMOMESH& mesh)
{
    RepairSettings settings = DefaultRepairSettings(mesh);
    settings.tolerance = float(NumberOr(parsed, "--tolerance", settings.tolerance));
    settings.removeEqual = !parsed.flags.count("--no-equal");
    settings.removeNonManifold = !parsed.flags.count("--no-non-manifold");
    if (parsed.numbers.count("--tolerance")) settings.area = settings.tolerance * settings.tolerance;
    settings.area = float(NumberOr(parsed, "--area", settings.area));
    settings.removeZeroArea = settings.area >= 0.0f;
    settings.removeSkinny = parsed.numbers.count("--skinny") != 0;
    settings.aspectRatio = float(NumberOr(parsed, "--skinny", settings.aspectRatio));
    settings.fillHoles = parsed.flags.count("--fill-holes") != 0;
    settings.repairDisjoints = parsed.numbers.count("--disjoints") != 0;
    settings.disjointDistance = float(NumberOr(parsed, "--disjoints", settings.disjointDistance));
    settings.orient = !parsed.flags.count("--no-orient");
    settings.removeOverhangs = parsed.flags.count("--overhangs") != 0;
    return settings;
}

// Edge-connected pieces of the live facets, by union-find over inner edges.
uint32_t CountPieces(const L_LUMOMESH& mesh)
{
    std::vector<uint32_t> parent(mesh.facets.count);
    std::iota(parent.begin(), parent.end(), 0u);
    auto root = [&parent](uint32_t f) {
        while (parent[f] != f) f = parent[f] = parent[parent[f]];
        return f;
    };
    auto isLiveFacet = [&mesh](uint32_t f) {
        const LM_FACET* facet = mesh.facets.Peek(f);
        return facet && (facet->flags & LM_LIVE);
    };
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if ((edge.flags & LM_LIVE) && isLiveFacet(edge.facet[0]) && isLiveFacet(edge.facet[1]))
            parent[root(edge.facet[0])] = root(edge.facet[1]);
    }
    uint32_t pieces = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f)
        if (isLiveFacet(f) && root(f) == f) ++pieces;
    return pieces;
}

void PrintMesh(const char* label, const L_LUMOMESH& mesh)
{
    const uint32_t pieces = CountPieces(mesh);
    std::printf("%-8s %u facets, %u border edges, %u piece%s, volume %g\n", label, mesh.facetCount,
                CountBorderEdges(mesh), pieces, pieces == 1 ? "" : "s", SignedVolume(mesh));
}

void PrintStep(const char* what, bool enabled, const std::string& outcome)
{
    std::printf("  %-42s %s\n", what, enabled ? outcome.c_str() : "off");
}

void PrintResults(const RepairSettings& settings, const RepairResults& results)
{
    std::printf("repairs (tolerance %g):\n", settings.tolerance);
    PrintStep("zero-area facets removed", settings.removeZeroArea, std::to_string(results.zeroAreaFacets));
    PrintStep("repeated or overlapping facets removed", settings.removeEqual, std::to_string(results.equalFacets));
    PrintStep("loose or non-manifold facets removed", settings.removeNonManifold,
              std::to_string(results.nonManifoldFacets));
    PrintStep("skinny facets collapsed", settings.removeSkinny, std::to_string(results.skinnyCollapses));
    PrintStep("facets split at T-junctions", settings.repairDisjoints, std::to_string(results.splitAtTJunctions));
    PrintStep("holes filled", settings.fillHoles,
              results.holesFilled < 0 ? "failed" : std::to_string(results.holesFilled));
    PrintStep("corners reordered so that winding agrees", settings.orient, results.orientationChanged ? "yes" : "no");
}

}  // namespace

int RunRepair(const std::vector<std::string>& args)
{
    const char* const command = "repair";
    const KnownOptions known = {{"--no-equal", "--no-non-manifold", "--fill-holes", "--no-orient", "--overhangs"},
                                {"--tolerance", "--area", "--skinny", "--disjoints"}};
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kRepairHelp, args, known, 2, parsed, exitCode)) return exitCode;
    if (!(NumberOr(parsed, "--tolerance", 0.0) >= 0.0)) return UsageError(command, "the tolerance must be 0 or more");
    if (!(NumberOr(parsed, "--skinny", 2.0) > 1.0)) return UsageError(command, "--skinny needs a ratio above 1");
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    const RepairSettings settings = ReadSettings(parsed, mesh);
    PrintMesh("before", mesh);
    RepairResults results;
    {
        Stage stage("repairing", mesh.facetCount > kProgressFacets);
        results = RepairMesh(mesh, settings);
        // Welds move corners; without the orientation step the stored normals are stale.
        if (!settings.orient) LMeshRecomputeNormals(mesh);
    }
    PrintResults(settings, results);
    PrintMesh("after", mesh);
    if (!Save(command, parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("wrote %s\n", parsed.positional[1].c_str());
    return 0;
}
