// The plane as the section, imprint and cut see it: one triangle far larger than the
// mesh, so that cutting against it reaches every facet the plane crosses.
#pragma once

#include "LMesh.h"

struct PlaneTriangle {
    L_POINT p1, p2, p3;
};

// A triangle in the plane about the middle of the stored box, 3.75 times the box's
// largest extent to each side, so it covers every crossing while the box is right.
// False for a normal that cannot be normalised: such a plane has no side.
bool BuildPlaneTriangle(const float bboxMin[3], const float bboxMax[3], const L_PLANE& plane,
                        PlaneTriangle& triangle);
