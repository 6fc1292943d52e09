// lmesh section: where a plane cuts a mesh, printed as lines, arcs and circles, and
// optionally drawn as an SVG picture seen square onto the plane.
#include "Commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "CommandSupport.h"

namespace {

// Pieces up to 0.01 long are left out of the cut, so joining must bridge gaps that
// wide; on millimetre parts a reduction within 0.02 is still a faithful outline.
constexpr double kDefaultTolerance = 2e-2;
// Arcs and circles are drawn as polylines of this many pieces per full turn.
constexpr int kPiecesPerTurn = 72;
constexpr double kTwoPi = 6.283185307179586;

const char* const kSectionHelp =
    "usage: lmesh section IN --plane PX,PY,PZ,NX,NY,NZ [--chain] [--tolerance T] [--svg OUT.svg]\n"
    "\n"
    "Cuts the mesh by the plane through point P with normal N (need not be of unit\n"
    "length) and prints the cut, one element a line: without --chain one line per facet\n"
    "crossed, in facet order; with --chain the pieces are joined end to end and each\n"
    "chain is reduced to lines and arcs (a closed round chain may give a circle).\n"
    "Pieces shorter than 0.01 are left out. The mesh is not changed.\n"
    "\n"
    "  --plane P,N       six comma-separated numbers, no blanks\n"
    "  --chain           join and reduce the pieces\n"
    "  --tolerance T     gap between joined ends and greatest departure of a reduced\n"
    "                    element from its chain (default 0.02)\n"
    "  --svg OUT.svg     also draw the section projected on the plane\n";

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
L_VECTOR Between(const L_POINT& from, const L_POINT& to) { return {to.x - from.x, to.y - from.y, to.z - from.z}; }
L_VECTOR Cross(const L_VECTOR& a, const L_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

void PrintElement(uint32_t index, const L_ELEMENT& element)
{
    switch (element.TypeGet()) {
    case L_ELEMENT_LINE: {
        const L_SEGM& s = element.Segment();
        std::printf("%u line   (%g %g %g) to (%g %g %g)\n", index, s.start.x, s.start.y, s.start.z, s.end.x, s.end.y,
                    s.end.z);
        break;
    }
    case L_ELEMENT_ARC: {
        const L_ARC& a = element.Arc();
        std::printf("%u arc    centre (%g %g %g) radius %g axis (%g %g %g) from (%g %g %g) to (%g %g %g)\n", index,
                    a.centre.x, a.centre.y, a.centre.z, a.radius, a.axis.x, a.axis.y, a.axis.z, a.start.x, a.start.y,
                    a.start.z, a.end.x, a.end.y, a.end.z);
        break;
    }
    case L_ELEMENT_CIRCLE: {
        const L_CIRCLE& c = element.Circle();
        std::printf("%u circle centre (%g %g %g) radius %g axis (%g %g %g)\n", index, c.centre.x, c.centre.y,
                    c.centre.z, c.radius, c.axis.x, c.axis.y, c.axis.z);
        break;
    }
    default:
        std::printf("%u (element of type %d)\n", index, element.TypeGet());
    }
}

// Points along an arc turning counter-clockwise about its axis from start by sweep.
std::vector<L_POINT> ArcPoints(const L_POINT& centre, L_VECTOR axis, const L_POINT& start, double sweep)
{
    normalise(&axis);
    const L_VECTOR radial = Between(centre, start);
    const L_VECTOR normal = Cross(axis, radial);
    const int pieces = std::max(1, int(std::ceil(sweep / kTwoPi * kPiecesPerTurn)));
    std::vector<L_POINT> points;
    for (int i = 0; i <= pieces; ++i) {
        const double t = sweep * i / pieces, c = std::cos(t), s = std::sin(t);
        points.push_back({centre.x + c * radial.x + s * normal.x, centre.y + c * radial.y + s * normal.y,
                          centre.z + c * radial.z + s * normal.z});
    }
    return points;
}

// The element as a run of points to draw; an arc whose ends meet is a full turn.
std::vector<L_POINT> DrawnPoints(const L_ELEMENT& element)
{
    switch (element.TypeGet()) {
    case L_ELEMENT_LINE:
        return {element.Segment().start, element.Segment().end};
    case L_ELEMENT_ARC: {
        const L_ARC& a = element.Arc();
        const L_VECTOR s = Between(a.centre, a.start), e = Between(a.centre, a.end);
        double sweep = std::atan2(Dot(a.axis, Cross(s, e)) / std::sqrt(Dot(a.axis, a.axis)), Dot(s, e));
        if (sweep <= 0.0) sweep += kTwoPi;
        return ArcPoints(a.centre, a.axis, a.start, sweep);
    }
    case L_ELEMENT_CIRCLE: {
        L_POINT seam;
        if (element.get_start_end_point(&seam, nullptr) != 0) return {};
        return ArcPoints(element.Circle().centre, element.Circle().axis, seam, kTwoPi);
    }
    default:
        return {};
    }
}

struct Point2 {
    double x, y;
};

// Square onto the plane, with the picture's y running down as SVG's does.
class PlaneView {
public:
    explicit PlaneView(const L_PLANE& plane) : origin_(plane.point)
    {
        L_VECTOR normal = plane.normal;
        normalise(&normal);
        nvector_arbitraryaxis(&normal, &across_, &up_);
    }
    Point2 Project(const L_POINT& p) const
    {
        const L_VECTOR d = Between(origin_, p);
        return {Dot(d, across_), -Dot(d, up_)};
    }

private:
    L_POINT origin_;
    L_VECTOR across_, up_;
};

bool WriteSvg(const std::string& path, const List<L_ELEMENT>& elements, const L_PLANE& plane)
{
    const PlaneView view(plane);
    std::vector<std::vector<Point2>> runs;
    double minX = INFINITY, minY = INFINITY, maxX = -INFINITY, maxY = -INFINITY;
    for (uint32_t i = 1; i <= elements.Size(); ++i) {
        if (!elements.Get(i)) continue;
        std::vector<Point2> run;
        for (const L_POINT& p : DrawnPoints(*elements.Get(i))) {
            const Point2 q = view.Project(p);
            minX = std::fmin(minX, q.x), maxX = std::fmax(maxX, q.x);
            minY = std::fmin(minY, q.y), maxY = std::fmax(maxY, q.y);
            run.push_back(q);
        }
        runs.push_back(run);
    }
    FILE* out = std::fopen(path.c_str(), "w");
    if (!out) return false;
    const double margin = 0.05 * std::fmax(std::fmax(maxX - minX, maxY - minY), 1e-9);
    std::fprintf(out, "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"%.9g %.9g %.9g %.9g\">\n", minX - margin,
                 minY - margin, maxX - minX + 2 * margin, maxY - minY + 2 * margin);
    for (const std::vector<Point2>& run : runs) {
        std::fprintf(out, "<polyline fill=\"none\" stroke=\"black\" stroke-width=\"1\" "
                          "vector-effect=\"non-scaling-stroke\" points=\"");
        for (const Point2& q : run) std::fprintf(out, "%.9g,%.9g ", q.x, q.y);
        std::fprintf(out, "\"/>\n");
    }
    std::fprintf(out, "</svg>\n");
    return std::fclose(out) == 0;
}

}  // namespace

int RunSection(const std::vector<std::string>& args)
{
    std::vector<std::string> rest = args;
    std::string planeText, svgPath;
    if (!TakeTextOption(rest, "--plane", planeText)) return UsageError("section", "--plane needs a value");
    if (!TakeTextOption(rest, "--svg", svgPath)) return UsageError("section", "--svg needs a value");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare("section", kSectionHelp, rest, {{"--chain"}, {"--tolerance"}}, 1, parsed, exitCode)) return exitCode;
    L_PLANE plane;
    if (!ParsePlaneOption("section", planeText, plane, exitCode)) return exitCode;
    const double tolerance = NumberOr(parsed, "--tolerance", kDefaultTolerance);
    if (!(tolerance >= 0.0)) return UsageError("section", "the tolerance must be 0 or more");
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load("section", parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    // The plane stands as a triangle sized from the stored box, which must be fresh.
    LMeshComputeAbsoluteBoundingBox(mesh);
    List<L_ELEMENT> elements;
    bool found;
    {
        Stage stage("cutting", mesh.facetCount > kProgressFacets);
        found = LMeshPlaneSection(mesh, plane, elements, parsed.flags.count("--chain") ? 1 : 0, tolerance, nullptr);
    }
    std::printf("%u elements\n", found ? elements.Size() : 0u);
    for (uint32_t i = 1; i <= elements.Size(); ++i)
        if (elements.Get(i)) PrintElement(i, *elements.Get(i));
    if (!svgPath.empty()) {
        if (!WriteSvg(svgPath, elements, plane)) return Failure("section", "cannot write " + svgPath);
        std::printf("wrote %s\n", svgPath.c_str());
    }
    return 0;
}
