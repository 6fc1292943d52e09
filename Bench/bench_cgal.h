// Comparisons with a computational-geometry library, built only when it is installed
// (LMESH_BENCH_CGAL). Plain functions, so that its headers compile in a target of
// their own, away from this project's warning flags.
#pragma once

#include <cstddef>
#include <vector>

// Raw shape-diameter values of a closed triangle surface (three coordinates per
// vertex, three vertex indices per triangle), one per triangle in triangle order,
// with the peer's default cone and rays and no smoothing; -1 where no ray came back.
// The surface is built into the peer's own mesh first.
std::vector<double> PeerShapeDiameters(const std::vector<float>& coords, const std::vector<int>& indices);
// The number of pairs of triangles that intersect (sharing a corner or an edge as
// neighbours do not count), found by the peer's self-intersection search.
std::size_t PeerSelfIntersectingPairs(const std::vector<float>& coords, const std::vector<int>& indices);
// The peer's soup repair (merging equal points, dropping degenerate and repeated
// triangles), soup orientation, building its mesh and, when that is closed, turning
// it to bound a volume. The triangles are three point indices each; returns the
// faces of the resulting mesh.
std::size_t PeerRepairSoup(const std::vector<float>& coords, const std::vector<int>& indices);
