// Comparisons with a computational-geometry library, one function per comparison.
#include "bench_cgal.h"

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/orientation.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/mesh_segmentation.h>

#include <array>
#include <iterator>
#include <utility>

namespace {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using PeerMesh = CGAL::Surface_mesh<Kernel::Point_3>;

PeerMesh BuildPeerMesh(const std::vector<float>& coords, const std::vector<int>& indices)
{
    PeerMesh mesh;
    std::vector<PeerMesh::Vertex_index> vertices;
    for (size_t i = 0; i + 2 < coords.size(); i += 3)
        vertices.push_back(mesh.add_vertex(Kernel::Point_3(coords[i], coords[i + 1], coords[i + 2])));
    for (size_t i = 0; i + 2 < indices.size(); i += 3)
        mesh.add_face(vertices[indices[i]], vertices[indices[i + 1]], vertices[indices[i + 2]]);
    return mesh;
}

}  // namespace

std::vector<double> PeerShapeDiameters(const std::vector<float>& coords, const std::vector<int>& indices)
{
    PeerMesh mesh = BuildPeerMesh(coords, indices);
    using DiameterMap = PeerMesh::Property_map<PeerMesh::Face_index, double>;
    DiameterMap diameters = mesh.add_property_map<PeerMesh::Face_index, double>("f:sdf", 0.0).first;
    CGAL::sdf_values(mesh, diameters, 2.0 / 3.0 * CGAL_PI, 25, false);
    std::vector<double> values;
    for (PeerMesh::Face_index face : mesh.faces()) values.push_back(diameters[face]);
    return values;
}

std::size_t PeerSelfIntersectingPairs(const std::vector<float>& coords, const std::vector<int>& indices)
{
    const PeerMesh mesh = BuildPeerMesh(coords, indices);
    std::vector<std::pair<PeerMesh::Face_index, PeerMesh::Face_index>> pairs;
    CGAL::Polygon_mesh_processing::self_intersections(mesh, std::back_inserter(pairs));
    return pairs.size();
}

std::size_t PeerRepairSoup(const std::vector<float>& coords, const std::vector<int>& indices)
{
    namespace PMP = CGAL::Polygon_mesh_processing;
    std::vector<Kernel::Point_3> points;
    for (size_t i = 0; i + 2 < coords.size(); i += 3) points.emplace_back(coords[i], coords[i + 1], coords[i + 2]);
    std::vector<std::array<std::size_t, 3>> triangles;
    for (size_t i = 0; i + 2 < indices.size(); i += 3)
        triangles.push_back({std::size_t(indices[i]), std::size_t(indices[i + 1]), std::size_t(indices[i + 2])});
    PMP::repair_polygon_soup(points, triangles);
    PMP::orient_polygon_soup(points, triangles);
    PeerMesh mesh;
    PMP::polygon_soup_to_polygon_mesh(points, triangles, mesh);
    if (CGAL::is_closed(mesh)) PMP::orient_to_bound_a_volume(mesh);
    return mesh.number_of_faces();
}
