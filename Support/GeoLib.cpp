// Geometry primitives on plain records.
//
// Everything here is straight vector algebra in double. Two choices are worth
// knowing: the accurate angle is atan2(|a x b|, a . b), which keeps full precision
// near 0 and pi where acos of a dot product loses half its digits (Kahan's advice in
// "Computing Cross-Products and Rotations in 2- and 3-Dimensional Euclidean Spaces");
// and rotations are built by Rodrigues' formula, then transposed because our
// matrices act on row vectors. The 4 x 4 determinant is a Laplace expansion over
// 2 x 2 minors of the top and bottom row pairs.
#include "GeoLib.h"

#include <cfloat>
#include <cmath>

// Values for millimetre parts with float coordinates: a length tolerance above the
// float rounding of parts up to a few hundred mm, and far below any feature size.
L_TOLERANCE zefatoll = {1.0e-5, 1.0e-6, 1.0e-9, 1.0e-12, 1.0e7};

namespace {

constexpr double kPi = 3.14159265358979323846;

L_VECTOR Difference(const L_POINT& a, const L_POINT& b)
{
    return {b.x - a.x, b.y - a.y, b.z - a.z};
}

L_VECTOR Cross(const L_VECTOR& a, const L_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

double Length(const L_VECTOR& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

bool IsZero(const L_VECTOR& v) { return v.x == 0.0 && v.y == 0.0 && v.z == 0.0; }

// Dividing by the largest component keeps squares from overflowing or underflowing;
// only the direction of the result is used.
L_VECTOR ScaledToUnitMax(const L_VECTOR& v)
{
    const double largest = std::fmax(std::fabs(v.x), std::fmax(std::fabs(v.y), std::fabs(v.z)));
    if (largest == 0.0 || !std::isfinite(largest)) return v;
    return {v.x / largest, v.y / largest, v.z / largest};
}

// Replaces an angle in [0, pi] by its complement to 2 pi when b lies clockwise of a
// about the axis.
double OrientAboutAxis(double angle, const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis)
{
    if (!axis || IsZero(*axis) || angle == 0.0) return angle;
    if (Dot(Cross(a, b), *axis) < 0.0) return 2.0 * kPi - angle;
    return angle;
}

double PlainAngle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis)
{
    const double lengths = Length(a) * Length(b);
    if (lengths == 0.0) return 0.0;
    double cosine = Dot(a, b) / lengths;
    if (cosine > 1.0) cosine = 1.0;
    if (cosine < -1.0) cosine = -1.0;
    return OrientAboutAxis(std::acos(cosine), a, b, axis);
}

double AccurateAngle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis)
{
    if (IsZero(a) || IsZero(b)) return 0.0;
    const L_VECTOR sa = ScaledToUnitMax(a);
    const L_VECTOR sb = ScaledToUnitMax(b);
    const L_VECTOR c = Cross(sa, sb);
    const double angle = std::atan2(std::hypot(c.x, c.y, c.z), Dot(sa, sb));
    return OrientAboutAxis(angle, sa, sb, axis);
}

// The unit vector of v, or false when v is too short to have a direction.
bool UnitOf(const L_VECTOR& v, L_VECTOR* unit)
{
    *unit = v;
    return normalise(unit) == 0;
}

L_POINT Transform(const L_POINT& p, const double* m)
{
    return {p.x * m[0] + p.y * m[4] + p.z * m[8] + m[12],
            p.x * m[1] + p.y * m[5] + p.z * m[9] + m[13],
            p.x * m[2] + p.y * m[6] + p.z * m[10] + m[14]};
}

L_VECTOR TransformVector(const L_VECTOR& v, const double* m)
{
    return {v.x * m[0] + v.y * m[4] + v.z * m[8], v.x * m[1] + v.y * m[5] + v.z * m[9],
            v.x * m[2] + v.y * m[6] + v.z * m[10]};
}

// Powers of ten are exact in double up to 1e22.
double PowerOfTen(int n)
{
    double p = 1.0;
    for (int k = 0; k < n; ++k) p *= 10.0;
    return p;
}

}  // namespace

