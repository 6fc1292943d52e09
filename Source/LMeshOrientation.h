// Pieces of orientation that other repairs share.
#pragma once

#include "LMesh.h"

// Barycentric inside test in the first coordinate plane (xy, yz, zx) whose
// determinant reaches the tolerance. The determinant is an area held against the
// call's distance tolerance: deliberate, and results depend on it. Borders count
// as inside.
bool PointInTriangle(const float h[3], const float a[3], const float b[3], const float c[3], float tolerance);
