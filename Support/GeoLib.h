// Geometry layer: records, tolerances, the 1-based List, and the distance, vector,
// plane and matrix primitives the mesh library is built on.
//
// Tolerances. zefatoll holds the process-wide values; its first field is the length
// tolerance (millimetres). Three notions of "near" follow from it:
//  - points: coincident when each of |dx|, |dy|, |dz| is at most the tolerance
//    (a box test, the same shape as the mesh's own near test, but inclusive so
//    that a tolerance of 0 still matches equal points);
//  - vectors: compared after normalising, either by the distance between the unit
//    vectors (vector_orientation) or by the angle in radians (new_vector_orientation);
//  - parameters on a curve: a length tolerance divided by the curve's length
//    (toll_testp_param), so that parameter tests mean the same thing on long and
//    short curves.
// Functions that take a tolerance use it exactly as given. Callers who hold a raw
// value turn it into a working one with toll_testp / toll_testa / toll_testp_param,
// which raise it to at least the zefatoll floor. Divisions by a length treat any
// length at or below zefatoll.zero as zero and take the documented degenerate path.
//
// Short results: predicates (coincident_points, vector_orientation) are non-zero for
// "yes"; operations that can fail (normalise, naXb, plane_PPP, validate_P, ...) are 0
// on success and 1 on failure, as point_on_arc's 0 means "accepted".
#pragma once

#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "LscMemory.h"

struct L_POINT { double x, y, z; };
struct L_POINT3f { float x, y, z; };
struct L_VECTOR { double x, y, z; };
struct L_BOUNDS { double min[3]; double max[3]; };
struct L_BOUNDSf { float min[3]; float max[3]; };
struct L_SEGM { L_POINT start; L_POINT end; };
struct L_PLANE { L_POINT point; L_VECTOR normal; };  // normal need not be unit
struct L_MATRIX { double m[16]; };                   // row after row, acts on row vectors
struct L_CIRCLE { L_POINT centre; double radius; L_VECTOR axis; };
// An arc runs counter-clockwise about its axis (right-hand rule) from start to end;
// start and end coinciding (zefatoll.length) make it the full circle.
struct L_ARC { L_POINT centre; double radius; L_VECTOR axis; L_POINT start; L_POINT end; };
// An unbounded line: a point on it and a unit direction (as convert_S_L makes it).
struct L_LINE { L_POINT point; L_VECTOR direction; };

// The library-wide tolerances. Values are for parts modelled in millimetres with
// float coordinates, whose rounding is a few 1e-6 mm on parts of a few hundred mm.
struct L_TOLERANCE {
    double length;     // points closer than this are one point (mm); must stay first
    double angle;      // directions closer than this are one direction (radians)
    double parameter;  // smallest parametric tolerance on a curve (dimensionless)
    double zero;       // lengths at or below this cannot be divided by (mm)
    double worldSize;  // coordinates beyond +-worldSize are garbage (mm)
};

// Process-wide and not thread-safe, by design: set once, read everywhere.
extern L_TOLERANCE zefatoll;

// 1-based growable array: contiguous elements plus validity bytes (none allocated
// means every entry is valid). All memory comes from l_memptr_alloc. Elements may
// own memory; they are constructed on Append and destroyed on Clear. No member
// throws: allocation failure is reported through the bool results.
template <class T>
class List {
public:
    List() = default;
    // A copy that runs out of memory comes out empty (a constructor has no result).
    List(const List& other) { CopyFrom(other); }
    List(List&& other) noexcept { TakeFrom(other); }
    ~List() { Clear(); }

    List& operator=(const List& other)
    {
        if (this != &other) CopyFrom(other);
        return *this;
    }
    List& operator=(List&& other) noexcept
    {
        if (this != &other) {
            Clear();
            TakeFrom(other);
        }
        return *this;
    }

    uint32_t Size() const { return size_; }

    // nullptr unless 1 <= i <= Size() and entry i is valid.
    T* Get(uint32_t i) { return IsValid(i) ? data_ + (i - 1) : nullptr; }
    const T* Get(uint32_t i) const { return IsValid(i) ? data_ + (i - 1) : nullptr; }

    // Appends a valid copy of value (which may be an entry of this list). False, with
    // the list unchanged, when memory runs out or the copy fails.
    bool Append(const T& value)
    {
        if (size_ == UINT32_MAX) return false;
        if (size_ == capacity_) return GrowAndAppend(value);
        if (!ConstructAt(data_ + size_, value)) return false;
        if (valid_) valid_[size_] = 1;
        ++size_;
        return true;
    }