short L_WORKPLANE::Set(const L_POINT& origin, const L_VECTOR& xDirection, const L_VECTOR& normal)
{
    L_VECTOR z;
    if (!UnitOf(normal, &z)) return 1;
    const double along = Dot(xDirection, z);
    L_VECTOR x;
    if (!UnitOf({xDirection.x - along * z.x, xDirection.y - along * z.y, xDirection.z - along * z.z}, &x))
        return 1;
    origin_ = origin;
    xAxis_ = x;
    zAxis_ = z;
    yAxis_ = Cross(z, x);
    return 0;
}

double dist_PP(const L_POINT* a, const L_POINT* b) { return Length(Difference(*a, *b)); }

double real_dist_PP(const L_POINT* a, const L_POINT* b)
{
    const L_VECTOR d = Difference(*a, *b);
    return std::hypot(d.x, d.y, d.z);
}

float dist_PP3f(const L_POINT3f* a, const L_POINT3f* b)
{
    const float dx = b->x - a->x;
    const float dy = b->y - a->y;
    const float dz = b->z - a->z;
    const float squares = dx * dx + dy * dy + dz * dz;
    return float(std::sqrt(double(squares)));
}

double dist_PPl(const L_POINT* p, const L_PLANE* plane)
{
    const double length = Length(plane->normal);
    if (length <= zefatoll.zero) return 0.0;
    return Dot(Difference(plane->point, *p), plane->normal) / length;
}

double real_dist_PS(const L_POINT& p, const L_SEGM& segment)
{
    L_POINT closest;
    project_point_onto_segment(p, segment, &closest, nullptr);
    return real_dist_PP(&p, &closest);
}

double min_dist_point_bbox(const L_POINT& p, const L_BOUNDS& box)
{
    const double coords[3] = {p.x, p.y, p.z};
    double squares = 0.0;
    for (int k = 0; k < 3; ++k) {
        if (box.min[k] > box.max[k]) return DBL_MAX;
        double gap = 0.0;
        if (coords[k] < box.min[k]) gap = box.min[k] - coords[k];
        else if (coords[k] > box.max[k]) gap = coords[k] - box.max[k];
        squares += gap * gap;
    }
    return std::sqrt(squares);
}

double modulus(const L_VECTOR* v) { return Length(*v); }

double real_modulus(const L_VECTOR* v) { return std::hypot(v->x, v->y, v->z); }

double adotb(const L_VECTOR* a, const L_VECTOR* b) { return Dot(*a, *b); }

double vector_angle(const L_VECTOR* a, const L_VECTOR* b, const L_VECTOR* axis)
{
    return PlainAngle(*a, *b, axis);
}

double vector_angle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis)
{
    return PlainAngle(a, b, axis);
}

double real_vector_angle(const L_VECTOR* a, const L_VECTOR* b, const L_VECTOR* axis)
{
    return AccurateAngle(*a, *b, axis);
}

double real_vector_angle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis)
{
    return AccurateAngle(a, b, axis);
}

short vector_orientation(const L_VECTOR& a, const L_VECTOR& b, double tolerance)
{
    L_VECTOR ua, ub;
    if (!UnitOf(a, &ua) || !UnitOf(b, &ub)) return 0;
    const L_VECTOR apart = {ua.x - ub.x, ua.y - ub.y, ua.z - ub.z};
    if (Length(apart) <= tolerance) return 1;
    const L_VECTOR against = {ua.x + ub.x, ua.y + ub.y, ua.z + ub.z};
    if (Length(against) <= tolerance) return -1;
    return 0;
}

short new_vector_orientation(const L_VECTOR& a, const L_VECTOR& b, double tolerance)
{
    L_VECTOR ua, ub;
    if (!UnitOf(a, &ua) || !UnitOf(b, &ub)) return 0;
    const double angle = AccurateAngle(ua, ub, nullptr);
    if (angle <= tolerance) return 1;
    if (angle >= kPi - tolerance) return -1;
    return 0;
}

