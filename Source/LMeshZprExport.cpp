// ZPR export: a coloured mesh as a little-endian binary ZPR file, live vertices and
// then live facets in slot order, each in a 19-byte record. Facet records carry slot
// ids, so callers compact first when the vertex store has holes.
//
// The writer also repairs winding on the way: a facet whose stored normal disagrees
// with the normal of its corners is reversed in the mesh before it is written, and
// stays reversed. The format has no checksum and the caller learns only whether the
// file could be opened, so single writes are not checked.
#include <cmath>
#include <cstring>

#include "LMesh.h"

// Records are copied from host integers and floats; the format is little-endian.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "ZPR is written as a little-endian image");

namespace {

constexpr uint16_t kZprMagic = 938;
constexpr char kCreator[] = "Created By ZEFA";
constexpr unsigned char kHeadTail[6] = {0x01, 0x00, 0x01, 0xFF, 0xFF, 0xFF};
constexpr unsigned char kVertexTag = 10;
constexpr unsigned char kFacetTag = 20;
constexpr uint32_t kRecordBytes = 19;
constexpr uint32_t kBlockHeadBytes = 5;  // the tag and the length, which counts them too
constexpr float kNormalAgreement = 1e-05f;

void Put(FILE* file, const void* bytes, size_t size) { std::fwrite(bytes, 1, size, file); }

void PutHead(FILE* file)
{
    const uint32_t creatorLength = sizeof kCreator - 1;  // no terminator
    Put(file, &kZprMagic, sizeof kZprMagic);
    Put(file, &creatorLength, sizeof creatorLength);
    Put(file, kCreator, creatorLength);
    Put(file, kHeadTail, sizeof kHeadTail);
}

// The length comes from the header's live count, as does the number of records.
void PutBlockHead(FILE* file, unsigned char tag, uint32_t records)
{
    const uint32_t length = kRecordBytes * records + kBlockHeadBytes;
    Put(file, &tag, 1);
    Put(file, &length, sizeof length);
}

void PutVertices(FILE* file, const L_LUMOMESH& mesh)
{
    unsigned char record[kRecordBytes];
    std::memset(record, 0xFF, sizeof record);
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
        if (!(vertex.flags & LM_LIVE)) continue;
        std::memcpy(record, vertex.position, sizeof vertex.position);
        Put(file, record, sizeof record);
    }
}

// Whether the stored normal disagrees with the one the corners give. A degenerate
// facet computes (0,0,0) and so always disagrees. False when a corner names no vertex
// slot, as there is then nothing to compare with.
bool NormalDisagrees(const L_LUMOMESH& mesh, const LM_FACET& facet)
{
    float corners[3][3];
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[k]);
        if (!vertex) return false;
        std::memcpy(corners[k], vertex->position, sizeof corners[k]);
    }
    float computed[3];
    ComputeFacetNormal(corners[0], corners[1], corners[2], computed);
    const float dot = computed[0] * facet.normal[0] + computed[1] * facet.normal[1] + computed[2] * facet.normal[2];
    return std::fabs(dot - 1.0f) >= kNormalAgreement;
}

// A facet past the end of the colour list is written with colour 0.
void PutFacet(FILE* file, const LM_FACET& facet, const uint32_t* colour)
{
    unsigned char record[kRecordBytes];
    std::memset(record, 0xFF, sizeof record);
    std::memcpy(record, facet.vertex, sizeof facet.vertex);
    const uint32_t rgb = colour ? *colour : 0;
    std::memcpy(record + sizeof facet.vertex, &rgb, 3);  // the entry's three lowest bytes
    Put(file, record, sizeof record);
}

void PutFacets(FILE* file, L_LUMOMESH& mesh, const BaseList<uint32_t>& colours)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        if (!(mesh.facets.Peek(f)->flags & LM_LIVE)) continue;
        if (NormalDisagrees(mesh, *mesh.facets.Peek(f))) LMeshReverseFacet(mesh, f);
        PutFacet(file, *mesh.facets.Peek(f), colours.Peek(f));
    }
}

}  // namespace

short LMeshSaveToZPRFormat(L_LUMOMESH& mesh, const wchar_t* path, const BaseList<uint32_t>& colours)
{
    FILE* file = fwopen(path, "wb");
    if (!file) return -1;
    short result = 0;
    if (mesh.facets.count == 0 || mesh.vertices.count == 0 || mesh.edges.count == 0) {
        result = -2;  // the empty file stays behind
    } else {
        PutHead(file);
        PutBlockHead(file, kVertexTag, mesh.vertexCount);
        PutVertices(file, mesh);
        PutBlockHead(file, kFacetTag, mesh.facetCount);
        PutFacets(file, mesh, colours);
    }
    std::fclose(file);  // a failed close does not change the result
    return result;
}
