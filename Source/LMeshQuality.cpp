// Triangle quality: per-facet area, altitudes, aspect ratio, length-to-area ratio and
// inner angles, and the shape factor with its range search and histogram.
//
// The shape factor is twice the inradius over the circumradius: 1 for an equilateral
// triangle, falling towards 0 as the triangle degenerates. Each figure keeps the
// width in which the library has always computed it (Heron in double, altitudes and
// sides in float with their roots in double, angles through a double acos), because
// callers compare them against fixed thresholds and the answers must repeat bit for
// bit. An id past a store gives the function's failure value; nothing reads outside.
#include <algorithm>
#include <cmath>
#include <functional>

#include "LMeshQuality.h"

namespace {

// Sides this short or shorter are not measured against: the foot of an altitude on
// them would be noise.
constexpr float kShortestSide = 0.0001f;

// Altitude results; only the low 16 bits of kAltitudesFailed are tested by callers.
constexpr short kAltitudesDone = 0;
constexpr short kAltitudesPartial = 1;
constexpr short kAltitudesFailed = -1;

constexpr float kNoRatio = -1.0f;

// A facet's corner ids and positions, copied out of the packed records.
struct Corners {
    uint32_t vertex[3];
    float p[3][3];
};

// False when the facet or one of its corners lies past its store.
bool ReadCorners(const L_LUMOMESH& mesh, uint32_t facet, Corners& corners)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int k = 0; k < 3; ++k) {
        const uint32_t id = record->vertex[k];
        const LM_VERTEX* vertex = mesh.vertices.Peek(id);
        if (!vertex) return false;
        corners.vertex[k] = id;
        for (int i = 0; i < 3; ++i) corners.p[k][i] = vertex->position[i];
    }
    return true;
}

bool IsLive(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    return record && (record->flags & LM_LIVE);
}

float SideLength(const float* p, const float* q)
{
    const float dx = q[0] - p[0], dy = q[1] - p[1], dz = q[2] - p[2];
    return float(std::sqrt(double(dx * dx + dy * dy + dz * dz)));
}

// Distance from p to the segment a-b, in float with the root in double; the foot is
// clamped to the segment, so past an obtuse corner it is the distance to that end.
// False for a side of kShortestSide or less.
bool DistanceToSide(const float* p, const float* a, const float* b, float& distance)
{
    float side[3], toP[3];
    for (int i = 0; i < 3; ++i) {
        side[i] = b[i] - a[i];
        toP[i] = p[i] - a[i];
    }
    const float length2 = side[0] * side[0] + side[1] * side[1] + side[2] * side[2];
    if (float(std::sqrt(double(length2))) <= kShortestSide) return false;
    float t = (toP[0] * side[0] + toP[1] * side[1] + toP[2] * side[2]) / length2;
    if (t < 0.0f) t = 0.0f;
    if (t > 1.0f) t = 1.0f;
    float off[3];
    for (int i = 0; i < 3; ++i) off[i] = p[i] - (a[i] + t * side[i]);
    distance = float(std::sqrt(double(off[0] * off[0] + off[1] * off[1] + off[2] * off[2])));
    return true;
}

// The longest of the facet's three edge lengths, as the edge records give them.
float LongestSide(const L_LUMOMESH& mesh, uint32_t facet)
{
    uint32_t edge = LM_NONE;
    return LMeshLongestEdgeLength(mesh, facet, edge);
}

// Inner angle at each corner in radians: acos of the dot of the unit vectors along
// the two sides that meet there, widened to double.
void InnerAngles(const Corners& c, float* angles)
{
    for (int k = 0; k < 3; ++k) {
        const float* at = c.p[k];
        const float* next = c.p[(k + 1) % 3];
        const float* prev = c.p[(k + 2) % 3];
        float u[3], v[3];
        for (int i = 0; i < 3; ++i) {
            u[i] = next[i] - at[i];
            v[i] = prev[i] - at[i];
        }
        NormalizeVector(u);
        NormalizeVector(v);
        double dot = double(u[0]) * double(v[0]) + double(u[1]) * double(v[1]) + double(u[2]) * double(v[2]);
        if (dot < -1.0) dot = -1.0;
        if (dot > 1.0) dot = 1.0;
        angles[k] = float(std::acos(dot));
    }
}