short coincident_points(const L_POINT& a, const L_POINT& b)
{
    return coincident_points(&a, &b, zefatoll.length);
}

short coincident_points(const L_POINT* a, const L_POINT* b, double tolerance)
{
    return std::fabs(a->x - b->x) <= tolerance && std::fabs(a->y - b->y) <= tolerance &&
           std::fabs(a->z - b->z) <= tolerance;
}

void check_bb_overlapping(const L_BOUNDS& a, const L_BOUNDS& b, short* overlap)
{
    if (!overlap) return;
    *overlap = 0;
    for (int k = 0; k < 3; ++k) {
        // Written as positive tests so that an inverted box or a NaN bound fails.
        const bool bothProper = a.min[k] <= a.max[k] && b.min[k] <= b.max[k];
        if (!bothProper || !(a.min[k] <= b.max[k] && b.min[k] <= a.max[k])) return;
    }
    *overlap = 1;
}

short validate_P(L_POINT* p, bool checkRange)
{
    if (!p) return 1;
    for (double c : {p->x, p->y, p->z}) {
        if (!std::isfinite(c)) return 1;
        if (checkRange && std::fabs(c) > zefatoll.worldSize) return 1;
    }
    return 0;
}

double rounds(double value, short decimals)
{
    if (!std::isfinite(value)) return value;
    // Doubles from 2^52 up are whole numbers; there is nothing left to round.
    constexpr double kWhole = 4503599627370496.0;
    const int places = decimals < -22 ? -22 : decimals > 22 ? 22 : decimals;
    if (places >= 0) {
        const double scale = PowerOfTen(places);
        const double scaled = value * scale;
        if (std::fabs(scaled) >= kWhole) return value;
        return std::round(scaled) / scale;
    }
    const double scale = PowerOfTen(-places);
    const double scaled = value / scale;
    if (std::fabs(scaled) >= kWhole) return value;  // too large to hold those places
    return std::round(scaled) * scale;
}

double toll_testp(double tolerance)
{
    return tolerance >= zefatoll.length ? tolerance : zefatoll.length;
}

double toll_testa(double tolerance) { return tolerance >= zefatoll.angle ? tolerance : zefatoll.angle; }

double toll_testp_param(double tolerance, double length)
{
    if (!(length > zefatoll.length)) return 1.0;
    const double parameter = toll_testp(tolerance) / length;
    if (parameter > 1.0) return 1.0;
    return parameter >= zefatoll.parameter ? parameter : zefatoll.parameter;
}

void vector_PP(const L_POINT* a, const L_POINT* b, L_VECTOR* v) { *v = Difference(*a, *b); }

short nvector_PP(const L_POINT* a, const L_POINT* b, L_VECTOR* v)
{
    if (UnitOf(Difference(*a, *b), v)) return 0;
    *v = {0.0, 0.0, 0.0};
    return 1;
}

short normalise(L_VECTOR* v)
{
    const double length = Length(*v);
    // Also refuses NaN and infinite lengths, which have no direction to keep.
    if (!(length > zefatoll.zero) || !std::isfinite(length)) return 1;
    v->x /= length;
    v->y /= length;
    v->z /= length;
    return 0;
}

short naXb(const L_VECTOR* a, const L_VECTOR* b, L_VECTOR* out)
{
    if (UnitOf(Cross(*a, *b), out)) return 0;
    *out = {0.0, 0.0, 0.0};
    return 1;
}

void nvector_arbitraryaxis(const L_VECTOR* n, L_VECTOR* first, L_VECTOR* second)
{
    L_VECTOR z;
    if (!UnitOf(*n, &z)) {
        *first = {1.0, 0.0, 0.0};
        *second = {0.0, 1.0, 0.0};
        return;
    }
    // The world axis after n's dominant one is never closer than 45 degrees to n, so
    // its part at right angles to n is always well conditioned.
    const double size[3] = {std::fabs(z.x), std::fabs(z.y), std::fabs(z.z)};
    int dominant = 0;
    if (size[1] > size[dominant]) dominant = 1;
    if (size[2] > size[dominant]) dominant = 2;
    L_VECTOR world = {0.0, 0.0, 0.0};
    double along = 0.0;
    switch ((dominant + 1) % 3) {
    case 0: world.x = 1.0; along = z.x; break;
    case 1: world.y = 1.0; along = z.y; break;
    default: world.z = 1.0; along = z.z; break;
    }
    L_VECTOR a = {world.x - along * z.x, world.y - along * z.y, world.z - along * z.z};
    normalise(&a);
    const L_VECTOR b = Cross(z, a);
    *first = a;
    *second = b;
}

