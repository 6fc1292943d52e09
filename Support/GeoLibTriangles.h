// Triangle geometry that must not fail on touching or badly scaled input: where two
// triangles meet, and the triangulation of a closed 3-D contour.
#pragma once

#include "GeoLib.h"

// Where two closed triangles A = (a0, a1, a2) and B = (b0, b1, b2) meet.
//
// Every decision (on which side of a plane a corner lies, whether a crossing falls
// inside the other triangle) is an exact sign, so touching pairs are found at any
// scale and any distance from the origin, a plane triangle a million times larger
// than a facet included. Only the coordinates of a point where an edge crosses the
// other triangle's plane carry rounding; corners are returned exactly.
//
// 1 when the triangles share at least one point and are not coplanar. *segment (if
// not null) is then the shared set, a piece of the line where the planes meet,
// running along nA x nB (nA = (a1 - a0) x (a2 - a0), nB likewise). A triangle that
// touches the other only at one point gives a segment of zero length; one that
// touches along an edge gives that edge, or the part of it they share.
// 0, with *segment untouched, when the triangles are apart; when they are coplanar
// (a facet lying in a cutting plane leaves no piece of its own: its tilted
// neighbours give the outline of the flat region); when either has zero area (its
// corners collinear or coincident); and when a coordinate is not finite.
short intersect_TriTri(const L_POINT& a0, const L_POINT& a1, const L_POINT& a2, const L_POINT& b0,
                       const L_POINT& b1, const L_POINT& b2, L_SEGM* segment);

// Triangulation of closed 3-D contours, such as the rim of a hole, through a callback.
// Process-wide state between Init and Release; not thread-safe. The calling order is
// Init, SetCbk, then per path BeginPath, (BeginContour, Vertex..., EndContour)...,
// EndPath, and Release at the end. A call out of that order (before Init, a Vertex
// outside a contour, an EndPath without BeginPath) does nothing, and so does any call
// made from inside the callback.
//
// At EndPath every contour of the path that was closed by EndContour is triangulated
// on its own (contours are not holes of one another). A contour is first cleaned: a
// point within 1e-9 of the contour's size of the previous one (the repeated closing
// corner among them) is dropped. It is then seen down the coordinate axis nearest to
// its Newell normal (the area vector of the polygon); that projection is exact, so
// points collinear in space stay collinear and no triangle of zero area comes out. A
// rim so far from flat that this view folds it is projected on the plane at right
// angles to the Newell normal instead. The polygon is cut into ears, the best-shaped
// ear first, with exact 2-D orientation tests, so collinear runs are handled and the
// triangles never overlap in the projection. A contour of n distinct points gives
// n - 2 triangles, each passed to the callback as the ORIGINAL coordinates of three
// of its points, in the contour's own turning sense: the right-hand normal of every
// triangle points to the side of the contour's Newell normal, as the contour does.
// A contour is rejected, with nothing passed on for it, when it has fewer than three
// distinct points, when it is flat to a line (all points collinear), when its
// projection crosses or touches itself, or when a coordinate is not finite.

// Starts (or restarts) the tessellator with no callback. False only when called from
// inside the callback.
bool GeoLibTessellate3DInit();
// Drops all state and memory; later calls are no-ops until the next Init.
void GeoLibTessellate3DRelease();
// The callback gets three arrays of three doubles (copies the callee may change) and
// the user pointer. A null callback triangulates and passes nothing on.
void GeoLibTessellate3DSetCbk(void (*callback)(double*, double*, double*, void*), void* user);
// Starts a path, dropping any unfinished one. The flag is accepted for the calling
// convention and has no effect: every contour is filled on its own.
void GeoLibTessellate3DBeginPath(bool);
// Triangulates the path's finished contours and passes the triangles on; a contour
// still open is dropped.
void GeoLibTessellate3DEndPath();
// Starts a contour inside a path, dropping an unfinished one.
void GeoLibTessellate3DBeginContour();
void GeoLibTessellate3DEndContour();
// Adds one point (three doubles, copied) to the open contour.
void GeoLibTessellate3DVertex(double* xyz);
