// The steps of extension that its drivers and cleanups share.
#pragma once

#include <cmath>

#include "LMesh.h"

// The direction in which the surface continues past the record's edge, by sections
// of widening reach: the edge's facet, the facets around its corners, the near
// facets, the whole mesh. Unit vectors; false when no stage finds one.
bool FindExtensionDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, L_VECTOR& direction, bool& hasSecond,
                            L_VECTOR& secondDirection);
// How the search may cut the whole mesh: through blocks of facets (made once for all
// the records of one mesh; null to cut it plainly) and, where each record's near facets
// are known to hold every facet within nearRadius of its edge (0 when not), through
// those first, falling back to the whole mesh wherever they could give another result.
class FacetBlockSection;
struct WholeMeshCut {
    const FacetBlockSection* blocks = nullptr;
    double nearRadius = 0.0;
};
bool FindExtensionDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, L_VECTOR& direction, bool& hasSecond,
                            L_VECTOR& secondDirection, const WholeMeshCut& cut);

// The last cleanup stage: evens out zigzags of the outer line where the boundary runs
// straight, by shortening the outer points around a kink and inserting bridging records.
void RelieveExtensionKinks(BaseList<LM_EXTENDEDGE>& extendedEdges);

// Float vectors for the record arithmetic, which is all in float like the records.
struct Vec3f {
    float x = 0, y = 0, z = 0;
};

inline Vec3f Load(const float p[3]) { return {p[0], p[1], p[2]}; }
inline void Store(const Vec3f& v, float p[3])
{
    p[0] = v.x;
    p[1] = v.y;
    p[2] = v.z;
}
inline Vec3f operator+(const Vec3f& a, const Vec3f& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3f operator-(const Vec3f& a, const Vec3f& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3f operator*(float s, const Vec3f& v) { return {s * v.x, s * v.y, s * v.z}; }
inline float Dot(const Vec3f& a, const Vec3f& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3f Cross(const Vec3f& a, const Vec3f& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float Length(const Vec3f& v) { return std::sqrt(Dot(v, v)); }
inline float Distance(const Vec3f& a, const Vec3f& b) { return Length(b - a); }
// The unit vector along v; false (and v unchanged) when it has no length.
inline bool Unit(const Vec3f& v, Vec3f& unit)
{
    float p[3] = {v.x, v.y, v.z};
    if (NormalizeVector(p) != 0) return false;
    unit = Load(p);
    return true;
}
