// lmesh cut: divides a mesh by a plane into the parts on either side, each written
// to its own file and left open where the plane cut it.
#include "Commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "CommandSupport.h"

namespace {

// Parts in millimetres: rim corners that ended up this close are one point.
constexpr double kDefaultEdgeTolerance = 1e-4;
// The plane function is the distance scaled by this many squared box extents.
constexpr double kPlaneScale = 33.75;
// The library rebuilds the split mesh merging corners this close, whatever its size.
constexpr float kRebuildMergeDistance = 0.001f;
// A rim corner lies on the plane up to float rounding of the part's coordinates.
constexpr double kOnPlaneShare = 1e-5;

const char* const kCutHelp =
    "usage: lmesh cut IN --plane PX,PY,PZ,NX,NY,NZ OUT1 OUT2 [--tolerance T] [--split-tolerance S]\n"
    "\n"
    "Cuts the mesh by the plane through point P with normal N (need not be of unit\n"
    "length). Facets the plane passes through are split so that the cut runs along\n"
    "edges, and each facet then goes to the side its centre lies on:\n"
    "  OUT1  the part behind the plane, on the side away from which N points\n"
    "  OUT2  the part in front of the plane, on the side N points to\n"
    "Facets lying in the plane go to neither part. The opening is not closed: each part\n"
    "has border edges along the cut. Output is .stl or native .lmesh; a part may be\n"
    "empty when the plane misses the mesh. Facet groups are not kept. STL and PLY\n"
    "corners are joined only where they coincide exactly.\n"
    "\n"
    "  --plane P,N            six comma-separated numbers, no blanks\n"
    "  --tolerance T          weld each part's border edges whose ends lie within T\n"
    "                         (default 1e-4, for parts in millimetres; 0 welds none)\n"
    "  --split-tolerance S    leave whole a facet that reaches less than S behind the\n"
    "                         plane, rather than cut a sliver off it; it goes whole to\n"
    "                         the side its centre lies on (a length, default 0)\n";

// Signed distances from the plane, with a unit normal.
class PlaneDistance {
public:
    explicit PlaneDistance(const L_PLANE& plane) : point_(plane.point), normal_(plane.normal) { normalise(&normal_); }
    double Of(const LM_VERTEX& vertex) const
    {
        float p[3];
        std::memcpy(p, vertex.position, sizeof p);  // packed record: no aligned float access
        return (p[0] - point_.x) * normal_.x + (p[1] - point_.y) * normal_.y + (p[2] - point_.z) * normal_.z;
    }

private:
    L_POINT point_;
    L_VECTOR normal_;
};

// Live border edges with both ends on the plane: the rim the cut opened.
uint32_t CountRimEdges(const L_LUMOMESH& mesh, const PlaneDistance& distance, double tolerance)
{
    uint32_t rim = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (!(edge.flags & LM_LIVE) || (edge.facet[0] != LM_NONE && edge.facet[1] != LM_NONE)) continue;
        const LM_VERTEX* a = mesh.vertices.Peek(edge.vertex[0]);
        const LM_VERTEX* b = mesh.vertices.Peek(edge.vertex[1]);
        if (a && b && std::fabs(distance.Of(*a)) <= tolerance &&
            std::fabs(distance.Of(*b)) <= tolerance)
            ++rim;
    }
    return rim;
}

// Edges not far above the merge distance may collapse in the rebuild.
void WarnIfFine(const L_LUMOMESH& mesh)
{
    float average = 0.0f;
    if (LMeshComputeAverageEdgeLength(mesh, average) != 0 || average >= 10.0f * kRebuildMergeDistance) return;
    std::fprintf(stderr,
                 "lmesh cut: warning: edges are %g long on average, and the mesh is rebuilt merging\n"
                 "  corners closer than %g: small features will collapse (scale the mesh up first)\n",
                 average, kRebuildMergeDistance);
}

bool SavePart(const std::string& path, const char* side, L_LUMOMESH& part, const PlaneDistance& distance,
              double onPlane, int& exitCode)
{
    // Welding moved rim corners to their means; the stored normals should follow.
    LMeshRecomputeNormals(part);
    if (!Save("cut", path, part, 1.0f, exitCode)) return false;
    std::printf("wrote %s (%s): %u facets, %u border edges, %u of them along the cut\n", path.c_str(), side,
                part.facetCount, CountBorderEdges(part), CountRimEdges(part, distance, onPlane));
    return true;
}

}  // namespace

int RunCut(const std::vector<std::string>& args)
{
    std::vector<std::string> rest = args;
    std::string planeText;
    if (!TakeTextOption(rest, "--plane", planeText)) return UsageError("cut", "--plane needs a value");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("cut", kCutHelp, rest, {{}, {"--tolerance", "--split-tolerance"}}, 3, parsed, exitCode))
        return exitCode;
    L_PLANE plane;
    if (!ParsePlaneOption("cut", planeText, plane, exitCode)) return exitCode;
    if (plane.normal.x == 0.0 && plane.normal.y == 0.0 && plane.normal.z == 0.0)
        return UsageError("cut", "the plane's normal must not be zero");
    const double edgeTolerance = NumberOr(parsed, "--tolerance", kDefaultEdgeTolerance);
    const double splitTolerance = NumberOr(parsed, "--split-tolerance", 0.0);
    if (!(edgeTolerance >= 0.0) || !(splitTolerance >= 0.0))
        return UsageError("cut", "the tolerances must be 0 or more");

    L_LUMOMESH mesh, below, above;
    MeshFormat format;
    if (!Load("cut", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    // The plane is sized from the stored box, which must be fresh; the library compares
    // the split tolerance with the plane function, not with a length.
    LMeshComputeAbsoluteBoundingBox(mesh);
    WarnIfFine(mesh);
    const double extent = LargestExtent(mesh);
    const float scaledSplit = float(splitTolerance * kPlaneScale * extent * extent);
    short status;
    {
        Stage stage("cutting", mesh.facetCount > kProgressFacets);
        status = LMeshCutByPlane(mesh, plane, below, above, static_cast<const wchar_t*>(nullptr), float(edgeTolerance),
                                 scaledSplit);
    }
    if (status != 0) return Failure("cut", "not enough memory to rebuild the mesh");

    const PlaneDistance distance(plane);
    const double onPlane = std::max(extent * kOnPlaneShare, edgeTolerance);
    std::printf("split along the plane: %u facets in all\n", mesh.facetCount);
    if (!SavePart(parsed.positional[1], "behind the plane", below, distance, onPlane, exitCode)) return exitCode;
    if (!SavePart(parsed.positional[2], "in front of the plane", above, distance, onPlane, exitCode)) return exitCode;
    const uint32_t kept = below.facetCount + above.facetCount;
    if (mesh.facetCount > kept)
        std::printf("%u facets lie in the plane and went to neither part\n", mesh.facetCount - kept);
    return 0;
}
