#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "TestMeshes.h"

namespace {

// The welder exactly as defined, with no index: each record scans every later one.
bool ReferenceWeld(L_LUMOMESH& mesh, float tol, const BaseList<uint32_t>* list, uint32_t* candidates,
                   uint32_t* unmatched, short mode)
{
    struct Rec {
        float p[2][3];
        uint32_t v[2], edge, facet;
    };
    const uint32_t nv = mesh.vertices.count, ne = mesh.edges.count;
    auto pos = [&](uint32_t v, int k) { return mesh.vertices.Peek(v)->position[k]; };
    std::vector<Rec> recs;
    auto tryEdge = [&](uint32_t e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!edge || !(edge->flags & LM_LIVE) || (mode && edge->facet[1] != LM_NONE)) return;
        if (edge->vertex[0] >= nv || edge->vertex[1] >= nv) return;
        Rec r{{}, {edge->vertex[0], edge->vertex[1]}, e, edge->facet[0]};
        const uint32_t p = r.v[0], q = r.v[1];
        if (pos(q, 0) < pos(p, 0) ||
            (pos(q, 0) == pos(p, 0) && (pos(q, 1) < pos(p, 1) || (pos(q, 1) == pos(p, 1) && pos(q, 2) < pos(p, 2)))))
            std::swap(r.v[0], r.v[1]);
        for (int k = 0; k < 6; ++k) r.p[k / 3][k % 3] = pos(r.v[k / 3], k % 3);
        recs.push_back(r);
    };
    if (!list)
        for (uint32_t e = 0; e < ne; ++e) tryEdge(e);
    else
        for (uint32_t k = 0; k < list->count; ++k)
            if (const LM_FACET* f = mesh.facets.Peek(*list->Peek(k)))
                for (int s = 0; s < 3; ++s) tryEdge(f->edge[s]);
    if (candidates) *candidates = uint32_t(recs.size());
    if (unmatched) *unmatched = uint32_t(recs.size());
    // NaN sorts after every number and ties with NaN; equal keys keep their order.
    auto less = [](float a, float b) { return std::isnan(a) ? false : std::isnan(b) ? true : a < b; };
    std::stable_sort(recs.begin(), recs.end(), [&](const Rec& a, const Rec& b) {
        for (int k = 0; k < 6; ++k) {
            if (less(a.p[k / 3][k % 3], b.p[k / 3][k % 3])) return true;
            if (less(b.p[k / 3][k % 3], a.p[k / 3][k % 3])) return false;
        }
        return false;
    });
    std::vector<uint32_t> vf(nv), ef(ne);
    std::vector<uint8_t> vl(nv), el(ne), active(recs.size(), 1);
    for (uint32_t v = 0; v < nv; ++v) vf[v] = v, vl[v] = mesh.vertices.Peek(v)->flags & LM_LIVE;
    for (uint32_t e = 0; e < ne; ++e) ef[e] = e, el[e] = mesh.edges.Peek(e)->flags & LM_LIVE;
    auto resolve = [](std::vector<uint32_t>& f, uint32_t x) {
        if (x >= f.size()) return x;
        while (f[x] != x) x = f[x];
        return x;
    };
    auto sq = [&](uint32_t p, uint32_t q) {
        const float dx = pos(p, 0) - pos(q, 0), dy = pos(p, 1) - pos(q, 1), dz = pos(p, 2) - pos(q, 2);
        return dx * dx + dy * dy + dz * dz;
    };
    auto absorb = [](std::vector<uint32_t>& f, std::vector<uint8_t>& l, uint32_t keep, uint32_t gone) {
        l[gone] = 0, f[gone] = keep, l[keep] = 1, f[keep] = keep;
    };
    const float t2 = tol * tol;
    bool merged = false;
    for (size_t i = 0; i < recs.size(); ++i) {
        for (size_t j = i + 1; active[i] && j < recs.size(); ++j) {
            if (!active[j]) continue;
            const uint32_t a = resolve(vf, recs[i].v[0]), b = resolve(vf, recs[i].v[1]);
            const uint32_t c = resolve(vf, recs[j].v[0]), d = resolve(vf, recs[j].v[1]);
            bool stop = true;
            for (int k = 0; k < 3; ++k)
                stop = stop && std::fabs(pos(a, k) - pos(c, k)) > tol && std::fabs(pos(b, k) - pos(d, k)) > tol;
            if (stop) break;
            if (recs[i].facet == recs[j].facet) continue;
            uint32_t pa = c, pb = d;
            if (!(sq(a, c) <= t2 && sq(b, d) <= t2)) {
                if (!(sq(a, d) <= t2 && sq(b, c) <= t2)) continue;
                pa = d, pb = c;
            }
            const float g = std::max(sq(a, pa), sq(b, pb)), s = std::min(sq(a, b), sq(c, d));
            if (!(g < s)) continue;
            active[i] = active[j] = 0;
            absorb(ef, el, recs[i].edge, recs[j].edge);
            mesh.edges.At(recs[i].edge)->facet[1] = recs[j].facet;
            if (a != pa) absorb(vf, vl, a, pa);
            if (b != pb) absorb(vf, vl, b, pb);
            if (unmatched) *unmatched -= 2;
            merged = true;
        }
    }
    if (!merged) return false;
    mesh.vertexCount = mesh.edgeCount = mesh.facetCount = 0;
    if (tol > 0) {
        std::vector<std::vector<uint32_t>> members(nv);
        for (uint32_t w = 0; w < nv; ++w) members[resolve(vf, w)].push_back(w);
        for (uint32_t v = 0; v < nv; ++v) {
            if (!vl[v] || members[v].size() < 2) continue;
            LM_VERTEX& x = *mesh.vertices.At(v);
            for (uint32_t w : members[v])
                for (int k = 0; w != v && k < 3; ++k) x.position[k] = x.position[k] + pos(w, k);
            for (int k = 0; k < 3; ++k) x.position[k] = x.position[k] / float(members[v].size());
        }
    }
    for (uint32_t v = 0; v < nv; ++v) {
        LM_VERTEX& x = *mesh.vertices.At(v);
        x.flags = vl[v] ? (x.flags | 1) : (x.flags & 254);
        if (vl[v]) x.edge = resolve(ef, x.edge), ++mesh.vertexCount;
    }
    for (uint32_t e = 0; e < ne; ++e) {
        LM_EDGE& x = *mesh.edges.At(e);
        x.flags = el[e] ? (x.flags | 1) : (x.flags & 254);
        if (el[e]) x.vertex[0] = resolve(vf, x.vertex[0]), x.vertex[1] = resolve(vf, x.vertex[1]), ++mesh.edgeCount;
    }
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        LM_FACET& x = *mesh.facets.At(f);
        if (!(x.flags & LM_LIVE)) continue;
        for (int k = 0; k < 3; ++k) x.vertex[k] = resolve(vf, x.vertex[k]), x.edge[k] = resolve(ef, x.edge[k]);
        ++mesh.facetCount;
    }
    return true;
}

