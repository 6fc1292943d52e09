// Polylines, elements, and the two curve operations built on them.
//
// Reduction fits each run of points with the simplest element and accepts it only
// if every point of the run stays within the tolerance of it: a line through
// the run's ends; an arc through both ends whose centre, on the ends' perpendicular
// bisector in the run's least-squares plane, is placed by linear least squares on
// the power of each point (|p - c|^2 - r^2 is linear in the centre's offset along
// the bisector); a full circle by Kasa's algebraic fit in the plane. Runs grow by
// doubling and then bisection, as in galloping search, so that a long polyline
// costs n log n fits' worth of points rather than n^2.
//
// Chaining matches element ends through a grid of cells at least one tolerance wide,
// kept as one sorted array of (cell, end) keys, so every end is found by a binary
// search among at most nine runs of neighbouring cells.
#include "GeoLibElements.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <new>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

L_VECTOR Difference(const L_POINT& a, const L_POINT& b) { return {b.x - a.x, b.y - a.y, b.z - a.z}; }

L_VECTOR Cross(const L_VECTOR& a, const L_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

L_POINT Along(const L_POINT& p, const L_VECTOR& d, double t) { return {p.x + t * d.x, p.y + t * d.y, p.z + t * d.z}; }

L_VECTOR Negated(const L_VECTOR& v) { return {-v.x, -v.y, -v.z}; }

}  // namespace

// ---------------------------------------------------------------------------------
// Polyline storage and measures

Polyline::Polyline(const Polyline& other)
{
    if (other.count_ != 0 && Reserve(other.count_)) {
        std::memcpy(points_, other.points_, sizeof(L_POINT) * other.count_);
        count_ = other.count_;
    }
}

Polyline::Polyline(Polyline&& other) noexcept
    : points_(other.points_), count_(other.count_), capacity_(other.capacity_)
{
    other.points_ = nullptr;
    other.count_ = other.capacity_ = 0;
}

Polyline& Polyline::operator=(const Polyline& other)
{
    if (this != &other) *this = Polyline(other);
    return *this;
}

Polyline& Polyline::operator=(Polyline&& other) noexcept
{
    if (this != &other) {
        Release();
        points_ = other.points_;
        count_ = other.count_;
        capacity_ = other.capacity_;
        other.points_ = nullptr;
        other.count_ = other.capacity_ = 0;
    }
    return *this;
}

Polyline::~Polyline() { Release(); }

bool Polyline::Reserve(uint32_t n)
{
    if (n <= capacity_) return true;
    void* block = l_memptr_alloc(points_, sizeof(L_POINT) * size_t(n));
    if (!block) return false;
    points_ = static_cast<L_POINT*>(block);
    capacity_ = n;
    return true;
}

void Polyline::Release()
{
    if (points_) l_memptr_free(points_);
    points_ = nullptr;
    count_ = capacity_ = 0;
}

short Polyline::Allocate(uint32_t n)
{
    count_ = 0;
    return Reserve(n) ? 0 : 1;
}

short Polyline::Append(const L_POINT* p)
{
    if (!p || count_ == UINT32_MAX) return 1;
    if (count_ == capacity_) {
        const L_POINT copy = *p;  // p may point into the block that moves
        const uint32_t grown = capacity_ < 8 ? 8 : capacity_ > UINT32_MAX / 2 ? UINT32_MAX : capacity_ * 2;
        if (!Reserve(grown)) return 1;
        points_[count_++] = copy;
        return 0;
    }
    points_[count_++] = *p;
    return 0;
}

short Polyline::Create(const List<L_POINT>* points)
{
    if (!points) return 1;
    Polyline built;
    if (built.Allocate(points->Size()) != 0) return 1;
    for (uint32_t i = 1; i <= points->Size(); ++i)
        if (const L_POINT* p = points->Get(i)) built.Append(p);
    *this = std::move(built);
    return 0;
}

short Polyline::Get_Point(uint32_t i, L_POINT* p) const
{
    if (i == 0 || i > count_ || !p) return 1;
    *p = points_[i - 1];
    return 0;
}

