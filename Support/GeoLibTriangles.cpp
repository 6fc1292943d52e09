// Triangle-triangle meeting and contour triangulation on exact predicates.
//
// Both rest on orientation signs that are never wrong: a floating-point determinant
// whose error bound proves its sign, and otherwise the exact value as a floating-point
// expansion (Shewchuk, "Adaptive Precision Floating-Point Arithmetic and Fast Robust
// Geometric Predicates", 1997: the two-sum and two-product error-free transforms, the
// growing and scaling of expansions, and the first-stage error bounds).
//
// Triangle against triangle: the shared set of two non-coplanar triangles lies on the
// line where their planes meet, and its ends are corners of one triangle lying on the
// other, or points where an edge of one crosses the other. Each such candidate is
// found by exact signs, so the answer "they meet" is exact; the result is the span
// of the candidates.
//
// Contours: the Newell normal (the area vector of the closed polygon) tells how to
// look at a hole's rim, flat or not: down the coordinate axis nearest to it, which
// needs no arithmetic, or, for a rim that this view folds, on the plane at right
// angles to it. There the polygon is checked for self-contact by a sweep over x and
// cut by ear clipping. Only reflex and
// straight corners can block an ear of a simple polygon, so each ear test looks at
// those alone, and ears wait in a queue by shape so that good triangles go first.
#include "GeoLibTriangles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <queue>
#include <utility>
#include <vector>

