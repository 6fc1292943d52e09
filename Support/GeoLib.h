// Geometry layer: records, distances, vector, plane and matrix primitives.
#pragma once

#include <cstdint>

struct L_POINT { double x, y, z; };
struct L_POINT3f { float x, y, z; };
struct L_VECTOR { double x, y, z; };
struct L_BOUNDS { double min[3]; double max[3]; };
struct L_BOUNDSf { float min[3]; float max[3]; };
struct L_SEGM { L_POINT start; L_POINT end; };
struct L_PLANE { L_POINT point; L_VECTOR normal; };  // normal need not be unit
struct L_MATRIX { double m[16]; };                   // row after row, acts on row vectors
struct L_CIRCLE { L_POINT centre; double radius; L_VECTOR axis; };
struct L_ARC { L_POINT centre; double radius; L_VECTOR axis; L_POINT start; L_POINT end; };