double Polyline::Length() const
{
    double length = 0.0;
    for (uint32_t k = 1; k < count_; ++k) length += dist_PP(&points_[k - 1], &points_[k]);
    return length;
}

void Polyline::Is_Closed(short* closed) const
{
    if (closed) *closed = count_ >= 3 && coincident_points(points_[0], points_[count_ - 1]);
}

void Polyline::Reverse() { std::reverse(points_, points_ + count_); }

void Polyline::Get_Start_End_Points(L_POINT* start, L_POINT* end) const
{
    if (count_ == 0) return;
    if (start) *start = points_[0];
    if (end) *end = points_[count_ - 1];
}

short Polyline::Get_Parametric_Point(double t, L_POINT* p) const
{
    if (count_ == 0 || !p || !(t >= 0.0 && t <= 1.0)) return 1;
    if (t == 1.0) {
        *p = points_[count_ - 1];
        return 0;
    }
    const double target = t * Length();
    double walked = 0.0;
    for (uint32_t k = 1; k < count_; ++k) {
        const double piece = dist_PP(&points_[k - 1], &points_[k]);
        if (piece > 0.0 && walked + piece >= target) {
            *p = Along(points_[k - 1], Difference(points_[k - 1], points_[k]), (target - walked) / piece);
            return 0;
        }
        walked += piece;
    }
    *p = target > 0.0 ? points_[count_ - 1] : points_[0];
    return 0;
}

// ---------------------------------------------------------------------------------
// Fitting one element to a run of points. Runs are inclusive index ranges of a
// point array; arcs and circles are held as L_ARC while fitting (a circle as an arc
// whose start and end coincide, which point_on_arc reads as the full circle).

