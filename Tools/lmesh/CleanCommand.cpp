// lmesh clean-degenerate: the three repairs of facets that add nothing to the surface,
// run in the order that lets each see the previous one's result.
#include "Commands.h"

#include <cstdio>

#include "CommandSupport.h"

namespace {

constexpr double kDefaultEqualTolerance = 1e-5;

const char* const kCleanDegenerateHelp =
    "usage: lmesh clean-degenerate IN OUT [--area A] [--tolerance T]\n"
    "\n"
    "Deletes, in this order, facets whose area is at or below A, facets that repeat\n"
    "another facet (the same three corners within T per coordinate, in any order or\n"
    "orientation; of each set the one with most neighbours stays), and looping\n"
    "triangles, which hang on the rest of the mesh by a single vertex. Reports how many\n"
    "of each went, writes OUT (.stl or native .lmesh). STL and PLY corners are joined\n"
    "only where they coincide exactly.\n"
    "\n"
    "  --area A        area at or below which a facet is deleted (default 0: exactly flat)\n"
    "  --tolerance T   coordinate tolerance for repeated facets (default 1e-5)\n";

// Lists with `find`, then deletes what it listed; the number deleted.
template <class Find>
uint32_t DeleteFound(L_LUMOMESH& mesh, Find find)
{
    BaseList<uint32_t> found;
    if (!find(found)) return 0;
    LMeshDeleteFacets(mesh, found);
    return found.count;
}

}  // namespace

int RunCleanDegenerate(const std::vector<std::string>& args)
{
    const char* const command = "clean-degenerate";
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kCleanDegenerateHelp, args, {{}, {"--area", "--tolerance"}}, 2, parsed, exitCode))
        return exitCode;
    const float area = float(NumberOr(parsed, "--area", 0.0));
    const float tolerance = float(NumberOr(parsed, "--tolerance", kDefaultEqualTolerance));
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    const uint32_t before = mesh.facetCount;
    uint32_t zeroArea, equal, looping;
    {
        Stage stage("cleaning", mesh.facetCount > kProgressFacets);
        zeroArea = DeleteFound(mesh, [&](BaseList<uint32_t>& found) {
            return LMeshFindAreaZeroFacets(mesh, area, &found);
        });
        equal = DeleteFound(mesh, [&](BaseList<uint32_t>& found) {
            return LMeshFindEqualFacets(mesh, tolerance, &found);
        });
        looping = LMeshDeleteLoopingTriangles(mesh);
    }
    if (!Save(command, parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("zero area     %u\n", zeroArea);
    std::printf("repeated      %u\n", equal);
    std::printf("looping       %u\n", looping);
    std::printf("facets        %u before, %u after; wrote %s\n", before, mesh.facetCount,
                parsed.positional[1].c_str());
    return 0;
}