// The corner whose angle `beats` the others (less: smallest, greater: largest).
// Ties go to the later corner, as the edge picks of the global measures do.
template <class Beats>
uint32_t PickCorner(const float* a, Beats beats)
{
    if (beats(a[0], a[1])) return beats(a[1], a[2]) || beats(a[0], a[2]) ? 0 : 2;
    return beats(a[1], a[2]) ? 1 : 2;
}

template <class Beats>
uint32_t ExtremeInnerAngle(const L_LUMOMESH& mesh, uint32_t facet, float& angle, uint32_t& index,
                           float* angles, Beats beats)
{
    Corners corners;
    if (!ReadCorners(mesh, facet, corners)) return LM_NONE;  // id past its store: nothing written
    float local[3];
    float* out = angles ? angles : local;
    InnerAngles(corners, out);
    index = PickCorner(out, beats);
    angle = out[index];
    return corners.vertex[index];
}

}  // namespace

// The shape factor's pieces work on three points alone, so that thickness analysis,
// which needs the factor unclamped, can share them through a private header.
float TriangleInradius(const float* p0, const float* p1, const float* p2)
{
    const float perimeter = SideLength(p0, p1) + SideLength(p1, p2) + SideLength(p2, p0);
    return (2.0f * HeronTriangleArea(p0, p1, p2)) / perimeter;
}

// The product under the root is taken as an absolute value, so a needle whose
// product rounds negative still gets a radius; a flat triangle gets infinity.
double TriangleCircumradius(const float* p0, const float* p1, const float* p2)
{
    const float a = SideLength(p0, p1), b = SideLength(p1, p2), c = SideLength(p2, p0);
    const float product = (a + b + c) * (b + c - a) * (c + a - b) * (a + b - c);
    return double(a * b * c) / std::sqrt(double(std::fabs(product)));
}

// Unclamped: above 1 or not-a-number are possible on degenerate triangles.
double ShapeFactor(const float* p0, const float* p1, const float* p2)
{
    return 2.0f * TriangleInradius(p0, p1, p2) / TriangleCircumradius(p0, p1, p2);
}

namespace {

// Clamped to [0, 1] for the searches. Not-a-number (two coincident corners give 0/0)
// stays so, and such a facet lies in no range and no bin.
double ClampedShapeFactor(const Corners& c)
{
    double factor = ShapeFactor(c.p[0], c.p[1], c.p[2]);
    if (factor < 0.0) factor = 0.0;
    if (factor > 1.0) factor = 1.0;
    return factor;
}

bool OutsideUnitRange(float x) { return x < 0.0f || x > 1.0f; }

}  // namespace

// Heron's area of a live facet; 0.0 for a dead facet or an id past its store.
float LMeshTriangleArea(const L_LUMOMESH& mesh, const uint32_t& facet)
{
    Corners corners;
    if (!IsLive(mesh, facet) || !ReadCorners(mesh, facet, corners)) return 0.0f;
    return HeronTriangleArea(corners.p[0], corners.p[1], corners.p[2]);
}

// altitudes[k] becomes the distance from corner k + 2 to side k (corners k and k + 1,
// the side of edge[k]). A side of 0.0001 or less is skipped and its entry keeps what
// the caller put there. Returns 0 when all three were measured, 1 when some side was
// skipped, and -1 when none could be (all three too short, a null array, or an id
// past its store).
short LMeshTriangleAltitudes(const L_LUMOMESH& mesh, const uint32_t& facet, float* altitudes)
{
    Corners corners;
    if (!altitudes || !ReadCorners(mesh, facet, corners)) return kAltitudesFailed;
    int measured = 0;
    for (int k = 0; k < 3; ++k) {
        const float* a = corners.p[k];
        const float* b = corners.p[(k + 1) % 3];
        if (DistanceToSide(corners.p[(k + 2) % 3], a, b, altitudes[k])) ++measured;
    }
    if (measured == 0) return kAltitudesFailed;
    return measured == 3 ? kAltitudesDone : kAltitudesPartial;
}