namespace {

// Signed angle that the run turns through about the axis, seen from the centre.
double TurnAbout(const L_POINT* points, uint32_t first, uint32_t last, const L_POINT& centre,
                 const L_VECTOR& axis)
{
    double turn = 0.0;
    for (uint32_t k = first; k < last; ++k) {
        const L_VECTOR a = Difference(centre, points[k]);
        const L_VECTOR b = Difference(centre, points[k + 1]);
        turn += std::atan2(Dot(Cross(a, b), axis), Dot(a, b));
    }
    return turn;
}

// A chord spanning more of an arc than this is a corner of the polyline rather than
// a sample of a curve: the same limit at which a turn counts as a corner elsewhere.
constexpr double kWidestChord = kPi / 4.0;

// Every point of the run within tolerance of the arc, and no chord wider than
// kWidestChord seen from the centre. The chords themselves may sag inside the arc
// by more than the tolerance: the points are samples of the curve, the chords are
// not.
bool ArcFollows(const L_POINT* points, uint32_t first, uint32_t last, const L_ARC& arc, double tolerance)
{
    for (uint32_t k = first; k <= last; ++k)
        if (point_on_arc(points[k], arc, tolerance) != 0) return false;
    for (uint32_t k = first; k < last; ++k) {
        const double span = real_vector_angle(Difference(arc.centre, points[k]), Difference(arc.centre, points[k + 1]));
        if (span > kWidestChord) return false;
    }
    return true;
}

// The line from the run's first point to its last; two points are always their own
// line, whatever the tolerance.
bool FitsLine(const L_POINT* points, uint32_t first, uint32_t last, double tolerance, L_ELEMENT* element)
{
    const L_SEGM segment = {points[first], points[last]};
    if (coincident_points(segment.start, segment.end)) return false;
    for (uint32_t k = first + 1; k < last; ++k)
        if (!(real_dist_PS(points[k], segment) <= tolerance)) return false;
    element->SetSegment(segment);
    return true;
}

// The arc through the run's ends that best fits its points, turning the way the
// run turns, within tolerance and covering the run once.
bool FitsArc(const L_POINT* points, uint32_t first, uint32_t last, double tolerance, L_ELEMENT* element)
{
    const L_POINT& start = points[first];
    const L_POINT& end = points[last];
    L_PLANE plane;
    if (last < first + 2 || coincident_points(start, end)) return false;
    if (least_squares_plane(last - first + 1, points + first, &plane) != 0) return false;
    const L_VECTOR chord = Difference(start, end);
    L_VECTOR bisector, axis;
    if (naXb(&plane.normal, &chord, &bisector) != 0 || naXb(&chord, &bisector, &axis) != 0) return false;
    L_POINT middle;
    mean_point(start, end, &middle);
    const L_VECTOR half = Difference(middle, start);
    double powerSum = 0.0, leverSum = 0.0;
    for (uint32_t k = first + 1; k < last; ++k) {
        const L_VECTOR offset = Difference(middle, points[k]);
        const double power = Dot(offset, offset) - Dot(half, half);
        const double lever = 2.0 * Dot(bisector, offset);
        powerSum += power * lever;
        leverSum += lever * lever;
    }
    if (!(leverSum > 0.0)) return false;
    const L_POINT centre = Along(middle, bisector, powerSum / leverSum);
    const double radius = real_dist_PP(&centre, &start);
    if (!std::isfinite(radius)) return false;
    double turn = TurnAbout(points, first, last, centre, axis);
    if (turn < 0.0) {
        axis = Negated(axis);
        turn = -turn;
    }
    const double sweep = real_vector_angle(Difference(centre, start), Difference(centre, end), &axis);
    if (std::fabs(turn - sweep) > kPi) return false;  // the run goes round more than once
    const L_ARC arc = {centre, radius, axis, start, end};
    if (!ArcFollows(points, first, last, arc, tolerance)) return false;
    element->SetArc(arc);
    return true;
}

// The circle of a closed run (its last point repeats its first), going round once,
// as an arc whose start and end are the first point's place on the circle.
bool FitsCircle(const L_POINT* points, uint32_t first, uint32_t last, double tolerance, L_ARC* circle)
{
    const uint32_t n = last - first;  // the repeated point counts once
    L_PLANE plane;
    if (n < 3 || least_squares_plane(n, points + first, &plane) != 0) return false;
    L_VECTOR e1, e2;
    nvector_arbitraryaxis(&plane.normal, &e1, &e2);
    // Kasa: u^2 + v^2 + D u + E v + F = 0 by least squares, in coordinates centred on
    // the centroid, where the sums of u and of v vanish.
    double suu = 0, suv = 0, svv = 0, suw = 0, svw = 0, sw = 0;
    for (uint32_t k = first; k < last; ++k) {
        const L_VECTOR d = Difference(plane.point, points[k]);
        const double u = Dot(d, e1), v = Dot(d, e2), w = u * u + v * v;
        suu += u * u;
        suv += u * v;
        svv += v * v;
        suw += u * w;
        svw += v * w;
        sw += w;
    }
    const double det = suu * svv - suv * suv;
    if (!(std::fabs(det) > 0.0)) return false;
    const double cu = 0.5 * (suw * svv - svw * suv) / det;
    const double cv = 0.5 * (svw * suu - suw * suv) / det;
    const double radius = std::sqrt(cu * cu + cv * cv + sw / n);
    const L_POINT centre = Along(Along(plane.point, e1, cu), e2, cv);
    L_VECTOR axis = plane.normal;
    double turn = TurnAbout(points, first, last, centre, axis);
    if (turn < 0.0) {
        axis = Negated(axis);
        turn = -turn;
    }
    if (std::fabs(turn - 2.0 * kPi) > kPi || !std::isfinite(radius)) return false;
    const L_CIRCLE round = {centre, radius, axis};
    L_POINT seam;
    if (project_point_onto_circle(&points[first], &round, &seam) != 0) return false;
    const L_ARC full = {centre, radius, axis, seam, seam};
    if (!ArcFollows(points, first, last, full, tolerance)) return false;
    *circle = full;
    return true;
}

using RunFit = bool (*)(const L_POINT*, uint32_t, uint32_t, double, L_ELEMENT*);

// The furthest last point in [shortest, limit] of a run from `first` that `fits`
// accepts, found by doubling and then bisection, with its element. 0 when even the
// shortest run fails (a run's last point is never 0).
uint32_t FarthestFit(const L_POINT* points, uint32_t first, uint32_t shortest, uint32_t limit, double tolerance,
                     RunFit fits, L_ELEMENT* element)
{
    if (shortest > limit || !fits(points, first, shortest, tolerance, element)) return 0;
    uint32_t good = shortest, bad = limit + 1, step = 1;
    L_ELEMENT trial;
    while (good < limit) {
        const uint32_t probe = limit - good > step ? good + step : limit;
        if (!fits(points, first, probe, tolerance, &trial)) {
            bad = probe;
            break;
        }
        good = probe;
        *element = trial;
        step *= 2;
    }
    while (bad - good > 1 && bad <= limit) {
        const uint32_t probe = good + (bad - good) / 2;
        if (fits(points, first, probe, tolerance, &trial)) {
            good = probe;
            *element = trial;
        } else {
            bad = probe;
        }
    }
    return good;
}

struct Run {
    uint32_t first;
    uint32_t last;
    L_ELEMENT element;
};

// Covers points[from..to] with runs, each the longest one element follows from
// where the last one ended. False when memory runs out.
bool AppendGreedyRuns(const L_POINT* points, uint32_t from, uint32_t to, double tolerance, List<Run>* runs)
{
    for (uint32_t first = from; first < to;) {
        Run run{first, 0, L_ELEMENT()};
        run.last = FarthestFit(points, first, first + 1, to, tolerance, FitsLine, &run.element);
        // An arc counts only if it reaches past the line; over fewer points its
        // curvature may be lost in the tolerance, so the search starts there.
        L_ELEMENT arc;
        const uint32_t arcLast = FarthestFit(points, first, run.last + 1, to, tolerance, FitsArc, &arc);
        if (arcLast > run.last) {
            run.last = arcLast;
            run.element = arc;
        }
        if (!runs->Append(run)) return false;
        first = run.last;
    }
    return true;
}

// One element for points[first..last], a line before an arc.
bool FitsOne(const L_POINT* points, uint32_t first, uint32_t last, double tolerance, L_ELEMENT* element)
{
    return FitsLine(points, first, last, tolerance, element) || FitsArc(points, first, last, tolerance, element);
}

// The point about halfway along a closed run of n points, never one of its ends.
uint32_t HalfwayPoint(const L_POINT* points, uint32_t n)
{
    double length = 0.0;
    for (uint32_t k = 1; k < n; ++k) length += dist_PP(&points[k - 1], &points[k]);
    double walked = 0.0;
    uint32_t k = 1;
    for (; k + 2 < n; ++k) {
        walked += dist_PP(&points[k - 1], &points[k]);
        if (walked >= 0.5 * length) break;
    }
    return k;
}

// The points with repeats of the point before dropped.
bool WithoutRepeats(const Polyline& polyline, Polyline* kept)
{
    if (kept->Allocate(polyline.N_Points()) != 0) return false;
    const L_POINT* p = polyline.Points();
    for (uint32_t k = 0; k < polyline.N_Points(); ++k)
        if (k == 0 || !coincident_points(p[k], kept->Points()[kept->N_Points() - 1])) kept->Append(&p[k]);
    return true;
}

// A closed loop's points and then all but the first of them again, so that a run
// across the seam is one contiguous range.
bool LoopTwice(const Polyline& loop, Polyline* twice)
{
    const uint32_t n = loop.N_Points();
    if (twice->Allocate(2 * n - 1) != 0) return false;
    for (uint32_t k = 0; k < n; ++k) twice->Append(&loop.Points()[k]);
    for (uint32_t k = 1; k < n; ++k) twice->Append(&loop.Points()[k]);
    return true;
}

// Joins two neighbouring runs into the first when one element follows both; the
// second is then marked by an empty element.
void JoinRuns(const L_POINT* points, uint32_t last, double tolerance, Run* head, Run* tail)
{
    L_ELEMENT joined;
    if (!FitsOne(points, head->first, last, tolerance, &joined)) return;
    head->last = last;
    head->element = joined;
    tail->element.TypeSet(L_ELEMENT_NONE);
}

// Runs of a closed loop of n points (`twice` from LoopTwice): the two halves, then
// rejoined across the cut and across the seam where one element follows both
// neighbours. Appends the elements in loop order; a run across the seam comes first.
bool AppendLoopElements(const Polyline& twice, uint32_t n, double tolerance, List<L_ELEMENT>* elements)
{
    const L_POINT* p = twice.Points();
    const uint32_t cut = HalfwayPoint(p, n);
    List<Run> runs;
    if (!AppendGreedyRuns(p, 0, cut, tolerance, &runs)) return false;
    const uint32_t afterCut = runs.Size() + 1;
    if (!AppendGreedyRuns(p, cut, n - 1, tolerance, &runs)) return false;
    JoinRuns(p, runs.Get(afterCut)->last, tolerance, runs.Get(afterCut - 1), runs.Get(afterCut));
    uint32_t lastRun = runs.Size();
    while (runs.Get(lastRun)->element.TypeGet() == L_ELEMENT_NONE) --lastRun;
    // The tail run becomes the head's element, which then starts before point 0.
    Run* tail = runs.Get(lastRun);
    if (lastRun > 1) JoinRuns(p, n - 1 + runs.Get(1)->last, tolerance, tail, runs.Get(1));
    if (tail->element.TypeGet() != L_ELEMENT_NONE && runs.Get(1)->element.TypeGet() == L_ELEMENT_NONE) {
        if (!elements->Append(tail->element)) return false;
        tail->element.TypeSet(L_ELEMENT_NONE);
    }
    for (uint32_t i = 1; i <= runs.Size(); ++i) {
        const L_ELEMENT& element = runs.Get(i)->element;
        if (element.TypeGet() != L_ELEMENT_NONE && !elements->Append(element)) return false;
    }
    return true;
}

// Fills the emptied *elements; the status of SuperSimplify.
short ReduceToElements(const Polyline& polyline, double tolerance, List<L_ELEMENT>* elements)
{
    Polyline kept;
    if (!WithoutRepeats(polyline, &kept)) return L_SIMPLIFY_NO_MEMORY;
    const uint32_t n = kept.N_Points();
    if (n < 2) return L_SIMPLIFY_DEGENERATE;
    short closed = 0;
    kept.Is_Closed(&closed);
    if (closed) {
        Polyline twice;
        if (!LoopTwice(kept, &twice) || !AppendLoopElements(twice, n, tolerance, elements))
            return L_SIMPLIFY_NO_MEMORY;
        return L_SIMPLIFY_DONE;
    }
    List<Run> runs;
    if (!AppendGreedyRuns(kept.Points(), 0, n - 1, tolerance, &runs)) return L_SIMPLIFY_NO_MEMORY;
    for (uint32_t i = 1; i <= runs.Size(); ++i)
        if (!elements->Append(runs.Get(i)->element)) return L_SIMPLIFY_NO_MEMORY;
    return L_SIMPLIFY_DONE;
}

}  // namespace

