// lmesh simplify: one pass of gated edge collapses, with the tolerances the cleanup
// driver uses unless the options say otherwise.
#include <cstdio>

#include "Commands.h"
#include "CommandSupport.h"

namespace {

const char* const kSimplifyHelp =
    "usage: lmesh simplify IN OUT [--full-edge-collapse] [--min-area A] [--curvature-change C]\n"
    "                             [--ignore-area] [--protect-right-angles]\n"
    "\n"
    "Collapses edges in one pass, in edge order. A collapse is kept only if every facet\n"
    "around it keeps an area above A, the angle sum at each vertex around it changes by\n"
    "less than C degrees, and no facet turns by a right angle or more. Vertices on a\n"
    "border never move. Writes OUT (.stl or native .lmesh, without dead slots) and\n"
    "reports the facets before and after.\n"
    "\n"
    "  --full-edge-collapse    move each kept vertex to the middle of its edge (default:\n"
    "                          it stays, and the edge's other end goes)\n"
    "  --min-area A            facets around a collapse must keep an area above A\n"
    "                          (default 0)\n"
    "  --curvature-change C    largest change of a vertex's angle sum, in degrees\n"
    "                          (default 0.05)\n"
    "  --ignore-area           skip the area test\n"
    "  --protect-right-angles  keep edges whose facet normals lie 60 to 120 degrees apart\n";

}  // namespace

int RunSimplify(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    const KnownOptions known{{"--full-edge-collapse", "--ignore-area", "--protect-right-angles"},
                             {"--min-area", "--curvature-change"}};
    if (!Prepare("simplify", kSimplifyHelp, args, known, 2, parsed, exitCode)) return exitCode;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("simplify", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;

    LM_TOLERANCES tolerances = LMeshCleanupTolerances(0.0f);
    tolerances.minimumArea = float(NumberOr(parsed, "--min-area", tolerances.minimumArea));
    tolerances.vertexCurvatureChange = float(NumberOr(parsed, "--curvature-change", tolerances.vertexCurvatureChange));
    const bool ignoreArea = parsed.flags.count("--ignore-area") > 0;
    const bool protectRightAngles = parsed.flags.count("--protect-right-angles") > 0;
    const uint32_t facetsBefore = mesh.facetCount;
    uint32_t removedEdges = 0;
    short status;
    {
        Stage stage("simplifying", facetsBefore > kProgressFacets);
        status = parsed.flags.count("--full-edge-collapse")
                     ? LMeshSimplifyFullEdgeCollapse(mesh, removedEdges, tolerances, ignoreArea, protectRightAngles)
                     : LMeshSimplify(mesh, removedEdges, tolerances, ignoreArea, protectRightAngles);
    }
    if (status != 0) return Failure("simplify", "a vertex curvature could not be computed");
    LMeshCompact(mesh);
    if (!Save("simplify", parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("facets %u before, %u after; wrote %s\n", facetsBefore, mesh.facetCount, parsed.positional[1].c_str());
    return 0;
}
