// lmesh subdivide and lmesh remesh-fem: refining every facet of a mesh, and slicing a
// mesh into facets no larger than a grid cell for finite-element use.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "Commands.h"
#include "CommandSupport.h"

namespace {

// Midpoints of neighbouring facets are computed alike; this only absorbs the rounding
// of corners that were welded from slightly different positions.
constexpr double kDefaultWeldTolerance = 1e-5;

const char* const kSubdivideHelp =
    "usage: lmesh subdivide IN OUT [--centroid] [--repeat] [--tolerance T] [--margin A]\n"
    "\n"
    "Cuts every facet into four at its edge midpoints, welds the midpoints that\n"
    "neighbouring facets share and makes the winding consistent. Writes OUT (.stl or\n"
    "native .lmesh, without dead slots) and reports the facets before and after.\n"
    "\n"
    "  --centroid     instead, cut each facet larger than the smallest into three at\n"
    "                 its centre; the pieces wind the other way round, so their\n"
    "                 normals point against their neighbours' (lmesh orient mends it)\n"
    "  --repeat       with --centroid, cut the pieces again while their area exceeds\n"
    "                 the smallest facet's by A or more\n"
    "  --tolerance T  weld midpoints whose coordinates differ by less than T\n"
    "                 (default 1e-5)\n"
    "  --margin A     the area margin of --repeat, in square units (default 0.25)\n";

const char* const kRemeshFemHelp =
    "usage: lmesh remesh-fem IN OUT --slices X,Y,Z [--tolerance T]\n"
    "\n"
    "Slices the mesh by planes across each axis, X, Y and Z of them evenly spaced over\n"
    "its bounding box, so that no facet spans more than one grid cell, then welds the\n"
    "pieces and cleans the result up: zero-area, skinny and obtuse facets go, inner\n"
    "vertices are evened out, and the winding is made consistent. Pieces that do not\n"
    "weld stay as they are, so check the border edges it reports. Writes OUT (.stl or\n"
    "native .lmesh, without dead slots) and reports facets, border edges and the\n"
    "longest edge before and after.\n"
    "\n"
    "  --slices X,Y,Z  three whole numbers from 1 to 32767, no blanks (1 leaves that\n"
    "                  axis uncut)\n"
    "  --tolerance T   corners closer than T on every axis are one point (default 1e-5)\n";

// "X,Y,Z": three whole numbers from 1 to 32767 (the record holds 16-bit counts).
bool ParseSlices(const std::string& text, int16_t slices[3])
{
    std::istringstream in(text);
    std::string part;
    int count = 0;
    while (std::getline(in, part, ',')) {
        if (count == 3 || part.empty()) return false;
        char* end = nullptr;
        const long value = std::strtol(part.c_str(), &end, 10);
        if (*end != '\0' || part[0] == '+' || part[0] == ' ' || value < 1 || value > INT16_MAX) return false;
        slices[count++] = int16_t(value);
    }
    return count == 3 && text.back() != ',';
}

double LongestEdge(const L_LUMOMESH& mesh)
{
    double longest = 0.0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!(edge->flags & LM_LIVE)) continue;
        const LM_VERTEX* from = mesh.vertices.Peek(edge->vertex[0]);
        const LM_VERTEX* to = mesh.vertices.Peek(edge->vertex[1]);
        if (!from || !to) continue;
        double squares = 0.0;
        for (int k = 0; k < 3; ++k) {
            const double d = double(from->position[k]) - double(to->position[k]);
            squares += d * d;
        }
        longest = std::fmax(longest, std::sqrt(squares));
    }
    return longest;
}

}  // namespace

int RunSubdivide(const std::vector<std::string>& args)
{
    ParsedArguments parsed;
    int exitCode = 0;
    const KnownOptions known{{"--centroid", "--repeat"}, {"--tolerance", "--margin"}};
    if (!Prepare("subdivide", kSubdivideHelp, args, known, 2, parsed, exitCode)) return exitCode;
    const bool centroid = parsed.flags.count("--centroid") > 0;
    const bool repeat = parsed.flags.count("--repeat") > 0;
    if (repeat && !centroid) return UsageError("subdivide", "--repeat goes with --centroid");
    LM_TOLERANCES tolerances = LMeshCleanupTolerances(0.0f);
    const double tolerance = NumberOr(parsed, "--tolerance", kDefaultWeldTolerance);
    tolerances.reorganizeDistance = float(NumberOr(parsed, "--margin", tolerances.reorganizeDistance));
    if (!(tolerance >= 0.0) || !(tolerances.reorganizeDistance >= 0.0f))
        return UsageError("subdivide", "the tolerance and the margin must be 0 or more");

    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("subdivide", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    const uint32_t facetsBefore = mesh.facetCount;
    uint32_t newFacets = 0;
    short status;
    {
        Stage stage("subdividing", facetsBefore > kProgressFacets);
        status = centroid ? LMeshRemeshCentroidSubdivision(mesh, repeat, newFacets, tolerances)
                          : LMeshRemesh1to4Subdivision(mesh, float(tolerance), newFacets, nullptr);
    }
    if (status != 0) return Failure("subdivide", "a facet's edges do not join its corners; nothing written");
    LMeshCompact(mesh);
    if (!Save("subdivide", parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("facets %u before, %u after (%u new); wrote %s\n", facetsBefore, mesh.facetCount, newFacets,
                parsed.positional[1].c_str());
    return 0;
}

int RunRemeshFem(const std::vector<std::string>& args)
{
    std::vector<std::string> rest = args;
    std::string slicesText;
    if (!TakeTextOption(rest, "--slices", slicesText)) return UsageError("remesh-fem", "--slices needs a value");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("remesh-fem", kRemeshFemHelp, rest, {{}, {"--tolerance"}}, 2, parsed, exitCode)) return exitCode;
    if (slicesText.empty()) return UsageError("remesh-fem", "--slices is required");
    int16_t slices[3];
    if (!ParseSlices(slicesText, slices))
        return UsageError("remesh-fem", "--slices needs three whole numbers from 1 to 32767: x,y,z");
    LM_TOLERANCES tolerances = LMeshCleanupTolerances(0.0f);
    tolerances.slicesX = slices[0];
    tolerances.slicesY = slices[1];
    tolerances.slicesZ = slices[2];
    tolerances.coordinateTolerance = float(NumberOr(parsed, "--tolerance", tolerances.coordinateTolerance));
    if (!(tolerances.coordinateTolerance >= 0.0f)) return UsageError("remesh-fem", "the tolerance must be 0 or more");

    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("remesh-fem", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    LMeshComputeAbsoluteBoundingBox(mesh);  // the planes are spaced over the stored box
    const uint32_t facetsBefore = mesh.facetCount;
    const uint32_t bordersBefore = CountBorderEdges(mesh);
    const double longestBefore = LongestEdge(mesh);
    {
        Stage stage("remeshing", facetsBefore > kProgressFacets);
        LMeshRemeshFEMAnalysis(mesh, tolerances, nullptr);
    }
    LMeshCompact(mesh);
    if (!Save("remesh-fem", parsed.positional[1], mesh, 1.0f, exitCode)) return exitCode;
    std::printf("facets %u before, %u after; border edges %u before, %u after\n", facetsBefore, mesh.facetCount,
                bordersBefore, CountBorderEdges(mesh));
    std::printf("longest edge %g before, %g after; wrote %s\n", longestBefore, LongestEdge(mesh),
                parsed.positional[1].c_str());
    return 0;
}