void Polyline::Simplify(double tolerance, L_ELEMENT* element, short* status) const
{
    short result = L_SIMPLIFY_DEGENERATE;
    short closed = 0;
    Is_Closed(&closed);
    L_ELEMENT fitted;
    L_ARC circle;
    if (!element || count_ < 2) {
        result = L_SIMPLIFY_DEGENERATE;
    } else if (closed) {
        result = FitsCircle(points_, 0, count_ - 1, tolerance, &circle) ? L_SIMPLIFY_DONE : L_SIMPLIFY_NO_FIT;
        if (result == L_SIMPLIFY_DONE) fitted.SetCircle({circle.centre, circle.radius, circle.axis});
    } else if (!coincident_points(points_[0], points_[count_ - 1])) {
        result = FitsOne(points_, 0, count_ - 1, tolerance, &fitted) ? L_SIMPLIFY_DONE : L_SIMPLIFY_NO_FIT;
    }
    if (result == L_SIMPLIFY_DONE) *element = fitted;
    if (status) *status = result;
}

void Polyline::SuperSimplify(double tolerance, List<L_ELEMENT>* elements, short* status) const
{
    short result = L_SIMPLIFY_DEGENERATE;
    if (elements) {
        elements->Clear();
        result = ReduceToElements(*this, tolerance, elements);
        if (result != L_SIMPLIFY_DONE) elements->Clear();
    }
    if (status) *status = result;
}