void mean_point(const L_POINT& a, const L_POINT& b, L_POINT* mid)
{
    *mid = {(a.x + b.x) * 0.5, (a.y + b.y) * 0.5, (a.z + b.z) * 0.5};
}

short plane_PPP(const L_POINT* p1, const L_POINT* p2, const L_POINT* p3, L_PLANE* plane)
{
    const L_POINT origin = *p1;
    L_VECTOR normal;
    const bool found = UnitOf(Cross(Difference(*p1, *p2), Difference(*p1, *p3)), &normal);
    plane->point = origin;
    plane->normal = found ? normal : L_VECTOR{0.0, 0.0, 0.0};
    return found ? 0 : 1;
}

void project_point_on_vector(const L_POINT* p, const L_VECTOR* direction, double distance,
                             L_POINT* out)
{
    L_VECTOR unit;
    if (!UnitOf(*direction, &unit)) {
        *out = *p;
        return;
    }
    *out = {p->x + distance * unit.x, p->y + distance * unit.y, p->z + distance * unit.z};
}

void project_point_onto_plane(const L_POINT* p, const L_PLANE* plane, L_POINT* out)
{
    const L_VECTOR& n = plane->normal;
    if (Length(n) <= zefatoll.zero) {
        *out = *p;
        return;
    }
    const double t = Dot(Difference(plane->point, *p), n) / Dot(n, n);
    *out = {p->x - t * n.x, p->y - t * n.y, p->z - t * n.z};
}

bool project_point_onto_segment(const L_POINT& p, const L_SEGM& segment, L_POINT* out,
                                double* parameter)
{
    const L_VECTOR d = Difference(segment.start, segment.end);
    bool onSegment = false;
    double t = 0.0;
    L_POINT closest = segment.start;
    if (Length(d) > zefatoll.zero) {
        t = Dot(Difference(segment.start, p), d) / Dot(d, d);
        onSegment = t >= 0.0 && t <= 1.0;
        // The ends are returned exactly rather than as start + 1 * d.
        if (t <= 0.0) {
            t = 0.0;
        } else if (t >= 1.0) {
            t = 1.0;
            closest = segment.end;
        } else {
            closest = {segment.start.x + t * d.x, segment.start.y + t * d.y, segment.start.z + t * d.z};
        }
    }
    if (out) *out = closest;
    if (parameter) *parameter = t;
    return onSegment;
}

void segment_parameter(const L_SEGM& segment, const L_POINT& p, double* parameter)
{
    if (!parameter) return;
    const L_VECTOR d = Difference(segment.start, segment.end);
    *parameter = Length(d) > zefatoll.zero ? Dot(Difference(segment.start, p), d) / Dot(d, d) : 0.0;
}

short intersect_SPl(const L_SEGM& segment, const L_PLANE& plane, L_POINT* point)
{
    if (Length(plane.normal) <= zefatoll.zero) return 0;
    const double h0 = dist_PPl(&segment.start, &plane);
    const double h1 = dist_PPl(&segment.end, &plane);
    const bool startOn = std::fabs(h0) <= zefatoll.length;
    const bool endOn = std::fabs(h1) <= zefatoll.length;
    if (startOn && endOn) return 2;
    L_POINT meeting;
    if (startOn) {
        meeting = segment.start;
    } else if (endOn) {
        meeting = segment.end;
    } else {
        // Both heights are clear of zero here; equal signs (or a NaN) mean no crossing.
        if ((h0 > 0.0) == (h1 > 0.0)) return 0;
        const double t = h0 / (h0 - h1);
        const L_VECTOR d = Difference(segment.start, segment.end);
        meeting = {segment.start.x + t * d.x, segment.start.y + t * d.y, segment.start.z + t * d.z};
    }
    if (point) *point = meeting;
    return 1;
}

