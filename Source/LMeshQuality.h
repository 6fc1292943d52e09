// Pieces of triangle quality that other analyses share.
#pragma once

#include "LMesh.h"

// Radius of the inscribed circle: twice Heron's area over the float perimeter.
float TriangleInradius(const float* p0, const float* p1, const float* p2);
// Radius of the circumscribed circle; infinity for a flat triangle.
double TriangleCircumradius(const float* p0, const float* p1, const float* p2);
// Twice the inradius over the circumradius, unclamped: 1 for an equilateral
// triangle, near 0 for a needle or a cap, not-a-number for coincident corners.
double ShapeFactor(const float* p0, const float* p1, const float* p2);
