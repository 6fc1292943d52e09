// The tool's subcommands. Each one parses its own options, loads its input, does one
// thing with the library and reports in plain lines on stdout; errors go to stderr as
// one line and give exit status 1 (2 for a usage error).
#include "Commands.h"

#include <cmath>
#include <cstdio>
#include <vector>

#include "CommandSupport.h"

namespace {

// Corners shared by neighbouring facets are one vertex, so any positive distance finds
// them; the same value bounds the projected determinants of the ray test, which must
// stay below those of the smallest real facets.
constexpr float kOrientTolerance = 1e-10f;

void PrintEdgeLengths(const L_LUMOMESH& mesh)
{
    float shortest = INFINITY, longest = 0.0f, average = 0.0f;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        if (!(mesh.edges.Peek(e)->flags & LM_LIVE)) continue;
        const float length = LMeshEdgeLength(mesh, e);
        shortest = std::fmin(shortest, length);
        longest = std::fmax(longest, length);
    }
    if (mesh.edgeCount == 0) {
        std::printf("edge length   (no edges)\n");
        return;
    }
    LMeshComputeAverageEdgeLength(mesh, average);
    std::printf("edge length   shortest %g, average %g, longest %g\n", shortest, average, longest);
}

// Ten bins of width 0.1; a factor of exactly 1 is counted in the last bin.
void PrintShapeFactors(const L_LUMOMESH& mesh)
{
    BaseList<uint32_t> bins;
    if (mesh.facetCount == 0 || !LMeshCalculateShapeFactorDistrib(mesh, 0.1f, &bins)) return;
    uint32_t counts[10] = {};
    for (uint32_t b = 0; b < bins.count; ++b) counts[b < 10 ? b : 9] += *bins.Peek(b);
    std::printf("shape factor  (1 = equilateral, 0 = degenerate)\n");
    for (int b = 0; b < 10; ++b) {
        const double share = 100.0 * counts[b] / mesh.facetCount;
        std::printf("  %.1f-%.1f %10u %6.1f%%  %s\n", b / 10.0, (b + 1) / 10.0, counts[b], share,
                    PercentBar(share).c_str());
    }
}

void PrintInfo(const std::string& path, MeshFormat format, L_LUMOMESH& mesh)
{
    LMeshComputeAbsoluteBoundingBox(mesh);
    std::printf("file          %s (%s)\n", path.c_str(), FormatName(format));
    std::printf("facets        %u\n", mesh.facetCount);
    std::printf("vertices      %u\n", mesh.vertexCount);
    std::printf("edges         %u (%u on a border)\n", mesh.edgeCount, CountBorderEdges(mesh));
    if (mesh.vertexCount > 0) {
        std::printf("box           (%g, %g, %g) - (%g, %g, %g)\n", mesh.bboxMin[0], mesh.bboxMin[1], mesh.bboxMin[2],
                    mesh.bboxMax[0], mesh.bboxMax[1], mesh.bboxMax[2]);
    }
    std::printf("area          %g\n", LMeshComputeArea(mesh));
    std::printf("volume        %g\n", LMeshComputeVolume(mesh));
    PrintEdgeLengths(mesh);
    PrintShapeFactors(mesh);
}

// Facets whose corner cycle now runs the other way than before.
uint32_t CountReversed(const L_LUMOMESH& before, const L_LUMOMESH& after)
{
    uint32_t reversed = 0;
    for (uint32_t f = 0; f < after.facets.count; ++f) {
        const LM_FACET& a = *before.facets.Peek(f);
        const LM_FACET& b = *after.facets.Peek(f);
        if (!(b.flags & LM_LIVE)) continue;
        bool same = false;
        for (int shift = 0; shift < 3; ++shift)
            same = same || (a.vertex[0] == b.vertex[shift] && a.vertex[1] == b.vertex[(shift + 1) % 3]);
        if (!same) ++reversed;
    }
    return reversed;
}

const char* const kInfoHelp =
    "usage: lmesh info FILE [--tolerance T]\n"
    "\n"
    "Loads a mesh (binary or ASCII STL, PLY, or a native .lmesh file, recognised by\n"
    "content) and prints its facet, vertex and edge counts, border edges, bounding box,\n"
    "area, volume, edge lengths and the distribution of facet shape factors.\n"
    "\n"
    "  --tolerance T   weld STL and PLY corners closer than T (default 0: exact matches)\n";

const char* const kConvertHelp =
    "usage: lmesh convert IN OUT [--tolerance T] [--scale S]\n"
    "\n"
    "Loads IN (any supported format) and writes OUT as binary STL (.stl) or as the\n"
    "native mesh file (.lmesh), chosen by OUT's extension.\n"
    "\n"
    "  --tolerance T   weld STL and PLY corners closer than T (default 0: exact matches)\n"
    "  --scale S       multiply all coordinates by S (default 1)\n";

const char* const kOrientHelp =
    "usage: lmesh orient IN OUT [--inward] [--tolerance T]\n"
    "\n"
    "Makes the winding of every connected piece consistent and turns each piece to face\n"
    "outward (or inward), deciding by the parity of ray crossings. Writes OUT (.stl or\n"
    "native .lmesh) and reports how many facets were turned.\n"
    "\n"
    "  --inward        make pieces face inward instead\n"
    "  --tolerance T   weld STL and PLY corners closer than T (default 0: exact matches)\n";

}  // namespace

int RunInfo(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("info", kInfoHelp, args, {{}, {"--tolerance"}}, 1, parsed, exitCode)) return exitCode;
    const std::string& path = parsed.positional[0];
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("info", path, float(NumberOr(parsed, "--tolerance", 0.0)), mesh, format, exitCode)) return exitCode;
    Stage stage("measuring", mesh.facetCount > kProgressFacets);
    PrintInfo(path, format, mesh);
    return 0;
}

int RunConvert(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("convert", kConvertHelp, args, {{}, {"--tolerance", "--scale"}}, 2, parsed, exitCode))
        return exitCode;
    L_LUMOMESH mesh;
    MeshFormat format;
    const float tolerance = float(NumberOr(parsed, "--tolerance", 0.0));
    if (!Load("convert", parsed.positional[0], tolerance, mesh, format, exitCode)) return exitCode;
    if (!Save("convert", parsed.positional[1], mesh, float(NumberOr(parsed, "--scale", 1.0)), exitCode))
        return exitCode;
    std::printf("wrote %s: %u facets, %u vertices (from %s)\n", parsed.positional[1].c_str(), mesh.facetCount,
                mesh.vertexCount, FormatName(format));
    return 0;
}

int RunOrient(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("orient", kOrientHelp, args, {{"--inward"}, {"--tolerance"}}, 2, parsed, exitCode))
        return exitCode;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("orient", parsed.positional[0], float(NumberOr(parsed, "--tolerance", 0.0)), mesh, format, exitCode))
        return exitCode;
    const L_LUMOMESH before(mesh);
    bool changed;
    {
        Stage stage("orienting", mesh.facetCount > kProgressFacets);
        changed = LMeshOrientFacets(mesh, kOrientTolerance, parsed.flags.count("--inward") ? 0 : 1);
    }
    const uint32_t reversed = CountReversed(before, mesh);
    if (!Save("orient", parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    if (reversed == 0 && !changed)
        std::printf("already consistent: no facet changed; wrote %s\n", parsed.positional[1].c_str());
    else
        std::printf("turned %u of %u facets; wrote %s\n", reversed, mesh.facetCount, parsed.positional[1].c_str());
    return 0;
}