short convert_to_points(const L_SEGM& segment, int n, List<L_POINT>* points)
{
    if (!points) return 1;
    points->Clear();
    if (n <= 0) return 1;
    const L_VECTOR d = Difference(segment.start, segment.end);
    bool appended = true;
    for (int k = 0; k < n && appended; ++k) {
        const double t = double(k) / double(n);
        appended = points->Append({segment.start.x + t * d.x, segment.start.y + t * d.y, segment.start.z + t * d.z});
    }
    if (appended) appended = points->Append(segment.end);
    if (appended) return 0;
    points->Clear();
    return 1;
}

double mat_determinant(const L_MATRIX* matrix)
{
    const double* m = matrix->m;
    const double s0 = m[0] * m[5] - m[4] * m[1];
    const double s1 = m[0] * m[6] - m[4] * m[2];
    const double s2 = m[0] * m[7] - m[4] * m[3];
    const double s3 = m[1] * m[6] - m[5] * m[2];
    const double s4 = m[1] * m[7] - m[5] * m[3];
    const double s5 = m[2] * m[7] - m[6] * m[3];
    const double c5 = m[10] * m[15] - m[14] * m[11];
    const double c4 = m[9] * m[15] - m[13] * m[11];
    const double c3 = m[9] * m[14] - m[13] * m[10];
    const double c2 = m[8] * m[15] - m[12] * m[11];
    const double c1 = m[8] * m[14] - m[12] * m[10];
    const double c0 = m[8] * m[13] - m[12] * m[9];
    return s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
}

void mat_transform_point(const L_POINT* p, const L_MATRIX* m, L_POINT* out) { *out = Transform(*p, m->m); }

void mat_transform_pointf(const L_POINT3f* p, const L_MATRIX* m, L_POINT3f* out)
{
    const L_POINT q = Transform({p->x, p->y, p->z}, m->m);
    *out = {float(q.x), float(q.y), float(q.z)};
}

void mat_transform_vector(const L_VECTOR* v, const L_MATRIX* m, L_VECTOR* out)
{
    *out = TransformVector(*v, m->m);
}

void mat_rotate_vector(const L_VECTOR* v, const L_MATRIX* m, L_VECTOR* out)
{
    const double before = Length(*v);
    L_VECTOR turned = TransformVector(*v, m->m);
    const double after = Length(turned);
    if (after <= zefatoll.zero) {
        *out = {0.0, 0.0, 0.0};
        return;
    }
    const double factor = before / after;
    *out = {turned.x * factor, turned.y * factor, turned.z * factor};
}

void mat_WorkPlane_World(const L_WORKPLANE* plane, L_MATRIX* toWorkPlane, L_MATRIX* toWorld)
{
    const L_POINT& o = plane->Origin();
    const L_VECTOR axes[3] = {plane->XAxis(), plane->YAxis(), plane->ZAxis()};
    const L_VECTOR origin = {o.x, o.y, o.z};
    if (toWorkPlane) {
        // Columns are the axes: a world point's coordinates are its dot products
        // with them, taken from the plane's origin.
        double* m = toWorkPlane->m;
        for (int j = 0; j < 3; ++j) {
            m[0 + j] = axes[j].x;
            m[4 + j] = axes[j].y;
            m[8 + j] = axes[j].z;
            m[12 + j] = -Dot(origin, axes[j]);
        }
        m[3] = m[7] = m[11] = 0.0;
        m[15] = 1.0;
    }
    if (toWorld) {
        // Rows are the axes, the last row the origin.
        double* m = toWorld->m;
        for (int i = 0; i < 3; ++i) {
            m[4 * i + 0] = axes[i].x;
            m[4 * i + 1] = axes[i].y;
            m[4 * i + 2] = axes[i].z;
            m[4 * i + 3] = 0.0;
        }
        m[12] = o.x;
        m[13] = o.y;
        m[14] = o.z;
        m[15] = 1.0;
    }
}