    // Hides entry i from Get; the element stays constructed until Clear. False for an
    // index out of range or when the validity bytes cannot be allocated.
    bool Invalidate(uint32_t i)
    {
        if (i == 0 || i > size_) return false;
        if (!valid_) {
            valid_ = static_cast<uint8_t*>(l_memptr_alloc(nullptr, capacity_));
            if (!valid_) return false;
            for (uint32_t k = 0; k < size_; ++k) valid_[k] = 1;
        }
        valid_[i - 1] = 0;
        return true;
    }

    // Destroys every element and frees all memory.
    void Clear()
    {
        for (uint32_t k = 0; k < size_; ++k) data_[k].~T();
        if (data_) l_memptr_free(data_);
        if (valid_) l_memptr_free(valid_);
        data_ = nullptr;
        valid_ = nullptr;
        size_ = 0;
        capacity_ = 0;
    }

    // Replaces the contents with a copy of other. False, with this list unchanged,
    // when memory runs out.
    bool CopyFrom(const List& other)
    {
        if (this == &other) return true;
        List copy;
        if (other.size_ != 0) {
            if (!copy.Reserve(other.size_)) return false;
            for (uint32_t k = 0; k < other.size_; ++k) {
                if (!copy.ConstructAt(copy.data_ + k, other.data_[k])) return false;
                ++copy.size_;
            }
            if (other.valid_) {
                copy.valid_ = static_cast<uint8_t*>(l_memptr_alloc(nullptr, copy.capacity_));
                if (!copy.valid_) return false;
                for (uint32_t k = 0; k < other.size_; ++k) copy.valid_[k] = other.valid_[k];
            }
        }
        Clear();
        TakeFrom(copy);
        return true;
    }

private:
    T* data_ = nullptr;
    uint8_t* valid_ = nullptr;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;

    bool IsValid(uint32_t i) const { return i >= 1 && i <= size_ && (!valid_ || valid_[i - 1]); }

    void TakeFrom(List& other) noexcept
    {
        data_ = other.data_;
        valid_ = other.valid_;
        size_ = other.size_;
        capacity_ = other.capacity_;
        other.data_ = nullptr;
        other.valid_ = nullptr;
        other.size_ = 0;
        other.capacity_ = 0;
    }

    // Element constructors may signal failure by throwing; the list turns that
    // into a false result so that nothing escapes to the caller.
    template <class Source>
    static bool ConstructAt(T* slot, Source&& source)
    {
        try {
            new (slot) T(std::forward<Source>(source));
        } catch (...) {
            return false;
        }
        return true;
    }

    // For an empty list only: sets aside room for n elements.
    bool Reserve(uint32_t n)
    {
        void* block = l_memptr_alloc(nullptr, size_t(n) * sizeof(T));
        if (!block) return false;
        data_ = static_cast<T*>(block);
        capacity_ = n;
        return true;
    }

    // Elements move to a fresh block, as non-trivial ones cannot be realloc'ed. The new
    // element is built first, while value is still intact if it lives in this list.
    bool GrowAndAppend(const T& value)
    {
        const uint32_t newCapacity = capacity_ == 0 ? 8u
                                     : capacity_ > UINT32_MAX / 2 ? UINT32_MAX
                                                                  : capacity_ * 2;
        T* block = static_cast<T*>(l_memptr_alloc(nullptr, size_t(newCapacity) * sizeof(T)));
        if (!block) return false;
        uint8_t* validBlock = nullptr;
        if (valid_) {
            validBlock = static_cast<uint8_t*>(l_memptr_alloc(nullptr, newCapacity));
            if (!validBlock) {
                l_memptr_free(block);
                return false;
            }
        }
        if (!ConstructAt(block + size_, value)) {
            l_memptr_free(block);
            if (validBlock) l_memptr_free(validBlock);
            return false;
        }
        uint32_t moved = 0;
        for (; moved < size_; ++moved) {
            if (!ConstructAt(block + moved, std::move_if_noexcept(data_[moved]))) break;
        }
        if (moved < size_) {
            for (uint32_t k = 0; k < moved; ++k) block[k].~T();
            block[size_].~T();
            l_memptr_free(block);
            if (validBlock) l_memptr_free(validBlock);
            return false;
        }
        for (uint32_t k = 0; k < size_; ++k) data_[k].~T();
        if (data_) l_memptr_free(data_);
        if (valid_) {
            for (uint32_t k = 0; k < size_; ++k) validBlock[k] = valid_[k];
            validBlock[size_] = 1;
            l_memptr_free(valid_);
        }
        data_ = block;
        valid_ = validBlock;
        capacity_ = newCapacity;
        ++size_;
        return true;
    }
};

