// Curves built from points: polylines, the single geometric elements (line, circle,
// arc, polyline) that callers exchange, their reduction from polylines, and the
// chaining of loose elements into connected sets.
//
// Indices follow List: the first point of a polyline is point 1. Short results
// follow GeoLib.h: 0 on success, non-zero on failure.
#pragma once

#include <cstdint>

#include "GeoLib.h"

class L_ELEMENT;

// Element types. The values are shared with every caller that stores or tests them.
constexpr short L_ELEMENT_NONE = 0;
constexpr short L_ELEMENT_POLYLINE = 1;
constexpr short L_ELEMENT_LINE = 2;    // payload L_SEGM
constexpr short L_ELEMENT_CIRCLE = 4;  // payload L_CIRCLE
constexpr short L_ELEMENT_ARC = 5;     // payload L_ARC

// Status of Polyline::Simplify and Polyline::SuperSimplify.
constexpr short L_SIMPLIFY_DONE = 0;
constexpr short L_SIMPLIFY_NO_FIT = 1;      // no single element follows the polyline
constexpr short L_SIMPLIFY_DEGENERATE = 2;  // fewer than two distinct points, or a null output
constexpr short L_SIMPLIFY_NO_MEMORY = 3;

// An ordered run of points, held in one l_memptr_alloc block. A copy that runs out
// of memory comes out empty, as List's does.
class Polyline {
public:
    Polyline() = default;
    Polyline(const Polyline& other);
    Polyline(Polyline&& other) noexcept;
    Polyline& operator=(const Polyline& other);
    Polyline& operator=(Polyline&& other) noexcept;
    ~Polyline();

    // Empties the polyline and sets aside room for n points. 1 when memory runs out.
    short Allocate(uint32_t n);
    // Adds a copy of *p at the end. 1 for a null point or when memory runs out, with
    // the polyline unchanged.
    short Append(const L_POINT* p);
    // Replaces the points with the valid entries of *points, in order. 1 for a null
    // list or when memory runs out, with the polyline unchanged.
    short Create(const List<L_POINT>* points);

    uint32_t N_Points() const { return count_; }
    // Point i, 1-based. 1 with *p unchanged unless 1 <= i <= N_Points().
    short Get_Point(uint32_t i, L_POINT* p) const;
    // Sum of the segment lengths; 0 for fewer than two points.
    double Length() const;
    // *closed = 1 when the polyline has at least 3 points and its first and last
    // coincide within zefatoll.length, else 0. A null pointer is ignored.
    void Is_Closed(short* closed) const;
    void Reverse();
    // First and last point; either pointer may be null. Both are left unchanged
    // for an empty polyline.
    void Get_Start_End_Points(L_POINT* start, L_POINT* end) const;
    // The point at fraction t of the length along the polyline, t in [0, 1]; t = 1
    // gives the last point exactly. 1 for t outside [0, 1] (NaN too) or an empty
    // polyline; a polyline of zero length gives its first point.
    short Get_Parametric_Point(double t, L_POINT* p) const;

    // Reduction to one element. The polyline reduces when every one of its points
    // lies within tolerance of the element and the element starts and ends where the
    // polyline does; for an arc or circle, also no chord may span more than 45
    // degrees of it (a sharper turn is a corner, not a sample of a curve). The
    // points are taken as samples of the curve: chords may sag inside an arc by more
    // than the tolerance. The element is:
    //  - a line (2 points, or points on a line) from the first point to the last;
    //  - else, when open, an arc from the first point to the last, counter-clockwise
    //    about its axis (so the axis follows the polyline's direction of turning),
    //    its centre equally far from both ends;
    //  - when closed (Is_Closed), a circle (type 4) whose axis follows the
    //    polyline's direction of turning, if it goes round once.
    // A line is preferred to an arc. *status: L_SIMPLIFY_DONE with *element
    // replaced; L_SIMPLIFY_NO_FIT when no element follows the polyline (a closed
    // square, for one); L_SIMPLIFY_DEGENERATE for fewer than two points, two
    // coinciding points or a null element. *element is changed only on success.
    void Simplify(double tolerance, L_ELEMENT* element, short* status) const;
    // Reduction to a chain of lines and arcs, each following its run of the points
    // as Simplify's element does, in the polyline's order and direction, each
    // element ending where the next starts. Points that repeat their predecessor (zefatoll.length) are
    // skipped. From each point the longest run that one element follows is taken
    // (runs grow by doubling, then by bisection, so the cost is n log n); an arc is
    // taken over a line only when it reaches further. A closed polyline is first cut
    // in two at the point halfway along it, then neighbouring elements across the cut
    // and across the seam are joined where one element follows both, so a square
    // gives four lines wherever it starts, and a circle gives two arcs (halves).
    // *elements is replaced. *status: L_SIMPLIFY_DONE; L_SIMPLIFY_DEGENERATE, with
    // the list emptied, for fewer than two distinct points or a null list;
    // L_SIMPLIFY_NO_MEMORY with the list emptied.
    void SuperSimplify(double tolerance, List<L_ELEMENT>* elements, short* status) const;