// ---------------------------------------------------------------------------------
// Elements

void L_ELEMENT::TypeSet(short type)
{
    if (type == type_) return;
    type_ = type;
    payload_ = Payload{};
    polyline_ = Polyline();
}

void L_ELEMENT::SetSegment(const L_SEGM& segment)
{
    TypeSet(L_ELEMENT_LINE);
    payload_.segment = segment;
}

void L_ELEMENT::SetCircle(const L_CIRCLE& circle)
{
    TypeSet(L_ELEMENT_CIRCLE);
    payload_.circle = circle;
}

void L_ELEMENT::SetArc(const L_ARC& arc)
{
    TypeSet(L_ELEMENT_ARC);
    payload_.arc = arc;
}

short L_ELEMENT::SetPolyline(const List<L_POINT>& points)
{
    Polyline built;
    if (built.Create(&points) != 0) return 1;
    TypeSet(L_ELEMENT_POLYLINE);
    polyline_ = std::move(built);
    return 0;
}

const L_SEGM& L_ELEMENT::Segment() const
{
    static const L_SEGM none{};
    return type_ == L_ELEMENT_LINE ? payload_.segment : none;
}

const L_CIRCLE& L_ELEMENT::Circle() const
{
    static const L_CIRCLE none{};
    return type_ == L_ELEMENT_CIRCLE ? payload_.circle : none;
}