template <class Record>
void AppendRecords(std::string& bytes, const BaseList<Record>& store)
{
    for (uint32_t r = 0; r < store.count; ++r)
        bytes.append(reinterpret_cast<const char*>(store.Peek(r)), sizeof(Record));
}

std::string MeshBytes(const L_LUMOMESH& mesh)
{
    const LM_MESH_HEADER header = LMeshGetHeader(mesh);
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    AppendRecords(bytes, mesh.vertices);
    AppendRecords(bytes, mesh.edges);
    AppendRecords(bytes, mesh.facets);
    return bytes;
}

// Both welders on copies of the mesh: same result, same outputs, same bytes. Returns
// the number of merges, so that callers can see their case welds something.
uint32_t ExpectSameAsReference(const L_LUMOMESH& mesh, float tol, short mode,
                               const BaseList<uint32_t>* list = nullptr)
{
    L_LUMOMESH fast(mesh), slow(mesh);
    uint32_t fastOut[2] = {7, 7}, slowOut[2] = {9, 9};
    const bool fastResult = LMeshOptimizeEdges(fast, tol, list, &fastOut[0], &fastOut[1], mode);
    const bool slowResult = ReferenceWeld(slow, tol, list, &slowOut[0], &slowOut[1], mode);
    EXPECT_EQ(fastResult, slowResult) << "tolerance " << tol << " mode " << mode;
    EXPECT_EQ(fastOut[0], slowOut[0]);
    EXPECT_EQ(fastOut[1], slowOut[1]) << "tolerance " << tol << " mode " << mode;
    EXPECT_TRUE(MeshBytes(fast) == MeshBytes(slow)) << "tolerance " << tol << " mode " << mode;
    return (slowOut[0] - slowOut[1]) / 2;
}

L_LUMOMESH Soup(const std::vector<float>& corners)
{
    L_LUMOMESH mesh;
    for (size_t t = 0; t + 9 <= corners.size(); t += 9)
        LMeshAddTriangle(mesh, &corners[t], &corners[t + 3], &corners[t + 6], 0);
    return mesh;
}