namespace {

constexpr double kEpsilon = 0x1p-53;  // half an ulp of 1
constexpr double kSplitter = 134217729.0;  // 2^27 + 1, splits a double into two halves
constexpr double kOrient2dBound = (3.0 + 16.0 * kEpsilon) * kEpsilon;
constexpr double kOrient3dBound = (7.0 + 56.0 * kEpsilon) * kEpsilon;
// The exact 3-D determinant below is a sum of four scaled sums of three 2 x 2 minors:
// at most 4 * 2 * 12 terms.
constexpr int kMaxTerms = 96;

void TwoSum(double a, double b, double& sum, double& error)
{
    sum = a + b;
    const double bPart = sum - a;
    const double aPart = sum - bPart;
    error = (a - aPart) + (b - bPart);
}

// Needs |a| >= |b|.
void FastTwoSum(double a, double b, double& sum, double& error)
{
    sum = a + b;
    error = b - (sum - a);
}

void Split(double a, double& high, double& low)
{
    const double scaled = kSplitter * a;
    high = scaled - (scaled - a);
    low = a - high;
}

void TwoProduct(double a, double b, double& product, double& error)
{
    product = a * b;
    double aHigh, aLow, bHigh, bLow;
    Split(a, aHigh, aLow);
    Split(b, bHigh, bLow);
    error = aLow * bLow - (((product - aHigh * bHigh) - aLow * bHigh) - aHigh * bLow);
}

// An exact value as a sum of non-overlapping doubles, smallest first, without zeros
// (a lone zero stands for 0). The sign is the sign of the largest term.
struct Expansion {
    int count = 0;
    double term[kMaxTerms];
};

void Grow(Expansion& e, double value)
{
    double carry = value;
    int kept = 0;
    for (int i = 0; i < e.count; ++i) {
        double error;
        TwoSum(carry, e.term[i], carry, error);
        if (error != 0.0) e.term[kept++] = error;
    }
    if (carry != 0.0 || kept == 0) e.term[kept++] = carry;
    e.count = kept;
}

Expansion Sum(Expansion a, const Expansion& b, double bSign)
{
    for (int i = 0; i < b.count; ++i) Grow(a, bSign * b.term[i]);
    return a;
}

Expansion Scale(const Expansion& e, double factor)
{
    Expansion out;
    double carry, error;
    TwoProduct(e.term[0], factor, carry, error);
    if (error != 0.0) out.term[out.count++] = error;
    for (int i = 1; i < e.count; ++i) {
        double product, productError, sum;
        TwoProduct(e.term[i], factor, product, productError);
        TwoSum(carry, productError, sum, error);
        if (error != 0.0) out.term[out.count++] = error;
        FastTwoSum(product, sum, carry, error);
        if (error != 0.0) out.term[out.count++] = error;
    }
    if (carry != 0.0 || out.count == 0) out.term[out.count++] = carry;
    return out;
}

int SignOf(double value) { return (value > 0.0) - (value < 0.0); }

int SignOf(const Expansion& e) { return e.count == 0 ? 0 : SignOf(e.term[e.count - 1]); }

// ax * by - ay * bx, exactly.
Expansion Minor(double ax, double ay, double bx, double by)
{
    double p1, p0, q1, q0;
    TwoProduct(ax, by, p1, p0);
    TwoProduct(ay, bx, q1, q0);
    Expansion e;
    Grow(e, p0);
    Grow(e, p1);
    Grow(e, -q0);
    Grow(e, -q1);
    return e;
}

// left - middle + right.
Expansion Alternate(const Expansion& left, const Expansion& middle, const Expansion& right)
{
    return Sum(Sum(left, middle, -1.0), right, 1.0);
}

// (b - a) x (c - a) . (d - a) as an expansion: six times the signed volume of the
// tetrahedron, positive when d lies on the side the right-hand normal of (a, b, c)
// points to.
Expansion ExactVolume(const L_POINT& a, const L_POINT& b, const L_POINT& c, const L_POINT& d)
{
    // Laplace expansion along the z column of the 4 x 4 determinant of rows
    // (x, y, z, 1), which is (a - d) . ((b - d) x (c - d)), the volume's opposite.
    const Expansion ab = Minor(a.x, a.y, b.x, b.y), ac = Minor(a.x, a.y, c.x, c.y);
    const Expansion ad = Minor(a.x, a.y, d.x, d.y), bc = Minor(b.x, b.y, c.x, c.y);
    const Expansion bd = Minor(b.x, b.y, d.x, d.y), cd = Minor(c.x, c.y, d.x, d.y);
    const Expansion first = Sum(Scale(Alternate(ac, ad, cd), b.z), Scale(Alternate(bc, bd, cd), a.z), -1.0);
    const Expansion second = Sum(Scale(Alternate(ab, ac, bc), d.z), Scale(Alternate(ab, ad, bd), c.z), -1.0);
    return Sum(first, second, 1.0);
}

// The volume above in plain floating point, with a bound on its error.
struct RoundedVolume {
    double value, errorBound;
};

RoundedVolume VolumeInDouble(const L_POINT& a, const L_POINT& b, const L_POINT& c, const L_POINT& d)
{
    const double adx = a.x - d.x, ady = a.y - d.y, adz = a.z - d.z;
    const double bdx = b.x - d.x, bdy = b.y - d.y, bdz = b.z - d.z;
    const double cdx = c.x - d.x, cdy = c.y - d.y, cdz = c.z - d.z;
    const double bc = bdx * cdy, cb = cdx * bdy;
    const double ca = cdx * ady, ac = adx * cdy;
    const double ab = adx * bdy, ba = bdx * ady;
    const double det = adz * (bc - cb) + bdz * (ca - ac) + cdz * (ab - ba);
    const double magnitude = (std::fabs(bc) + std::fabs(cb)) * std::fabs(adz) +
                             (std::fabs(ca) + std::fabs(ac)) * std::fabs(bdz) +
                             (std::fabs(ab) + std::fabs(ba)) * std::fabs(cdz);
    return {-det, kOrient3dBound * magnitude};
}

// Sign of the volume: on which side of the plane (a, b, c) the point d lies.
int Side(const L_POINT& a, const L_POINT& b, const L_POINT& c, const L_POINT& d)
{
    const RoundedVolume rounded = VolumeInDouble(a, b, c, d);
    if (std::fabs(rounded.value) > rounded.errorBound) return SignOf(rounded.value);
    return SignOf(ExactVolume(a, b, c, d));
}

// The volume to nearly full relative precision. Far from the plane's corners (a
// plane triangle much larger than the facet it cuts) the rounded value cancels
// badly, and a crossing point placed from it would be off by far more than an ulp.
double AccurateVolume(const L_POINT& a, const L_POINT& b, const L_POINT& c, const L_POINT& d)
{
    constexpr double kRelativeError = 0x1p-45;
    const RoundedVolume rounded = VolumeInDouble(a, b, c, d);
    if (rounded.errorBound <= kRelativeError * std::fabs(rounded.value)) return rounded.value;
    const Expansion exact = ExactVolume(a, b, c, d);
    double value = 0.0;
    for (int i = 0; i < exact.count; ++i) value += exact.term[i];
    return value;
}

L_VECTOR Minus(const L_POINT& a, const L_POINT& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

L_VECTOR Cross(const L_VECTOR& a, const L_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

double SquaredDistance(const L_POINT& a, const L_POINT& b)
{
    const L_VECTOR d = Minus(a, b);
    return Dot(d, d);
}

bool IsFinite(const L_POINT& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

using Triangle = const L_POINT* [3];

L_VECTOR NormalOf(const Triangle& t) { return Cross(Minus(*t[1], *t[0]), Minus(*t[2], *t[0])); }

// Up to 12 points known to lie in both triangles: corners and edge crossings.
struct Meetings {
    int count = 0;
    L_POINT point[12];
    void Add(const L_POINT& p) { point[count++] = p; }
};

// A corner p lying in the plane of t is in the closed triangle when it is on the
// inner side of each edge, judged against a point `off` outside that plane.
bool CornerInside(const L_POINT& p, const Triangle& t, const L_POINT& off)
{
    const int inner = Side(*t[0], *t[1], *t[2], off);
    for (int k = 0; k < 3; ++k) {
        if (Side(*t[k], *t[(k + 1) % 3], p, off) * inner < 0) return false;
    }
    return true;
}

// For p and q strictly on either side of t's plane: the segment crosses the closed
// triangle when the line pq passes no edge on the wrong side.
bool EdgeCrossesInside(const L_POINT& p, const L_POINT& q, const Triangle& t)
{
    bool positive = false, negative = false;
    for (int k = 0; k < 3; ++k) {
        const int side = Side(p, q, *t[k], *t[(k + 1) % 3]);
        positive |= side > 0;
        negative |= side < 0;
    }
    return !(positive && negative);
}

// Where pq crosses t's plane, interpolated from the nearer end for accuracy. The
// parameter is clamped, as rounding may push it just past an end.
L_POINT CrossingPoint(const L_POINT& p, const L_POINT& q, const Triangle& t)
{
    const double dp = AccurateVolume(*t[0], *t[1], *t[2], p);
    const double dq = AccurateVolume(*t[0], *t[1], *t[2], q);
    const bool fromP = std::fabs(dp) <= std::fabs(dq);
    const L_POINT& start = fromP ? p : q;
    const L_POINT& end = fromP ? q : p;
    double parameter = fromP ? dp / (dp - dq) : dq / (dq - dp);
    if (!(parameter >= 0.0)) parameter = 0.0;
    if (parameter > 1.0) parameter = 1.0;
    const L_VECTOR d = Minus(end, start);
    return {start.x + parameter * d.x, start.y + parameter * d.y, start.z + parameter * d.z};
}

// The corners of `own` that lie on `other` and the points where its edges cross
// `other`. side[i] is the side of corner i against other's plane; not all are 0.
void CollectMeetings(const Triangle& own, const int side[3], const Triangle& other, Meetings& found)
{
    int offPlane = 0;
    while (side[offPlane] == 0) ++offPlane;
    for (int i = 0; i < 3; ++i) {
        if (side[i] == 0 && CornerInside(*own[i], other, *own[offPlane])) found.Add(*own[i]);
    }
    for (int i = 0; i < 3; ++i) {
        const int j = (i + 1) % 3;
        if (side[i] * side[j] < 0 && EdgeCrossesInside(*own[i], *own[j], other)) {
            found.Add(CrossingPoint(*own[i], *own[j], other));
        }
    }
}

bool AllZero(const int side[3]) { return side[0] == 0 && side[1] == 0 && side[2] == 0; }

bool AllOnOneSide(const int side[3])
{
    return (side[0] > 0 && side[1] > 0 && side[2] > 0) || (side[0] < 0 && side[1] < 0 && side[2] < 0);
}

// The two meeting points farthest apart, ordered along `direction`.
L_SEGM Span(const Meetings& found, const L_VECTOR& direction)
{
    int first = 0, last = 0;
    double longest = -1.0;
    for (int i = 0; i < found.count; ++i) {
        for (int j = i; j < found.count; ++j) {
            const double length = SquaredDistance(found.point[i], found.point[j]);
            if (length > longest) {
                longest = length;
                first = i;
                last = j;
            }
        }
    }
    if (Dot(Minus(found.point[last], found.point[first]), direction) < 0.0) std::swap(first, last);
    return {found.point[first], found.point[last]};
}

}  // namespace

short intersect_TriTri(const L_POINT& a0, const L_POINT& a1, const L_POINT& a2, const L_POINT& b0,
                       const L_POINT& b1, const L_POINT& b2, L_SEGM* segment)
{
    const Triangle a = {&a0, &a1, &a2};
    const Triangle b = {&b0, &b1, &b2};
    for (int i = 0; i < 3; ++i) {
        if (!IsFinite(*a[i]) || !IsFinite(*b[i])) return 0;
    }
    int sideOfA[3], sideOfB[3];
    for (int i = 0; i < 3; ++i) {
        sideOfA[i] = Side(b0, b1, b2, *a[i]);
        sideOfB[i] = Side(a0, a1, a2, *b[i]);
    }
    // All zero on one side means coplanar triangles or a zero-area one.
    if (AllZero(sideOfA) || AllZero(sideOfB)) return 0;
    if (AllOnOneSide(sideOfA) || AllOnOneSide(sideOfB)) return 0;
    Meetings found;
    CollectMeetings(a, sideOfA, b, found);
    CollectMeetings(b, sideOfB, a, found);
    if (found.count == 0) return 0;
    if (segment) *segment = Span(found, Cross(NormalOf(a), NormalOf(b)));
    return 1;
}

namespace {

struct Point2 {
    double x, y;
};

// Sign of the turn a -> b -> c: positive counter-clockwise.
int Orient2d(const Point2& a, const Point2& b, const Point2& c)
{
    const double left = (a.x - c.x) * (b.y - c.y);
    const double right = (a.y - c.y) * (b.x - c.x);
    const double det = left - right;
    const double magnitude = std::fabs(left) + std::fabs(right);
    if (std::fabs(det) > kOrient2dBound * magnitude) return SignOf(det);
    // The determinant of rows (x, y, 1) is ab + bc + ca of the 2 x 2 minors.
    const Expansion ab = Minor(a.x, a.y, b.x, b.y);
    const Expansion bc = Minor(b.x, b.y, c.x, c.y);
    const Expansion ca = Minor(c.x, c.y, a.x, a.y);
    return SignOf(Sum(Sum(ab, bc, 1.0), ca, 1.0));
}


// Points closer than this share of the contour's size are one point: the repeated
// closing corner, and float-rounded copies of a corner.
constexpr double kMergeFraction = 1e-9;
// A contour whose area vector is below this share of its squared size is flat to a
// line, and its projection would be all rounding.
constexpr double kFlatFraction = 1e-10;
// A contour within this share of its size of its mean plane is flat. Seen down an
// axis, a flat contour folds only if it really touches itself; float coordinates
// on a tilted plane stray from it by about 1e-7.
constexpr double kPlanarFraction = 1e-6;

using TriangleCallback = void (*)(double*, double*, double*, void*);

struct TessellatorState {
    bool ready = false;  // between Init and Release
    bool inPath = false;
    bool inContour = false;
    bool contourBroken = false;  // a point was not finite, or memory ran out
    bool emitting = false;       // inside the callback
    TriangleCallback callback = nullptr;
    void* user = nullptr;
    std::vector<L_POINT> contour;
    std::vector<std::vector<L_POINT>> contours;
};

TessellatorState tessellator;

bool Accepting() { return tessellator.ready && !tessellator.emitting; }

double BoxDiagonal(const std::vector<L_POINT>& points)
{
    L_POINT low = points.front(), high = points.front();
    for (const L_POINT& p : points) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    return std::sqrt(SquaredDistance(low, high));
}

// The contour without points that repeat their predecessor, the closing repeat of
// the first point included.
std::vector<L_POINT> DistinctPoints(const std::vector<L_POINT>& contour)
{
    const double tolerance = kMergeFraction * BoxDiagonal(contour);
    const double squaredTolerance = tolerance * tolerance;
    std::vector<L_POINT> kept;
    kept.reserve(contour.size());
    for (const L_POINT& p : contour) {
        if (kept.empty() || SquaredDistance(p, kept.back()) > squaredTolerance) kept.push_back(p);
    }
    while (kept.size() > 1 && SquaredDistance(kept.back(), kept.front()) <= squaredTolerance) kept.pop_back();
    return kept;
}

L_POINT Centroid(const std::vector<L_POINT>& points)
{
    const double n = double(points.size());
    L_POINT centre = {0.0, 0.0, 0.0};
    for (const L_POINT& p : points) centre = {centre.x + p.x / n, centre.y + p.y / n, centre.z + p.z / n};
    return centre;
}

// Twice the polygon's area vector, taken about its centroid to keep the products
// small; null when the contour is flat to a line.
L_VECTOR NewellNormal(const std::vector<L_POINT>& points)
{
    const size_t n = points.size();
    const L_POINT centre = Centroid(points);
    L_VECTOR normal = {0.0, 0.0, 0.0};
    for (size_t i = 0; i < n; ++i) {
        const L_VECTOR p = Minus(points[i], centre), q = Minus(points[(i + 1) % n], centre);
        normal.x += (p.y - q.y) * (p.z + q.z);
        normal.y += (p.z - q.z) * (p.x + q.x);
        normal.z += (p.x - q.x) * (p.y + q.y);
    }
    const double size = BoxDiagonal(points);
    if (!(std::sqrt(Dot(normal, normal)) > kFlatFraction * size * size)) return {0.0, 0.0, 0.0};
    return normal;
}

bool TurnsCounterClockwise(const std::vector<Point2>& flat)
{
    double twiceArea = 0.0;
    for (size_t i = 0, j = flat.size() - 1; i < flat.size(); j = i++) {
        twiceArea += flat[j].x * flat[i].y - flat[i].x * flat[j].y;
    }
    return twiceArea > 0.0;
}

// Drops the coordinate along which the normal is largest, and swaps the other two if
// needed so that the polygon turns counter-clockwise. No arithmetic, so points that
// are collinear in space stay exactly collinear and no ear can be a sliver of zero
// area.
void ProjectAlongAxis(const std::vector<L_POINT>& points, const L_VECTOR& normal, std::vector<Point2>& flat)
{
    const double size[3] = {std::fabs(normal.x), std::fabs(normal.y), std::fabs(normal.z)};
    const int drop = size[0] >= size[1] && size[0] >= size[2] ? 0 : size[1] >= size[2] ? 1 : 2;
    const double along[3] = {normal.x, normal.y, normal.z};
    const bool swap = along[drop] < 0.0;
    flat.resize(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        const double xyz[3] = {points[i].x, points[i].y, points[i].z};
        const double u = xyz[(drop + 1) % 3], v = xyz[(drop + 2) % 3];
        flat[i] = swap ? Point2{v, u} : Point2{u, v};
    }
}

bool IsFlat(const std::vector<L_POINT>& points, L_VECTOR normal)
{
    normalise(&normal);
    const L_POINT centre = Centroid(points);
    const double tolerance = kPlanarFraction * BoxDiagonal(points);
    return std::all_of(points.begin(), points.end(), [&](const L_POINT& p) {
        return std::fabs(Dot(Minus(p, centre), normal)) <= tolerance;
    });
}

// Coordinates on the plane at right angles to the normal, in a frame that has the
// polygon turn counter-clockwise: the view that unfolds a rim that is far from flat.
void ProjectOnNormalPlane(const std::vector<L_POINT>& points, L_VECTOR normal, std::vector<Point2>& flat)
{
    normalise(&normal);
    L_VECTOR u, v;
    nvector_arbitraryaxis(&normal, &u, &v);
    const L_POINT centre = Centroid(points);
    flat.resize(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        const L_VECTOR d = Minus(points[i], centre);
        flat[i] = {Dot(d, u), Dot(d, v)};
    }
}

// p is known to lie on the line ab.
bool OnSegment(const Point2& a, const Point2& b, const Point2& p)
{
    return std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) && std::min(a.y, b.y) <= p.y &&
           p.y <= std::max(a.y, b.y);
}

// The closed segments share a point.
bool SegmentsMeet(const Point2& a, const Point2& b, const Point2& c, const Point2& d)
{
    const int abc = Orient2d(a, b, c), abd = Orient2d(a, b, d);
    if (abc * abd > 0) return false;
    const int cda = Orient2d(c, d, a), cdb = Orient2d(c, d, b);
    if (cda * cdb > 0) return false;
    if (abc * abd < 0 && cda * cdb < 0) return true;
    return (abc == 0 && OnSegment(a, b, c)) || (abd == 0 && OnSegment(a, b, d)) ||
           (cda == 0 && OnSegment(c, d, a)) || (cdb == 0 && OnSegment(c, d, b));
}

// No zero-length edge, no edge doubling back on the previous one, and no two other
// edges that touch. Edges are swept in order of their smallest x, so only pairs
// whose x ranges overlap are compared.
bool IsSimplePolygon(const std::vector<Point2>& flat)
{
    const uint32_t n = uint32_t(flat.size());
    auto after = [n](uint32_t i) { return i + 1 == n ? 0 : i + 1; };
    for (uint32_t i = 0; i < n; ++i) {
        const Point2& before = flat[i == 0 ? n - 1 : i - 1];
        const Point2& here = flat[i];
        const Point2& next = flat[after(i)];
        if (here.x == next.x && here.y == next.y) return false;
        const bool doublesBack = (before.x - here.x) * (next.x - here.x) + (before.y - here.y) * (next.y - here.y) > 0.0;
        if (Orient2d(before, here, next) == 0 && doublesBack) return false;
    }
    auto lowX = [&](uint32_t i) { return std::min(flat[i].x, flat[after(i)].x); };
    auto highX = [&](uint32_t i) { return std::max(flat[i].x, flat[after(i)].x); };
    std::vector<uint32_t> order(n);
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return lowX(a) < lowX(b); });
    for (uint32_t k = 0; k < n; ++k) {
        const uint32_t i = order[k];
        const Point2 &a = flat[i], &b = flat[after(i)];
        for (uint32_t m = k + 1; m < n && lowX(order[m]) <= highX(i); ++m) {
            const uint32_t j = order[m];
            if (after(i) == j || after(j) == i) continue;
            const Point2 &c = flat[j], &d = flat[after(j)];
            if (std::max(c.y, d.y) < std::min(a.y, b.y) || std::max(a.y, b.y) < std::min(c.y, d.y)) continue;
            if (SegmentsMeet(a, b, c, d)) return false;
        }
    }
    return true;
}

// Ear clipping of a simple counter-clockwise polygon. An ear's triangle is blocked
// only by a corner that is not strictly convex (a reflex or straight one), and a
// corner never turns from convex back to reflex as ears go, so those corners are
// kept in a list of their own, sorted by x so that an ear test reads only the
// corners under its triangle. Ears wait in a queue by shape; an entry goes stale
// when its corner's neighbours change.
class EarClipper {
public:
    EarClipper(const std::vector<Point2>& flat, const std::vector<L_POINT>& corners)
        : flat_(flat), corners_(corners)
    {
    }