const L_ARC& L_ELEMENT::Arc() const
{
    static const L_ARC none{};
    return type_ == L_ELEMENT_ARC ? payload_.arc : none;
}

short L_ELEMENT::get_start_end_point(L_POINT* start, L_POINT* end) const
{
    L_POINT first, last;
    switch (type_) {
    case L_ELEMENT_LINE:
        first = payload_.segment.start;
        last = payload_.segment.end;
        break;
    case L_ELEMENT_ARC:
        first = payload_.arc.start;
        last = payload_.arc.end;
        break;
    case L_ELEMENT_CIRCLE: {
        L_VECTOR along, side;
        nvector_arbitraryaxis(&payload_.circle.axis, &along, &side);
        first = last = Along(payload_.circle.centre, along, payload_.circle.radius);
        break;
    }
    case L_ELEMENT_POLYLINE:
        if (polyline_.N_Points() == 0) return 1;
        polyline_.Get_Start_End_Points(&first, &last);
        break;
    default:
        return 1;
    }
    if (start) *start = first;
    if (end) *end = last;
    return 0;
}

short L_ELEMENT::reverse()
{
    switch (type_) {
    case L_ELEMENT_LINE:
        std::swap(payload_.segment.start, payload_.segment.end);
        return 0;
    case L_ELEMENT_ARC:
        std::swap(payload_.arc.start, payload_.arc.end);
        payload_.arc.axis = Negated(payload_.arc.axis);
        return 0;
    case L_ELEMENT_CIRCLE:
        payload_.circle.axis = Negated(payload_.circle.axis);
        return 0;
    case L_ELEMENT_POLYLINE:
        polyline_.Reverse();
        return 0;
    default:
        return 1;
    }
}

// ---------------------------------------------------------------------------------
// Chaining

