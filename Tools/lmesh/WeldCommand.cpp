// lmesh weld: joins edges that lie on each other and merges their ends.
#include "Commands.h"

#include <cstdio>

#include "CommandSupport.h"

namespace {

// Seams of millimetre parts that failed to meet lie well below a micrometre apart,
// while their edges are far longer.
constexpr double kDefaultTolerance = 1e-4;

const char* const kWeldHelp =
    "usage: lmesh weld IN OUT [--tolerance T] [--all-edges]\n"
    "\n"
    "Joins pairs of edges whose ends lie within T of each other: each pair becomes one\n"
    "edge shared by both facets, and the ends merge into one vertex at their mean. A\n"
    "pair stays apart when its gap is not smaller than the shorter edge. Writes OUT\n"
    "(.stl or native .lmesh) and reports the candidate edges, the pairs welded and\n"
    "the candidates left unmatched.\n"
    "\n"
    "STL and PLY corners with exactly equal coordinates are one point and become one\n"
    "vertex as the file loads, and edges between them are shared; no other corners\n"
    "merge on loading. What is left open are edges whose ends only nearly meet, and\n"
    "those are what the weld joins. A native .lmesh file is taken as it stands.\n"
    "\n"
    "  --tolerance T   greatest distance between welded ends (default 1e-4, for parts\n"
    "                  in millimetres); 0 joins only exactly coincident ends\n"
    "  --all-edges     take every edge as a candidate, not only border edges\n";

}  // namespace

int RunWeld(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("weld", kWeldHelp, args, {{"--all-edges"}, {"--tolerance"}}, 2, parsed, exitCode)) return exitCode;
    const float tolerance = float(NumberOr(parsed, "--tolerance", kDefaultTolerance));
    if (!(tolerance >= 0.0f)) return UsageError("weld", "the tolerance must be 0 or more");
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("weld", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    uint32_t candidates = 0, unmatched = 0;
    bool welded;
    {
        Stage stage("welding", mesh.facetCount > kProgressFacets);
        const short mode = parsed.flags.count("--all-edges") ? 0 : 1;
        welded = LMeshOptimizeEdges(mesh, tolerance, nullptr, &candidates, &unmatched, mode);
    }
    // Merged ends moved to their means; the facets' stored normals should follow.
    if (welded) LMeshRecomputeNormals(mesh);
    if (!Save("weld", parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("%u candidate edges: welded %u pairs, %u left unmatched\n", candidates, (candidates - unmatched) / 2,
                unmatched);
    std::printf("wrote %s: %u facets, %u vertices, %u edges (%u on a border)\n", parsed.positional[1].c_str(),
                mesh.facetCount, mesh.vertexCount, mesh.edgeCount, CountBorderEdges(mesh));
    return 0;
}