    // Appends n - 2 index triples, counter-clockwise; false if no ear could be found,
    // which a simple polygon does not allow.
    bool Run(std::vector<uint32_t>& triangles);

private:
    struct Ear {
        double quality;
        uint32_t corner, stamp;
        // The best shape first, then the lowest corner, so that the output is fixed.
        bool operator<(const Ear& other) const
        {
            return quality < other.quality || (quality == other.quality && corner > other.corner);
        }
    };
    const std::vector<Point2>& flat_;
    const std::vector<L_POINT>& corners_;
    std::vector<uint32_t> prev_, next_, stamp_;
    std::vector<uint32_t> reflexByX_;  // corners that were reflex at the start
    std::vector<uint8_t> reflex_;      // still reflex (or straight)
    std::priority_queue<Ear> ears_;

    bool IsConvex(uint32_t v) const { return Orient2d(flat_[prev_[v]], flat_[v], flat_[next_[v]]) > 0; }
    bool IsEar(uint32_t v) const;
    double Quality(uint32_t v) const;
    void Offer(uint32_t v);
    void DropIfConvex(uint32_t v);
    void Clip(uint32_t v, std::vector<uint32_t>& triangles);
};

bool EarClipper::IsEar(uint32_t v) const
{
    if (!IsConvex(v)) return false;
    const Point2 &a = flat_[prev_[v]], &b = flat_[v], &c = flat_[next_[v]];
    const double lowX = std::min({a.x, b.x, c.x}), highX = std::max({a.x, b.x, c.x});
    const double lowY = std::min({a.y, b.y, c.y}), highY = std::max({a.y, b.y, c.y});
    auto first = std::lower_bound(reflexByX_.begin(), reflexByX_.end(), lowX,
                                  [this](uint32_t r, double x) { return flat_[r].x < x; });
    for (auto it = first; it != reflexByX_.end() && flat_[*it].x <= highX; ++it) {
        const uint32_t r = *it;
        if (!reflex_[r] || r == prev_[v] || r == next_[v]) continue;
        const Point2& p = flat_[r];
        if (p.y < lowY || p.y > highY) continue;
        if (Orient2d(a, b, p) >= 0 && Orient2d(b, c, p) >= 0 && Orient2d(c, a, p) >= 0) return false;
    }
    return true;
}

// 1 for an equilateral triangle, towards 0 for a sliver; measured in 3-D, where the
// triangle will live.
double EarClipper::Quality(uint32_t v) const
{
    const L_POINT &a = corners_[prev_[v]], &b = corners_[v], &c = corners_[next_[v]];
    const L_VECTOR area = Cross(Minus(b, a), Minus(c, a));
    const double edges = SquaredDistance(a, b) + SquaredDistance(b, c) + SquaredDistance(c, a);
    return 2.0 * std::sqrt(3.0) * std::sqrt(Dot(area, area)) / edges;
}

void EarClipper::Offer(uint32_t v)
{
    if (IsEar(v)) ears_.push({Quality(v), v, stamp_[v]});
}

void EarClipper::DropIfConvex(uint32_t v)
{
    if (reflex_[v] && IsConvex(v)) reflex_[v] = 0;
}

void EarClipper::Clip(uint32_t v, std::vector<uint32_t>& triangles)
{
    const uint32_t before = prev_[v], after = next_[v];
    triangles.insert(triangles.end(), {before, v, after});
    next_[before] = after;
    prev_[after] = before;
    for (const uint32_t neighbour : {before, after}) {
        ++stamp_[neighbour];
        DropIfConvex(neighbour);
    }
    Offer(before);
    Offer(after);
}

bool EarClipper::Run(std::vector<uint32_t>& triangles)
{
    const uint32_t n = uint32_t(flat_.size());
    prev_.resize(n);
    next_.resize(n);
    stamp_.assign(n, 0);
    reflex_.assign(n, 0);
    for (uint32_t v = 0; v < n; ++v) {
        prev_[v] = v == 0 ? n - 1 : v - 1;
        next_[v] = v + 1 == n ? 0 : v + 1;
    }
    for (uint32_t v = 0; v < n; ++v) {
        if (IsConvex(v)) continue;
        reflex_[v] = 1;
        reflexByX_.push_back(v);
    }
    std::sort(reflexByX_.begin(), reflexByX_.end(), [this](uint32_t a, uint32_t b) { return flat_[a].x < flat_[b].x; });
    std::vector<uint8_t> clipped(n, 0);
    uint32_t alive = 0;  // any corner still in the polygon
    for (uint32_t remaining = n; remaining > 3;) {
        if (ears_.empty()) {
            // Empty at the start, and again when every queued ear is spent while
            // a corner that stopped being reflex may have freed one turned down
            // before: look at every corner.
            for (uint32_t v = 0; v < n; ++v) {
                if (!clipped[v]) Offer(v);
            }
            if (ears_.empty()) return false;
        }
        const Ear ear = ears_.top();
        ears_.pop();
        if (clipped[ear.corner] || ear.stamp != stamp_[ear.corner]) continue;
        alive = next_[ear.corner];
        Clip(ear.corner, triangles);
        clipped[ear.corner] = 1;
        --remaining;
    }
    if (!IsConvex(alive)) return false;
    triangles.insert(triangles.end(), {prev_[alive], alive, next_[alive]});
    return true;
}

// Index triples into `corners`, the contour's distinct points; false when the
// contour cannot be triangulated.
bool Triangulate(const std::vector<L_POINT>& contour, std::vector<L_POINT>& corners, std::vector<uint32_t>& triangles)
{
    if (contour.size() < 3) return false;
    corners = DistinctPoints(contour);
    if (corners.size() < 3) return false;
    const L_VECTOR normal = NewellNormal(corners);
    if (normal.x == 0.0 && normal.y == 0.0 && normal.z == 0.0) return false;
    std::vector<Point2> flat;
    ProjectAlongAxis(corners, normal, flat);
    if (!TurnsCounterClockwise(flat) || !IsSimplePolygon(flat)) {
        // The rounded view could hide a real self-contact of a flat contour.
        if (IsFlat(corners, normal)) return false;
        ProjectOnNormalPlane(corners, normal, flat);
        if (!TurnsCounterClockwise(flat) || !IsSimplePolygon(flat)) return false;
    }
    return EarClipper(flat, corners).Run(triangles);
}

void Emit(const std::vector<L_POINT>& corners, const std::vector<uint32_t>& triangles)
{
    if (!tessellator.callback) return;
    for (size_t k = 0; k + 2 < triangles.size(); k += 3) {
        double xyz[3][3];
        for (int i = 0; i < 3; ++i) {
            const L_POINT& p = corners[triangles[k + i]];
            xyz[i][0] = p.x;
            xyz[i][1] = p.y;
            xyz[i][2] = p.z;
        }
        tessellator.callback(xyz[0], xyz[1], xyz[2], tessellator.user);
    }
}

void ClearPath()
{
    tessellator.inPath = false;
    tessellator.inContour = false;
    tessellator.contourBroken = false;
    tessellator.contour.clear();
    tessellator.contours.clear();
}

}  // namespace