void mat_identity(L_MATRIX* m)
{
    for (int k = 0; k < 16; ++k) m->m[k] = k % 5 == 0 ? 1.0 : 0.0;
}

void mat_translation(const L_VECTOR* offset, L_MATRIX* m)
{
    const L_VECTOR t = *offset;
    mat_identity(m);
    m->m[12] = t.x;
    m->m[13] = t.y;
    m->m[14] = t.z;
}

short mat_rotation(const L_VECTOR* axis, double angle, L_MATRIX* m)
{
    L_VECTOR k;
    const bool hasAxis = UnitOf(*axis, &k);
    mat_identity(m);
    if (!hasAxis) return 1;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double t = 1.0 - c;
    // Rodrigues' matrix R acts on columns; row-vector storage keeps its transpose,
    // so m[4 * r + c] = R[c][r].
    const double r[3][3] = {{t * k.x * k.x + c, t * k.x * k.y - s * k.z, t * k.x * k.z + s * k.y},
                            {t * k.x * k.y + s * k.z, t * k.y * k.y + c, t * k.y * k.z - s * k.x},
                            {t * k.x * k.z - s * k.y, t * k.y * k.z + s * k.x, t * k.z * k.z + c}};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) m->m[4 * row + col] = r[col][row];
    }
    return 0;
}

void mat_product(const L_MATRIX* a, const L_MATRIX* b, L_MATRIX* out)
{
    L_MATRIX result;
    for (int row = 0; row < 4; ++row) {
        for (int col = 0; col < 4; ++col) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k) sum += a->m[4 * row + k] * b->m[4 * k + col];
            result.m[4 * row + col] = sum;
        }
    }
    *out = result;
}

namespace {

// Removes from v its part along the unit vector `along`.
L_VECTOR Across(const L_VECTOR& v, const L_VECTOR& along)
{
    const double t = Dot(v, along);
    return {v.x - t * along.x, v.y - t * along.y, v.z - t * along.z};
}

L_POINT Along(const L_POINT& p, const L_VECTOR& d, double t) { return {p.x + t * d.x, p.y + t * d.y, p.z + t * d.z}; }

// Eigenvalues (ascending) and unit eigenvectors (rows) of a symmetric 3 x 3 matrix
// by cyclic Jacobi rotations, which stay accurate for the nearly flat and nearly
// straight point sets that plane fitting meets.
void SymmetricEigen(double a[3][3], double values[3], L_VECTOR vectors[3])
{
    double v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int sweep = 0; sweep < 50; ++sweep) {
        const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
        if (off == 0.0) break;
        for (int p = 0; p < 2; ++p) {
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0.0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const double t = (theta >= 0.0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0);
                const double s = t * c;
                for (int k = 0; k < 3; ++k) {
                    const double akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {
                    const double apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {
                    const double vkp = v[k][p], vkq = v[k][q];
                    v[k][p] = c * vkp - s * vkq;
                    v[k][q] = s * vkp + c * vkq;
                }
            }
        }
    }
    int order[3] = {0, 1, 2};
    for (int i = 0; i < 3; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (a[order[j]][order[j]] < a[order[i]][order[i]]) std::swap(order[i], order[j]);
    for (int i = 0; i < 3; ++i) {
        values[i] = a[order[i]][order[i]];
        vectors[i] = {v[0][order[i]], v[1][order[i]], v[2][order[i]]};
    }
}

// The component of largest magnitude, with its sign (x before y before z on ties).
double LargestComponent(const L_VECTOR& v)
{
    if (std::fabs(v.x) >= std::fabs(v.y) && std::fabs(v.x) >= std::fabs(v.z)) return v.x;
    return std::fabs(v.y) >= std::fabs(v.z) ? v.y : v.z;
}

// Total least-squares plane of the points that forEach visits in order (see
// least_squares_plane for the result).
template <class ForEach>
short FitPlane(ForEach forEach, L_PLANE* plane)
{
    uint32_t n = 0;
    L_POINT sum = {0.0, 0.0, 0.0};
    forEach([&](const L_POINT& p) {
        ++n;
        sum = {sum.x + p.x, sum.y + p.y, sum.z + p.z};
    });
    if (n < 3 || !plane) return 1;
    const L_POINT centroid = {sum.x / n, sum.y / n, sum.z / n};
    double m[3][3] = {};
    L_VECTOR newell = {0.0, 0.0, 0.0};
    const L_POINT* previous = nullptr;
    forEach([&](const L_POINT& p) {
        const double d[3] = {p.x - centroid.x, p.y - centroid.y, p.z - centroid.z};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) m[i][j] += d[i] * d[j];
        if (previous) {
            const L_VECTOR c = Cross(Difference(centroid, *previous), Difference(centroid, p));
            newell = {newell.x + c.x, newell.y + c.y, newell.z + c.z};
        }
        previous = &p;
    });
    double spread[3];
    L_VECTOR axes[3];
    SymmetricEigen(m, spread, axes);
    // Spread across the line of best fit no wider than the length tolerance: a line.
    if (!(spread[1] / n > zefatoll.length * zefatoll.length)) return 1;
    L_VECTOR normal = axes[0];
    double side = Dot(newell, normal);
    if (side == 0.0) side = LargestComponent(normal);
    if (side < 0.0) normal = {-normal.x, -normal.y, -normal.z};
    normalise(&normal);
    *plane = {centroid, normal};
    return 0;
}

}  // namespace

