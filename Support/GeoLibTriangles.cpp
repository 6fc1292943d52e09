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
// Contours: the Newell normal (the area vector of the closed polygon) gives a plane
// on which a hole's rim, flat or not, projects without folding; there the polygon is
// checked for self-contact by a sweep over x and cut by ear clipping. Only reflex and
// straight corners can block an ear of a simple polygon, so each ear test looks at
// those alone, and ears wait in a queue by shape so that good triangles go first.
#include "GeoLibTriangles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
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