// Longest edge length over the smallest altitude, the altitudes starting at 1.0 so
// that a skipped side counts as 1. -1.0 when no altitude could be measured.
float LMeshTriangleAspectRatio(const L_LUMOMESH& mesh, const uint32_t& facet)
{
    float altitudes[3] = {1.0f, 1.0f, 1.0f};
    if (uint16_t(LMeshTriangleAltitudes(mesh, facet, altitudes)) > 65534) return kNoRatio;
    const float smallest = std::min(std::min(altitudes[0], altitudes[1]), altitudes[2]);
    return LongestSide(mesh, facet) / smallest;
}

// Longest edge length over the facet's area: infinite for a dead or flat facet.
// -1.0 for an id past the facet store.
float LMeshTriangleLengthAreaRatio(const L_LUMOMESH& mesh, const uint32_t& facet)
{
    if (!mesh.facets.Peek(facet)) return kNoRatio;  // id past the store: no ratio
    return LongestSide(mesh, facet) / LMeshTriangleArea(mesh, facet);
}

// Both return LM_NONE and write nothing for an id past its store. Dead facets are
// measured like live ones.
uint32_t LMeshSmallestInnerAngleOfTriangle(const L_LUMOMESH& mesh, const uint32_t& facet, float& angle,
                                           uint32_t& index, float* angles)
{
    return ExtremeInnerAngle(mesh, facet, angle, index, angles, std::less<float>());
}

uint32_t LMeshLargestInnerAngleOfTriangle(const L_LUMOMESH& mesh, const uint32_t& facet, float& angle,
                                          uint32_t& index, float* angles)
{
    return ExtremeInnerAngle(mesh, facet, angle, index, angles, std::greater<float>());
}

// False, with the list untouched, for an empty facet store, a bound outside [0, 1]
// or a null list. Otherwise the list is cleared and refilled in id order, and the
// result says whether any facet matched.
bool LMeshFindFacetsByShapeFactorRange(const L_LUMOMESH& mesh, float min, float max, BaseList<uint32_t>* facets)
{
    if (mesh.facets.count == 0 || OutsideUnitRange(min) || OutsideUnitRange(max) || !facets) return false;
    facets->Clear();
    Corners corners;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!IsLive(mesh, f)) continue;
        if (!ReadCorners(mesh, f, corners)) continue;  // corner past the vertex store: skipped
        const double factor = ClampedShapeFactor(corners);
        if (!(factor >= min && factor <= max)) continue;
        if (!AppendTo(*facets, f)) return false;
    }
    return facets->count > 0;
}

// Bin i counts the live facets whose factor lies in [i * width, (i + 1) * width).
// The first trunc(1.0 / width) bins are zeroed; the list is not cleared, so later
// bins keep what they held. A factor of exactly 1.0 lands one bin past the zeroed
// ones and grows the list if need be. False for an empty store, a width outside
// (0, 1] or a null list.
bool LMeshCalculateShapeFactorDistrib(const L_LUMOMESH& mesh, float width, BaseList<uint32_t>* bins)
{
    if (!bins) return false;  // null list: nothing to count into
    if (mesh.facets.count == 0 || OutsideUnitRange(width)) return false;
    if (!(width > 0.0f)) return false;  // zero width: infinitely many bins
    const double binCount = std::trunc(1.0 / width);
    if (binCount >= double(LM_NONE)) return false;  // the bin for 1.0 would not fit in a list
    for (uint32_t i = 0; i < uint32_t(binCount); ++i) {
        uint32_t* bin = bins->At(i);
        if (!bin) return false;
        *bin = 0;
    }
    Corners corners;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!IsLive(mesh, f)) continue;
        if (!ReadCorners(mesh, f, corners)) continue;  // corner past the vertex store: skipped
        const double factor = ClampedShapeFactor(corners);
        if (std::isnan(factor)) continue;  // no bin for it
        uint32_t* bin = bins->At(uint32_t(factor / width));
        if (!bin) return false;
        ++*bin;
    }
    return true;
}