double real_dist_PL(const L_POINT& p, const L_LINE& line, const L_VECTOR& view)
{
    L_VECTOR offset = Difference(line.point, p);
    L_VECTOR direction = line.direction;
    L_VECTOR v;
    if (UnitOf(view, &v)) {
        offset = Across(offset, v);
        direction = Across(direction, v);
    }
    L_VECTOR d;
    if (!UnitOf(direction, &d)) return real_modulus(&offset);
    const L_VECTOR across = Across(offset, d);
    return real_modulus(&across);
}

short colinear_points(const L_POINT& a, const L_POINT& b, const L_POINT& c, double tolerance,
                      L_LINE* line, short* colinear)
{
    // The two farthest apart fix the line best; the third is the one tested.
    const L_POINT* points[3] = {&a, &b, &c};
    int first = 0, second = 1, third = 2;
    double widest = real_dist_PP(&a, &b);
    if (real_dist_PP(&a, &c) > widest) {
        widest = real_dist_PP(&a, &c);
        second = 2;
        third = 1;
    }
    if (real_dist_PP(&b, &c) > widest) {
        widest = real_dist_PP(&b, &c);
        first = 1;
        second = 2;
        third = 0;
    }
    if (colinear) *colinear = 0;
    if (!(widest > zefatoll.length)) return 1;
    const L_SEGM chord = {*points[first], *points[second]};
    L_LINE through;
    convert_S_L(&chord, &through);
    if (colinear) *colinear = real_dist_PL(*points[third], through, {0.0, 0.0, 0.0}) <= tolerance;
    if (line) *line = through;
    return 0;
}

short coplanar_points(uint32_t n, const L_POINT* points, double tolerance, L_PLANE* plane,
                      short* coplanar)
{
    if (coplanar) *coplanar = 0;
    L_PLANE fitted;
    if (!points || !plane || least_squares_plane(n, points, &fitted) != 0) return 1;
    bool within = true;
    for (uint32_t k = 0; k < n && within; ++k) within = std::fabs(dist_PPl(&points[k], &fitted)) <= tolerance;
    if (coplanar) *coplanar = within;
    *plane = fitted;
    return 0;
}