// A right-handed orthonormal frame: an origin and three unit axes, world by default.
class L_WORKPLANE {
public:
    L_WORKPLANE() = default;

    // z along normal, x along the part of xDirection at right angles to it, y = z x x.
    // 1, with the frame unchanged, when normal is zero or xDirection is parallel to it.
    short Set(const L_POINT& origin, const L_VECTOR& xDirection, const L_VECTOR& normal);

    const L_POINT& Origin() const { return origin_; }
    const L_VECTOR& XAxis() const { return xAxis_; }
    const L_VECTOR& YAxis() const { return yAxis_; }
    const L_VECTOR& ZAxis() const { return zAxis_; }

private:
    L_POINT origin_{0.0, 0.0, 0.0};
    L_VECTOR xAxis_{1.0, 0.0, 0.0};
    L_VECTOR yAxis_{0.0, 1.0, 0.0};
    L_VECTOR zAxis_{0.0, 0.0, 1.0};
};

// Distances and measures. The real_ forms are scaled so that they neither overflow
// nor underflow and are accurate at every magnitude; the plain forms use the direct
// formula, which is all that model-sized coordinates need.

// Euclidean distance; 0 for equal points.
double dist_PP(const L_POINT* a, const L_POINT* b);
double real_dist_PP(const L_POINT* a, const L_POINT* b);
// Float distance: differences and sum of squares in float, root in double, narrowed.
float dist_PP3f(const L_POINT3f* a, const L_POINT3f* b);
// Signed distance, positive on the side the normal points to; 0 for a zero normal.
double dist_PPl(const L_POINT* p, const L_PLANE* plane);
// Distance to the closest point of the segment; a zero-length segment acts as a point.
double real_dist_PS(const L_POINT& p, const L_SEGM& segment);
// Distance from p to the line as seen looking along `view`: the parts of p's offset
// and of the line's direction that run along view are dropped first. A zero view
// gives the plain 3-D distance; a view along the line gives the distance to the
// point the line shrinks to. A line with a zero direction acts as its point.
double real_dist_PL(const L_POINT& p, const L_LINE& line, const L_VECTOR& view);
// 0 inside or on the box, else the distance to it; DBL_MAX for an inverted (empty) box.
double min_dist_point_bbox(const L_POINT& p, const L_BOUNDS& box);
// Vector length.
double modulus(const L_VECTOR* v);
double real_modulus(const L_VECTOR* v);
// Dot product.
double adotb(const L_VECTOR* a, const L_VECTOR* b);

// Angle between a and b in radians. Without an axis (null or zero) it is in [0, pi].
// With an axis it is in [0, 2 pi): the same angle, replaced by 2 pi minus it when
// turning from a to b goes clockwise about the axis ((a x b) . axis < 0). 0 when a
// or b is zero. real_ uses atan2 (accurate near 0 and pi); the plain form uses acos
// of the normalised dot product, which loses digits within about 1e-8 of 0 and pi.
double vector_angle(const L_VECTOR* a, const L_VECTOR* b, const L_VECTOR* axis = nullptr);
double vector_angle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis = nullptr);
double real_vector_angle(const L_VECTOR* a, const L_VECTOR* b, const L_VECTOR* axis = nullptr);
double real_vector_angle(const L_VECTOR& a, const L_VECTOR& b, const L_VECTOR* axis = nullptr);

// 1 when the unit vectors differ by at most tolerance (their distance), -1 when a
// and -b do, 0 otherwise or when either vector cannot be normalised.
short vector_orientation(const L_VECTOR& a, const L_VECTOR& b, double tolerance);
// As vector_orientation with tolerance an angle in radians: 1 when the angle is at
// most tolerance, -1 when it is at least pi - tolerance.
short new_vector_orientation(const L_VECTOR& a, const L_VECTOR& b, double tolerance);

// 1 when each coordinate differs by at most zefatoll.length, else 0.
short coincident_points(const L_POINT& a, const L_POINT& b);
// 1 when each coordinate differs by at most tolerance (0: exact equality), else 0.
short coincident_points(const L_POINT* a, const L_POINT* b, double tolerance);

// Three points are colinear when the one left over lies within tolerance of the line
// through the two farthest apart; that line goes to *line (either output may be
// null). 0 on success; 1, with *colinear 0 and *line unchanged, when all three
// coincide within zefatoll.length, as they then fix no line.
short colinear_points(const L_POINT& a, const L_POINT& b, const L_POINT& c, double tolerance,
                      L_LINE* line, short* colinear);