namespace {

constexpr uint32_t kNoEnd = 0xFFFFFFFFu;

// One chainable element: its index in the input list and its two ends.
struct Piece {
    uint32_t index;
    L_POINT ends[2];
};

struct Cell {
    int64_t at[3];
};

// An element end in the grid: its cell, and piece * 2 + (0 start, 1 end).
struct GridEnd {
    Cell cell;
    uint32_t end;
};

bool CellBefore(const GridEnd& a, const GridEnd& b)
{
    for (int k = 0; k < 3; ++k)
        if (a.cell.at[k] != b.cell.at[k]) return a.cell.at[k] < b.cell.at[k];
    return a.end < b.end;
}

class EndGrid {
public:
    // Cells are eight tolerances wide, so that the box of points meeting an end
    // mostly lies in one cell, and at least 1e-12 of the largest coordinate, so that
    // cell numbers fit in 64 bits whatever the tolerance.
    EndGrid(const std::vector<Piece>& pieces, double tolerance) : pieces_(pieces), tolerance_(tolerance)
    {
        double largest = 0.0;
        for (const Piece& piece : pieces)
            for (const L_POINT& p : piece.ends)
                largest = std::max({largest, std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)});
        cellSize_ = std::max(tolerance > 0.0 ? 8.0 * tolerance : 0.0, largest * 1e-12);
        if (!(cellSize_ > 0.0)) cellSize_ = 1.0;
        ends_.reserve(pieces.size() * 2);
        for (uint32_t i = 0; i < pieces.size(); ++i)
            for (uint32_t side = 0; side < 2; ++side) ends_.push_back({CellOf(pieces[i].ends[side], 0.0), 2 * i + side});
        std::sort(ends_.begin(), ends_.end(), CellBefore);
    }

    // The unused end that meets p: nearest, then lowest piece, then start before end.
    // kNoEnd when none does.
    uint32_t Meeting(const L_POINT& p, const std::vector<uint8_t>& used) const
    {
        const double reach = tolerance_ > 0.0 ? tolerance_ : 0.0;
        const Cell low = CellOf(p, -reach), high = CellOf(p, reach);
        uint32_t best = kNoEnd;
        double bestDistance = 0.0;
        for (int64_t x = low.at[0]; x <= high.at[0]; ++x) {
            for (int64_t y = low.at[1]; y <= high.at[1]; ++y) {
                // Cells differing in z alone are neighbours in the sorted order.
                const GridEnd first = {{{x, y, low.at[2]}}, 0};
                const GridEnd last = {{{x, y, high.at[2]}}, kNoEnd};
                auto it = std::lower_bound(ends_.begin(), ends_.end(), first, CellBefore);
                for (; it != ends_.end() && !CellBefore(last, *it); ++it) {
                    const uint32_t end = it->end;
                    if (used[end / 2]) continue;
                    const L_POINT& q = pieces_[end / 2].ends[end % 2];
                    if (!coincident_points(&p, &q, tolerance_)) continue;
                    const double distance = real_dist_PP(&p, &q);
                    if (best == kNoEnd || distance < bestDistance || (distance == bestDistance && end < best)) {
                        best = end;
                        bestDistance = distance;
                    }
                }
            }
        }
        return best;
    }

private:
    const std::vector<Piece>& pieces_;
    double tolerance_;
    double cellSize_ = 1.0;
    std::vector<GridEnd> ends_;

    // The cell of p moved by `shift` along every axis.
    Cell CellOf(const L_POINT& p, double shift) const
    {
        return {{int64_t(std::floor((p.x + shift) / cellSize_)), int64_t(std::floor((p.y + shift) / cellSize_)),
                 int64_t(std::floor((p.z + shift) / cellSize_))}};
    }
};

struct Link {
    uint32_t piece;
    bool reversed;
};

