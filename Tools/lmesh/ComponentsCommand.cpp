// lmesh components: counts the connected pieces of a mesh and can write each to a
// file of its own.
#include "Commands.h"

#include <cstdio>
#include <string>

#include "CommandSupport.h"

namespace {

const char* const kComponentsHelp =
    "usage: lmesh components IN [--split PREFIX] [--tolerance T]\n"
    "\n"
    "Counts the connected pieces of a mesh: facets joined across shared edges belong to\n"
    "one piece, facets that only touch at a corner do not. Prints the number of pieces\n"
    "and the facets and vertices of each, numbered from 1 in the order of their lowest\n"
    "facet id.\n"
    "\n"
    "  --split PREFIX  also write piece n as binary STL to PREFIXn.stl: '--split out/part'\n"
    "                  gives out/part1.stl, out/part2.stl, ... (existing files are\n"
    "                  overwritten; the folder must exist)\n"
    "  --tolerance T   weld STL and PLY corners closer than T (default 0: exact matches)\n"
    "\n"
    "While the pieces are made each one takes as much memory as the whole input, so a\n"
    "mesh of many pieces needs that many times its own size.\n";

// "1 facet", "2 facets"; "vertex" becomes "vertices".
std::string Counted(uint32_t count, const std::string& noun)
{
    const std::string plural = noun == "vertex" ? "vertices" : noun + "s";
    return std::to_string(count) + " " + (count == 1 ? noun : plural);
}

std::string PiecePath(const std::string& prefix, uint32_t number) { return prefix + std::to_string(number) + ".stl"; }

}  // namespace

int RunComponents(const std::vector<std::string>& args)
{
    std::vector<std::string> rest = args;
    std::string prefix;
    if (!TakeTextOption(rest, "--split", prefix)) return UsageError("components", "--split needs a file name prefix");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("components", kComponentsHelp, rest, {{}, {"--tolerance"}}, 1, parsed, exitCode)) return exitCode;
    const std::string& path = parsed.positional[0];
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("components", path, float(NumberOr(parsed, "--tolerance", 0.0)), mesh, format, exitCode))
        return exitCode;
    BaseList<L_LUMOMESH> pieces;
    {
        Stage stage("splitting", mesh.facetCount > kProgressFacets);
        LMeshSplitIntoConnectedMeshes(mesh, pieces);  // false only when no facet is live: no pieces
    }
    std::printf("%s: %s in %s\n", path.c_str(), Counted(mesh.facetCount, "facet").c_str(),
                Counted(pieces.count, "piece").c_str());
    for (uint32_t i = 0; i < pieces.count; ++i) {
        L_LUMOMESH& piece = *pieces.At(i);
        std::string written;
        if (!prefix.empty()) {
            const std::string piecePath = PiecePath(prefix, i + 1);
            if (!Save("components", piecePath, piece, 1.0f, exitCode)) return exitCode;
            written = ", written to " + piecePath;
        }
        std::printf("  piece %u: %s, %s%s\n", i + 1, Counted(piece.facetCount, "facet").c_str(),
                    Counted(piece.vertexCount, "vertex").c_str(), written.c_str());
    }
    return 0;
}