// The least-squares plane of n points (see least_squares_plane) goes to *plane, and
// *coplanar is 1 when every point lies within tolerance of it. 0 on success; 1, with
// *coplanar 0 and *plane unchanged, for null points or plane, fewer than 3 points, or
// points that fix no plane (all on one line within zefatoll.length). *coplanar may be
// null.
short coplanar_points(uint32_t n, const L_POINT* points, double tolerance, L_PLANE* plane,
                      short* coplanar);
// 0 when p lies within tolerance of the arc: of its circle where p is inside the
// sweep (seen along the axis), else of the nearer end. 1 otherwise, and for an arc
// with a zero axis, a negative radius, or a start at its centre.
short point_on_arc(const L_POINT& p, const L_ARC& arc, double tolerance);

// *overlap = 1 when the closed boxes share a point (touching counts), else 0; an
// inverted box overlaps nothing. A null result pointer is ignored.
void check_bb_overlapping(const L_BOUNDS& a, const L_BOUNDS& b, short* overlap);
// 0 when every coordinate is finite and, with checkRange, within +-zefatoll.worldSize;
// 1 otherwise (also for null). The point is not changed.
short validate_P(L_POINT* p, bool checkRange);
// value rounded to `decimals` places (negative: to tens, hundreds...), halves away
// from zero, on value * 10^decimals as computed in double. Values too large to have
// such places and non-finite values come back unchanged.
double rounds(double value, short decimals);

// Working linear tolerance: tolerance, raised to at least zefatoll.length (NaN too).
double toll_testp(double tolerance);
// Working angular tolerance (radians): tolerance, raised to at least zefatoll.angle.
double toll_testa(double tolerance);
// Parametric tolerance matching linear tolerance on a curve of the given length:
// toll_testp(tolerance) / length, within [zefatoll.parameter, 1]; 1 when length is
// at most zefatoll.length, since then every parameter names the same point.
double toll_testp_param(double tolerance, double length);

// Constructions. Outputs may alias inputs unless stated otherwise.

// v = b - a.
void vector_PP(const L_POINT* a, const L_POINT* b, L_VECTOR* v);
// v = unit(b - a); 1 with v zero when the points are closer than zefatoll.zero.
short nvector_PP(const L_POINT* a, const L_POINT* b, L_VECTOR* v);
// To unit length; 1 with v unchanged when its length is at most zefatoll.zero.
short normalise(L_VECTOR* v);
// out = unit(a x b); 1 with out zero when a and b are parallel or either is zero.
short naXb(const L_VECTOR* a, const L_VECTOR* b, L_VECTOR* out);
// Two unit axes with (first, second, unit(n)) right-handed, a function of n alone:
// first is the world axis after n's largest component (x -> y -> z -> x) made
// perpendicular to n, so n = z gives (x, y). A zero n gives (x, y).
void nvector_arbitraryaxis(const L_VECTOR* n, L_VECTOR* first, L_VECTOR* second);
// Midpoint.
void mean_point(const L_POINT& a, const L_POINT& b, L_POINT* mid);
// Plane through p1 with unit normal (p2 - p1) x (p3 - p1), so p1, p2, p3 turn
// counter-clockwise seen from the normal. 1 with a zero normal when the points are
// colinear or coincident.
short plane_PPP(const L_POINT* p1, const L_POINT* p2, const L_POINT* p3, L_PLANE* plane);
// out = p + distance * unit(direction); out = p for a zero direction.
void project_point_on_vector(const L_POINT* p, const L_VECTOR* direction, double distance,
                             L_POINT* out);
// Foot of the perpendicular from p; out = p for a zero normal.
void project_point_onto_plane(const L_POINT* p, const L_PLANE* plane, L_POINT* out);
// Closest point of the segment to p and its parameter, clamped to [0, 1]. True when
// the perpendicular foot lies on the segment; false when it was clamped to an end,
// and for a zero-length segment (then the start, parameter 0). Either output may be
// null.
bool project_point_onto_segment(const L_POINT& p, const L_SEGM& segment, L_POINT* out,
                                double* parameter);
// Parameter of p's foot on the segment's line: 0 at start, 1 at end, unclamped;
// 0 for a zero-length segment.
void segment_parameter(const L_SEGM& segment, const L_POINT& p, double* parameter);