bool IsFinite(const L_POINT& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

// Elements that can chain: valid, with ends, finite, and not circles (which are
// closed sets of their own and go to *circles).
void CollectPieces(const List<L_ELEMENT>& elements, std::vector<Piece>* pieces, std::vector<uint32_t>* circles)
{
    for (uint32_t i = 1; i <= elements.Size(); ++i) {
        const L_ELEMENT* element = elements.Get(i);
        Piece piece{i, {}};
        if (!element || element->get_start_end_point(&piece.ends[0], &piece.ends[1]) != 0) continue;
        if (!IsFinite(piece.ends[0]) || !IsFinite(piece.ends[1])) continue;
        if (element->TypeGet() == L_ELEMENT_CIRCLE)
            circles->push_back(i);
        else
            pieces->push_back(piece);
    }
}

// The chain grown from `seed`: forward from its end until nothing meets it or it
// closes, then backward from its start.
std::deque<Link> GrowChain(uint32_t seed, const std::vector<Piece>& pieces, const EndGrid& grid, double tolerance,
                           const List<L_ELEMENT>& elements, std::vector<uint8_t>* used)
{
    std::deque<Link> chain{{seed, false}};
    (*used)[seed] = 1;
    const L_POINT head = pieces[seed].ends[0];
    L_POINT tail = pieces[seed].ends[1];
    const bool lineSeed = elements.Get(pieces[seed].index)->TypeGet() == L_ELEMENT_LINE;
    for (;;) {
        const bool mayClose = chain.size() > 1 || !lineSeed;
        if (mayClose && coincident_points(&tail, &head, tolerance)) return chain;
        const uint32_t end = grid.Meeting(tail, *used);
        if (end == kNoEnd) break;
        (*used)[end / 2] = 1;
        chain.push_back({end / 2, end % 2 == 1});
        tail = pieces[end / 2].ends[1 - end % 2];
    }
    for (L_POINT start = head;;) {
        const uint32_t end = grid.Meeting(start, *used);
        if (end == kNoEnd) break;
        (*used)[end / 2] = 1;
        chain.push_front({end / 2, end % 2 == 0});
        start = pieces[end / 2].ends[1 - end % 2];
    }
    return chain;
}

// Appends one set made of copies of the chain's elements, turned as the chain runs.
bool AppendSet(const std::deque<Link>& chain, const std::vector<Piece>& pieces, const List<L_ELEMENT>& elements,
               double tolerance, List<Connected_Set_Of_Elements>* sets)
{
    if (!sets->Append(Connected_Set_Of_Elements())) return false;
    Connected_Set_Of_Elements* set = sets->Get(sets->Size());
    for (const Link& link : chain) {
        L_ELEMENT element = *elements.Get(pieces[link.piece].index);
        if (link.reversed) element.reverse();
        if (!set->elements.Append(element)) return false;
    }
    L_POINT first, last;
    set->elements.Get(1)->get_start_end_point(&first, nullptr);
    set->elements.Get(set->elements.Size())->get_start_end_point(nullptr, &last);
    const bool singleLine = chain.size() == 1 && set->elements.Get(1)->TypeGet() == L_ELEMENT_LINE;
    set->closed = !singleLine && coincident_points(&first, &last, tolerance);
    return true;
}

bool AppendCircleSet(const L_ELEMENT& circle, List<Connected_Set_Of_Elements>* sets)
{
    if (!sets->Append(Connected_Set_Of_Elements())) return false;
    Connected_Set_Of_Elements* set = sets->Get(sets->Size());
    set->closed = 1;
    return set->elements.Append(circle);
}

bool ChainElements(const List<L_ELEMENT>& elements, double tolerance, List<Connected_Set_Of_Elements>* sets)
{
    std::vector<Piece> pieces;
    std::vector<uint32_t> circles;
    CollectPieces(elements, &pieces, &circles);
    const EndGrid grid(pieces, tolerance);
    std::vector<uint8_t> used(pieces.size(), 0);
    // Circles and chains come out in the input order of the element each starts from.
    size_t nextCircle = 0;
    for (uint32_t seed = 0; seed <= pieces.size(); ++seed) {
        const uint32_t seedIndex = seed < pieces.size() ? pieces[seed].index : UINT32_MAX;
        for (; nextCircle < circles.size() && circles[nextCircle] < seedIndex; ++nextCircle)
            if (!AppendCircleSet(*elements.Get(circles[nextCircle]), sets)) return false;
        if (seed == pieces.size() || used[seed]) continue;
        const std::deque<Link> chain = GrowChain(seed, pieces, grid, tolerance, elements, &used);
        if (!AppendSet(chain, pieces, elements, tolerance, sets)) return false;
    }
    return true;
}

}  // namespace

short create_connected_sets_of_elements(const List<L_ELEMENT>& elements, double tolerance,
                                        List<Connected_Set_Of_Elements>* sets)
{
    if (!sets) return 1;
    sets->Clear();
    bool done = false;
    try {
        done = ChainElements(elements, tolerance, sets);
    } catch (const std::bad_alloc&) {
        done = false;
    }
    if (!done) sets->Clear();
    return done ? 0 : 1;
}