bool GeoLibTessellate3DInit()
{
    if (tessellator.emitting) return false;
    ClearPath();
    tessellator.callback = nullptr;
    tessellator.user = nullptr;
    tessellator.ready = true;
    return true;
}

void GeoLibTessellate3DRelease()
{
    if (tessellator.emitting) return;
    ClearPath();
    tessellator.contour.shrink_to_fit();
    tessellator.contours.shrink_to_fit();
    tessellator.callback = nullptr;
    tessellator.user = nullptr;
    tessellator.ready = false;
}

void GeoLibTessellate3DSetCbk(void (*callback)(double*, double*, double*, void*), void* user)
{
    if (!Accepting()) return;
    tessellator.callback = callback;
    tessellator.user = user;
}

void GeoLibTessellate3DBeginPath(bool)
{
    if (!Accepting()) return;
    ClearPath();
    tessellator.inPath = true;
}

void GeoLibTessellate3DEndPath()
{
    if (!Accepting() || !tessellator.inPath) return;
    tessellator.emitting = true;
    std::vector<L_POINT> corners;
    std::vector<uint32_t> triangles;
    for (const std::vector<L_POINT>& contour : tessellator.contours) {
        triangles.clear();
        bool done = false;
        try {
            done = Triangulate(contour, corners, triangles);
        } catch (...) {
            done = false;  // out of memory: the contour is rejected like any other
        }
        if (done) Emit(corners, triangles);
    }
    tessellator.emitting = false;
    ClearPath();
}

void GeoLibTessellate3DBeginContour()
{
    if (!Accepting() || !tessellator.inPath) return;
    tessellator.contour.clear();
    tessellator.contourBroken = false;
    tessellator.inContour = true;
}

void GeoLibTessellate3DEndContour()
{
    if (!Accepting() || !tessellator.inContour) return;
    tessellator.inContour = false;
    if (tessellator.contourBroken) return;
    try {
        tessellator.contours.push_back(std::move(tessellator.contour));
    } catch (...) {
        // Out of memory: the contour is dropped, as a rejected one would be.
    }
    tessellator.contour.clear();
}

void GeoLibTessellate3DVertex(double* xyz)
{
    if (!Accepting() || !tessellator.inContour || !xyz) return;
    const L_POINT p = {xyz[0], xyz[1], xyz[2]};
    if (!IsFinite(p)) {
        tessellator.contourBroken = true;
        return;
    }
    try {
        tessellator.contour.push_back(p);
    } catch (...) {
        tessellator.contourBroken = true;
    }
}