// Where the segment meets the plane. An end within zefatoll.length of the plane is
// the answer itself (the start first), so a segment that stops on a plane finds it
// exactly. 1 with *point written for one meeting point; 0 when the segment stays on
// one side (a parallel segment off the plane included) or the plane's normal is
// zero; 2 when both ends lie on the plane, as there is no single point. *point is
// written only for 1.
short intersect_SPl(const L_SEGM& segment, const L_PLANE& plane, L_POINT* point);
// Best-fitting plane of the valid points, by total least squares: through their
// centroid, normal along the direction of least spread (unit). The normal points to
// the side from which the points, taken in order, turn counter-clockwise; when they
// don't turn, its largest component is positive. 0 on success; 1 with *plane
// unchanged for fewer than 3 points or points on one line within zefatoll.length
// (their spread across the line), as no single plane is best then.
short least_squares_plane(List<L_POINT>& points, L_PLANE* plane);
short least_squares_plane(uint32_t n, const L_POINT* points, L_PLANE* plane);
// Closest point of the circle to p: p's foot on the circle's plane pushed out to the
// radius. 0 on success; 1 with *out unchanged for a zero axis, a negative radius, or
// a p whose foot is the centre (every point of the circle is as near).
short project_point_onto_circle(const L_POINT* p, const L_CIRCLE* circle, L_POINT* out);
// The arc's circle: centre, radius and axis.
void convert_A_C(const L_ARC* arc, L_CIRCLE* circle);
// The segment's line, through start with direction unit(end - start). 0 on success;
// 1 with *line unchanged when the ends are closer than zefatoll.zero.
short convert_S_L(const L_SEGM* segment, L_LINE* line);
// Where the line passes through the box grown by tolerance on every side (the
// tolerance as given; a negative one shrinks the box). 2 with points[0] the entry
// and points[1] the exit, in the line's direction; 1 with points[0] alone when they
// coincide within zefatoll.length (the line grazes an edge or corner); 0 when the
// line misses, the grown box is empty, or the direction is zero. points must hold
// two points; only those reported are written.
short intersect_LB(const L_LINE* line, const L_BOUNDS* box, L_POINT* points, double tolerance);
// Where the line meets the plane. 1 with *point written for one meeting point; 0
// when the line runs parallel to the plane (within zefatoll.angle) off it, or the
// line's direction or the plane's normal is zero; 2 when it lies in the plane
// (within zefatoll.length), as there is no single point. *point is written only for
// 1.
short intersect_LPl(const L_LINE* line, const L_PLANE* plane, L_POINT* point);
// Replaces *points with the n + 1 points that cut the segment into n equal parts,
// start and end included (a regular grid of n cells has n + 1 walls). Each point is
// placed from its own parameter k / n, so no error builds up along the segment, and
// the last is the end exactly. 0 on success; 1 with the list empty for n <= 0, and
// when memory runs out; 1 for a null list.
short convert_to_points(const L_SEGM& segment, int n, List<L_POINT>* points);

// Matrices. An L_MATRIX acts on row vectors: p' = p M, with the translation in
// m[12..14]. Every output may be the input.

// Determinant of the full 4 x 4 matrix; negative for a mirroring transform.
double mat_determinant(const L_MATRIX* m);
// p M with the translation.
void mat_transform_point(const L_POINT* p, const L_MATRIX* m, L_POINT* out);
// As mat_transform_point, computed in double and narrowed to float.
void mat_transform_pointf(const L_POINT3f* p, const L_MATRIX* m, L_POINT3f* out);
// v M without the translation; scale and shear apply.
void mat_transform_vector(const L_VECTOR* v, const L_MATRIX* m, L_VECTOR* out);
// v M without the translation, rescaled to v's length: only the turn is applied.
void mat_rotate_vector(const L_VECTOR* v, const L_MATRIX* m, L_VECTOR* out);
// toWorkPlane takes world coordinates to work-plane coordinates; toWorld is its
// inverse. Either output may be null.
void mat_WorkPlane_World(const L_WORKPLANE* plane, L_MATRIX* toWorkPlane, L_MATRIX* toWorld);

// Builders. A product applies a first: p (a b) = (p a) b.
void mat_identity(L_MATRIX* m);
void mat_translation(const L_VECTOR* offset, L_MATRIX* m);
// Rotation by angle radians, counter-clockwise looking down the axis towards the
// origin (right-hand rule). 1 with the identity for a zero axis.
short mat_rotation(const L_VECTOR* axis, double angle, L_MATRIX* m);
void mat_product(const L_MATRIX* a, const L_MATRIX* b, L_MATRIX* out);