// An n by n grid of unit squares in the plane where `axis` is 0, as separate triangles;
// in-plane coordinates moved by up to `noise`.
L_LUMOMESH PlaneGridSoup(int n, int axis, float noise, std::mt19937& random)
{
    std::uniform_real_distribution<float> jitter(-noise, noise);
    std::vector<float> corners;
    auto corner = [&](int u, int v) {
        float p[3];
        p[axis] = 0.0f;
        p[(axis + 1) % 3] = float(u) + jitter(random);
        p[(axis + 2) % 3] = float(v) + jitter(random);
        corners.insert(corners.end(), p, p + 3);
    };
    for (int u = 0; u < n; ++u)
        for (int v = 0; v < n; ++v) {
            corner(u, v), corner(u + 1, v), corner(u + 1, v + 1);
            corner(u, v), corner(u + 1, v + 1), corner(u, v + 1);
        }
    return Soup(corners);
}

// Triangles on a small lattice of points, each corner moved by up to `noise`: edges
// repeat, mostly near one another, and records often share coordinates.
L_LUMOMESH LatticeSoup(int triangles, float noise, std::mt19937& random)
{
    std::uniform_int_distribution<int> lattice(0, 4);
    std::uniform_real_distribution<float> jitter(-noise, noise);
    std::vector<float> corners;
    for (int t = 0; t < triangles; ++t) {
        const int base[3] = {lattice(random), lattice(random), lattice(random)};
        for (int k = 0; k < 9; ++k) {
            const int step = (k / 3 == 1 && k % 3 == t % 3) || (k / 3 == 2 && k % 3 == (t + 1) % 3);
            corners.push_back(float(base[k % 3] + step) + (noise > 0 ? jitter(random) : 0.0f));
        }
    }
    return Soup(corners);
}

TEST(OptimizeEdges, MatchesReferenceOnLatticeSoups)
{
    std::mt19937 random(7);
    uint32_t merges = 0;
    for (float noise : {0.0f, 0.01f, 0.2f}) {
        L_LUMOMESH mesh = LatticeSoup(400, noise, random);
        for (float tol : {0.0f, 0.005f, 0.02f, 0.3f, 0.6f, 3.0f, 1e30f, -1.0f})
            for (short mode : {0, 1}) merges += ExpectSameAsReference(mesh, tol, mode);
        // A facet list may name a facet twice, and ids past the store.
        BaseList<uint32_t> list;
        for (uint32_t k = 0; k < 300; ++k) *list.At(k) = (k * 7919u) % 420u;
        merges += ExpectSameAsReference(mesh, 0.3f, 0, &list);
        // Welding again, over the links the first weld left.
        LMeshOptimizeEdges(mesh, 0.02f, nullptr, nullptr, nullptr, 1);
        merges += ExpectSameAsReference(mesh, 0.3f, 0);
    }
    EXPECT_GT(merges, 1000u);
}

TEST(OptimizeEdges, MatchesReferenceOnAxisPlaneGrids)
{
    std::mt19937 random(11);
    for (int axis = 0; axis < 3; ++axis)
        for (float noise : {0.0f, 0.003f}) {
            const L_LUMOMESH mesh = PlaneGridSoup(24, axis, noise, random);
            EXPECT_EQ(ExpectSameAsReference(mesh, 0.01f, 0), 24u * 24u * 3u - 2u * 24u);
            ExpectSameAsReference(mesh, 0.004f, 1);
        }
}

TEST(OptimizeEdges, MatchesReferenceOnStaleLinksAndOddCoordinates)
{
    std::mt19937 random(3);
    L_LUMOMESH mesh = LatticeSoup(60, 0.01f, random);
    mesh.edges.At(4)->vertex[1] = 100000;     // an end past the vertex store
    mesh.edges.At(9)->facet[0] = 77777;       // a facet past the store
    mesh.facets.At(5)->edge[2] = 50000;       // an edge past the store
    mesh.facets.At(6)->vertex[0] = 60000;     // a corner past the store
    mesh.vertices.At(12)->edge = 90000;       // a link past the edge store
    mesh.vertices.At(13)->flags &= 254;       // a dead end on a live edge
    mesh.vertices.At(20)->position[1] = NAN;  // no difference from it exceeds or matches anything
    mesh.vertices.At(21)->position[0] = INFINITY;
    for (short mode : {0, 1}) ExpectSameAsReference(mesh, 0.05f, mode);
}