    const L_POINT* Points() const { return points_; }

private:
    L_POINT* points_ = nullptr;
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;

    bool Reserve(uint32_t n);
    void Release();
};

// One geometric element: a 16-bit type, then the payload of that type. A
// default-constructed element has type L_ELEMENT_NONE. The readers of another type's
// payload get a zeroed record.
class L_ELEMENT {
public:
    L_ELEMENT() = default;
    L_ELEMENT(const L_ELEMENT& other) = default;
    L_ELEMENT(L_ELEMENT&& other) noexcept = default;
    L_ELEMENT& operator=(const L_ELEMENT& other) = default;
    L_ELEMENT& operator=(L_ELEMENT&& other) noexcept = default;
    ~L_ELEMENT() = default;

    short TypeGet() const { return type_; }
    // Changing the type zeroes the payload and drops a held polyline.
    void TypeSet(short type);

    void SetSegment(const L_SEGM& segment);
    void SetCircle(const L_CIRCLE& circle);
    void SetArc(const L_ARC& arc);
    // A polyline element of the valid points. 1 when memory runs out, with the
    // element unchanged.
    short SetPolyline(const List<L_POINT>& points);

    const L_SEGM& Segment() const;
    const L_CIRCLE& Circle() const;
    const L_ARC& Arc() const;
    const Polyline& GetPolyline() const { return polyline_; }

    // Where the element starts and ends: a line's and an arc's ends, a polyline's
    // first and last points, and for a circle one seam point, twice (on the first
    // axis that nvector_arbitraryaxis gives for its axis). Either pointer may be null.
    // 1 with nothing written for no element or an empty polyline.
    short get_start_end_point(L_POINT* start, L_POINT* end) const;
    // Runs the element the other way: swaps a line's ends, swaps an arc's ends and
    // turns its axis round (the same points, still counter-clockwise about the axis),
    // turns a circle's axis round, reverses a polyline. 1 for no element.
    short reverse();

private:
    short type_ = L_ELEMENT_NONE;
    union Payload {
        L_SEGM segment;
        L_CIRCLE circle;
        L_ARC arc;
    } payload_{};
    Polyline polyline_;
};

// A chain of elements, each starting where the one before it ends (within the
// tolerance it was chained with). closed is 1 when the chain's last end meets its
// first start, and it is more than a single line.
class Connected_Set_Of_Elements {
public:
    List<L_ELEMENT> elements;
    short closed = 0;
};

// Chains the elements end to end, with ends meeting when each coordinate differs by
// at most tolerance, and replaces *sets with the chains. Each set starts from the
// first element in input order not yet used; it grows forward from that element's end
// and, unless it has closed on itself, then backward from its start. Elements are
// copied, reversed where needed so that each set runs start to end. Where several
// unused elements meet an end (a branch), the one whose meeting end is nearest wins,
// then the lowest input index, then the element's start over its end; the others
// start sets of their own later. A circle is a closed set of its own; invalid
// entries, elements of no type and elements with non-finite ends are left out. Ends
// are matched through a sorted grid of cells at least tolerance wide, so the cost is
// n log n for a tolerance well below the elements' length. 0 on success; 1 for a null
// output and when memory runs out (the output is then empty).
short create_connected_sets_of_elements(const List<L_ELEMENT>& elements, double tolerance,
                                        List<Connected_Set_Of_Elements>* sets);