short point_on_arc(const L_POINT& p, const L_ARC& arc, double tolerance)
{
    L_VECTOR axis;
    if (!UnitOf(arc.axis, &axis) || !(arc.radius >= 0.0)) return 1;
    const L_VECTOR toStart = Across(Difference(arc.centre, arc.start), axis);
    const L_VECTOR toPoint = Across(Difference(arc.centre, p), axis);
    if (!(Length(toStart) > zefatoll.zero)) return 1;
    bool inSweep = true;
    if (!coincident_points(arc.start, arc.end)) {
        const L_VECTOR toEnd = Across(Difference(arc.centre, arc.end), axis);
        const double sweep = AccurateAngle(toStart, toEnd, &axis);
        inSweep = AccurateAngle(toStart, toPoint, &axis) <= sweep;
    }
    if (inSweep) {
        const double height = Dot(Difference(arc.centre, p), axis);
        return std::hypot(height, Length(toPoint) - arc.radius) <= tolerance ? 0 : 1;
    }
    const bool nearEnd = real_dist_PP(&p, &arc.start) <= tolerance || real_dist_PP(&p, &arc.end) <= tolerance;
    return nearEnd ? 0 : 1;
}

short least_squares_plane(List<L_POINT>& points, L_PLANE* plane)
{
    return FitPlane(
        [&](auto visit) {
            for (uint32_t i = 1; i <= points.Size(); ++i)
                if (const L_POINT* p = points.Get(i)) visit(*p);
        },
        plane);
}

short least_squares_plane(uint32_t n, const L_POINT* points, L_PLANE* plane)
{
    if (!points) return 1;
    return FitPlane(
        [&](auto visit) {
            for (uint32_t k = 0; k < n; ++k) visit(points[k]);
        },
        plane);
}

short project_point_onto_circle(const L_POINT* p, const L_CIRCLE* circle, L_POINT* out)
{
    L_VECTOR axis, radial;
    if (!UnitOf(circle->axis, &axis) || !(circle->radius >= 0.0)) return 1;
    if (!UnitOf(Across(Difference(circle->centre, *p), axis), &radial)) return 1;
    *out = Along(circle->centre, radial, circle->radius);
    return 0;
}

void convert_A_C(const L_ARC* arc, L_CIRCLE* circle) { *circle = {arc->centre, arc->radius, arc->axis}; }

short convert_S_L(const L_SEGM* segment, L_LINE* line)
{
    L_VECTOR direction;
    if (nvector_PP(&segment->start, &segment->end, &direction) != 0) return 1;
    *line = {segment->start, direction};
    return 0;
}

short intersect_LB(const L_LINE* line, const L_BOUNDS* box, L_POINT* points, double tolerance)
{
    L_VECTOR d;
    if (!line || !box || !points || !UnitOf(line->direction, &d)) return 0;
    const double origin[3] = {line->point.x, line->point.y, line->point.z};
    const double step[3] = {d.x, d.y, d.z};
    double enter = -DBL_MAX, leave = DBL_MAX;
    // Slabs: the line is inside the box where it is inside all three pairs of planes.
    for (int k = 0; k < 3; ++k) {
        const double low = box->min[k] - tolerance, high = box->max[k] + tolerance;
        if (!(low <= high)) return 0;
        if (std::fabs(step[k]) <= zefatoll.zero) {
            if (origin[k] < low || origin[k] > high) return 0;
            continue;
        }
        double t0 = (low - origin[k]) / step[k], t1 = (high - origin[k]) / step[k];
        if (t0 > t1) std::swap(t0, t1);
        enter = std::fmax(enter, t0);
        leave = std::fmin(leave, t1);
        if (enter > leave) return 0;
    }
    points[0] = Along(line->point, d, enter);
    if (leave - enter <= zefatoll.length) return 1;
    points[1] = Along(line->point, d, leave);
    return 2;
}

short intersect_LPl(const L_LINE* line, const L_PLANE* plane, L_POINT* point)
{
    L_VECTOR d, n;
    if (!line || !plane || !UnitOf(line->direction, &d) || !UnitOf(plane->normal, &n)) return 0;
    const double height = Dot(Difference(plane->point, line->point), n);
    const double approach = Dot(d, n);
    if (std::fabs(approach) <= zefatoll.angle) return std::fabs(height) <= zefatoll.length ? 2 : 0;
    if (point) *point = Along(line->point, d, -height / approach);
    return 1;
}