TEST(OptimizeEdges, MatchesReferenceOnRealFilesAsSoup)
{
    const std::string folder = "../shared/data/meshes/";
    if (!std::ifstream(folder + "MANIFEST.md")) GTEST_SKIP() << "mesh corpus not found in " << folder;
    for (const char* name :
         {"featuretype_cracks_binary.stl", "arm_link_header_solid_binary.stl", "four_solids_ascii.stl"}) {
        const std::string path = folder + name;
        L_LUMOMESH loaded;
        ASSERT_TRUE(LMeshLoadFromSTL(std::wstring(path.begin(), path.end()).c_str(), 0.0f, &loaded)) << name;
        std::vector<float> corners;
        for (uint32_t f = 0; f < loaded.facets.count; ++f)
            for (int c = 0; c < 9; ++c)
                corners.push_back(+loaded.vertices.Peek(loaded.facets.Peek(f)->vertex[c / 3])->position[c % 3]);
        EXPECT_GT(ExpectSameAsReference(Soup(corners), 1e-4f, 0), 0u) << name;
        EXPECT_GT(ExpectSameAsReference(loaded, 1e-4f, 1), 0u) << name;
        ExpectSameAsReference(loaded, 0.05f, 0);
    }
}

// Two triangles over the unit square's diagonal, given on six separate vertices.
L_LUMOMESH SquareHalves(float shift)
{
    return Soup({0, 0, 0, 1, 0, 0, 1, 1, 0, shift, 0, 0, 1, 1 + shift, 0, 0, 1, 0});
}

TEST(OptimizeEdges, WeldsTwoTrianglesSharingASide)
{
    L_LUMOMESH mesh = SquareHalves(0.0f);
    uint32_t candidates = 0, unmatched = 0;
    ASSERT_TRUE(LMeshOptimizeEdges(mesh, 0.0f, nullptr, &candidates, &unmatched, 1));
    EXPECT_EQ(candidates, 6u);
    EXPECT_EQ(unmatched, 4u);
    EXPECT_EQ(mesh.vertexCount, 4u);
    EXPECT_EQ(mesh.edgeCount, 5u);
    uint32_t shared = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e)
        if ((mesh.edges.Peek(e)->flags & LM_LIVE) && mesh.edges.Peek(e)->facet[1] != LM_NONE) ++shared;
    EXPECT_EQ(shared, 1u);
    testmesh::ExpectMeshConsistent(mesh);
    // At tolerance 0 nothing moves: exact twins only.
    const L_LUMOMESH before = SquareHalves(0.0f);
    for (uint32_t v = 0; v < 6; ++v)
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(+mesh.vertices.Peek(v)->position[k], +before.vertices.Peek(v)->position[k]);
    L_LUMOMESH apart = SquareHalves(1e-6f);
    EXPECT_FALSE(LMeshOptimizeEdges(apart, 0.0f, nullptr, nullptr, nullptr, 1));
}

TEST(OptimizeEdges, KeepsApartWhatMustNotWeld)
{
    // A sliver narrower than the tolerance: its own edges never weld to each other.
    L_LUMOMESH sliver = Soup({0, 0, 0, 1, 0, 0, 0.5f, 0.001f, 0});
    EXPECT_FALSE(LMeshOptimizeEdges(sliver, 0.1f, nullptr, nullptr, nullptr, 0));
    // A gap of 0.5 between edges of length 0.5 is not smaller than the edges.
    L_LUMOMESH wide = Soup({0, 0, 0, 0.5f, 0, 0, 0, 1, 0, 0, 0.5f, 0, 0.5f, 0.5f, 0, 0, -1, 0});
    EXPECT_FALSE(LMeshOptimizeEdges(wide, 100.0f, nullptr, nullptr, nullptr, 0));
    // A closed mesh has no border edge.
    L_LUMOMESH cube = testmesh::MakeCube();
    uint32_t candidates = 5, unmatched = 5;
    EXPECT_FALSE(LMeshOptimizeEdges(cube, 0.1f, nullptr, &candidates, &unmatched, 1));
    EXPECT_EQ(candidates, 0u);
    EXPECT_EQ(unmatched, 0u);
}

TEST(OptimizeEdges, MovesMergedVerticesToTheirMean)
{
    // Three triangles around a centre given three times, at exact float sums.
    const float h = 0.03125f;
    L_LUMOMESH mesh = Soup({0, 0, 0, 1, 0, 0, 0, 1, 0,     //
                            h, 0, 0, 0, 1, 0, -1, -1, 0,   //
                            0, h, 0, -1, -1, 0, 1, 0, 0});
    ASSERT_TRUE(LMeshOptimizeEdges(mesh, 0.1f, nullptr, nullptr, nullptr, 1));
    EXPECT_EQ(mesh.vertexCount, 4u);
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
        if (!(vertex.flags & LM_LIVE) || std::fabs(vertex.position[0]) + std::fabs(vertex.position[1]) > 0.5f) continue;
        EXPECT_EQ(+vertex.position[0], h / 3.0f);
        EXPECT_EQ(+vertex.position[1], h / 3.0f);
    }
    testmesh::ExpectMeshConsistent(mesh);
}

}  // namespace
