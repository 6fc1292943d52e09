// PLY reader: turns the vertex, face and tristrips elements of a PLY file into
// triangle soup.
//
// The file is mapped, its header parsed into elements and typed properties, and the
// body then walked element by element in header order through one value source per
// format (ASCII tokens, or binary values of either byte order). Every element and
// property is read or skipped, so unknown ones (edges, materials, normals, colours,
// texture lists) cost nothing but their bytes. Faces and strips keep vertex indices
// only, checked against the vertex count the header declares, and become coordinates
// once everything is read: they may therefore come before vertices. Their triangles
// are appended in element order. Polygons are split as fans (0,1,2), (0,2,3), ...;
// faces of fewer than three corners give nothing. A strip row is a list of ids in
// which -1 restarts the strip; its k-th triangle after a restart is (k, k+1, k+2),
// with the first two swapped for odd k so that all keep the strip's winding.
// Strip triangles that repeat an id are dropped (see AddStripTriangle).
//
// Status values: 0 success; 1 the file cannot be opened; 2 the header cannot be read
// (no "ply" line, no end_header, unknown format, type or keyword, malformed line);
// 3 the vertex element lacks a scalar x, y or z, or the face or tristrips element
// lacks its vertex_indices / vertex_index list; 4 the body is shorter than its counts;
// 5 a value that is no number (ASCII garbage, a number beyond double range, a negative
// or fractional list count); 6 a vertex index that is negative (other than a strip's
// -1), fractional or not below the vertex count; 7 more than 2^32 - 1 triangles or
// vertices, or memory exhausted.
// A valid file without faces (or without anything) gives 0 triangles with status 0
// and a valid empty array.
#include "LscFormats.h"
#include "LscFiles.h"
#include "LscMemory.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace nsLscApi {
namespace {

enum PlyStatus : short {
    kPlyOk = 0,
    kPlyCannotOpen = 1,
    kPlyBadHeader = 2,
    kPlyMissingProperty = 3,
    kPlyTruncated = 4,
    kPlyBadNumber = 5,
    kPlyBadIndex = 6,
    kPlyTooLarge = 7,
};

enum class PlyType : uint8_t { kInt8, kUint8, kInt16, kUint16, kInt32, kUint32, kFloat32, kFloat64 };
enum class PlyFormat : uint8_t { kAscii, kBinaryLittleEndian, kBinaryBigEndian };
// What the reader does with a property's values.
enum class PropertyUse : uint8_t { kSkip, kX, kY, kZ, kCorners, kStripIds };

struct PlyProperty {
    std::string name;
    PlyType type = PlyType::kFloat32;       // the item type for a list
    PlyType countType = PlyType::kUint8;    // lists only
    bool isList = false;
    PropertyUse use = PropertyUse::kSkip;
};

struct PlyElement {
    std::string name;
    uint64_t count = 0;
    std::vector<PlyProperty> properties;
    bool isVertex = false;
};

struct PlyHeader {
    PlyFormat format = PlyFormat::kAscii;
    std::vector<PlyElement> elements;
    uint32_t vertexCount = 0;
    size_t bodyOffset = 0;
};

// Triangles as vertex indices, resolved to coordinates once every element is read.
struct TriangleSoup {
    uint32_t vertexCount = 0;
    std::vector<float> positions;   // x, y, z per vertex
    std::vector<uint32_t> corners;  // three per triangle
};

size_t TypeSize(PlyType type)
{
    static const size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return kSizes[static_cast<int>(type)];
}

bool IsIntegerType(PlyType type) { return type != PlyType::kFloat32 && type != PlyType::kFloat64; }

// A double beyond float range becomes an infinity explicitly: the plain conversion is
// undefined there. NaN passes through as data.
float NarrowToFloat(double value)
{
    const double kMax = std::numeric_limits<float>::max();
    if (value > kMax) return std::numeric_limits<float>::infinity();
    if (value < -kMax) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

bool ParseType(std::string_view word, PlyType& type)
{
    static const struct { const char* name; PlyType type; } kNames[] = {
        {"char", PlyType::kInt8},     {"int8", PlyType::kInt8},       {"uchar", PlyType::kUint8},
        {"uint8", PlyType::kUint8},   {"short", PlyType::kInt16},     {"int16", PlyType::kInt16},
        {"ushort", PlyType::kUint16}, {"uint16", PlyType::kUint16},   {"int", PlyType::kInt32},
        {"int32", PlyType::kInt32},   {"uint", PlyType::kUint32},     {"uint32", PlyType::kUint32},
        {"float", PlyType::kFloat32}, {"float32", PlyType::kFloat32}, {"double", PlyType::kFloat64},
        {"float64", PlyType::kFloat64}};
    for (const auto& entry : kNames) {
        if (word == entry.name) {
            type = entry.type;
            return true;
        }
    }
    return false;
}

// Splits a header line at blanks; false when it holds more than `capacity` words.
bool SplitWords(std::string_view line, std::string_view* words, size_t capacity, size_t& count)
{
    count = 0;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        if (i == line.size()) break;
        const size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (count == capacity) return false;
        words[count++] = line.substr(start, i - start);
    }
    return true;
}

// Comments and object information may hold any text.
bool IsFreeTextLine(std::string_view line)
{
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos) return false;
    const std::string_view rest = line.substr(start);
    const std::string_view keyword = rest.substr(0, rest.find_first_of(" \t"));
    return keyword == "comment" || keyword == "obj_info";
}

// Hands out header lines without their LF or CRLF ending.
class LineReader {
public:
    explicit LineReader(std::string_view text) : text_(text) {}
    bool Next(std::string_view& line)
    {
        if (offset_ >= text_.size()) return false;
        size_t end = text_.find('\n', offset_);
        const bool hasEnd = end != std::string_view::npos;
        if (!hasEnd) end = text_.size();
        line = text_.substr(offset_, end - offset_);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        offset_ = hasEnd ? end + 1 : end;
        return true;
    }
    size_t Offset() const { return offset_; }

private:
    std::string_view text_;
    size_t offset_ = 0;
};

short ParseFormatLine(const std::string_view* words, size_t count, PlyHeader& header)
{
    if (count != 3) return kPlyBadHeader;
    if (words[1] == "ascii") header.format = PlyFormat::kAscii;
    else if (words[1] == "binary_little_endian") header.format = PlyFormat::kBinaryLittleEndian;
    else if (words[1] == "binary_big_endian") header.format = PlyFormat::kBinaryBigEndian;
    else return kPlyBadHeader;
    return words[2] == "1.0" ? kPlyOk : kPlyBadHeader;
}

short ParseElementLine(const std::string_view* words, size_t count, PlyHeader& header)
{
    if (count != 3) return kPlyBadHeader;
    PlyElement element;
    element.name = std::string(words[1]);
    const char* last = words[2].data() + words[2].size();
    const auto parsed = std::from_chars(words[2].data(), last, element.count);
    if (parsed.ec != std::errc() || parsed.ptr != last) return kPlyBadHeader;
    header.elements.push_back(std::move(element));
    return kPlyOk;
}

short ParsePropertyLine(const std::string_view* words, size_t count, PlyHeader& header)
{
    if (header.elements.empty()) return kPlyBadHeader;  // a property belongs to an element
    PlyProperty property;
    if (count == 5 && words[1] == "list") {
        property.isList = true;
        if (!ParseType(words[2], property.countType) || !ParseType(words[3], property.type))
            return kPlyBadHeader;
    } else if (count != 3 || !ParseType(words[1], property.type)) {
        return kPlyBadHeader;
    }
    property.name = std::string(words[count - 1]);
    header.elements.back().properties.push_back(std::move(property));
    return kPlyOk;
}

short ParseHeader(std::string_view file, PlyHeader& header)
{
    LineReader lines(file);
    std::string_view line;
    std::string_view words[5];
    size_t count = 0;
    if (!lines.Next(line) || !SplitWords(line, words, 1, count) || count != 1 || words[0] != "ply")
        return kPlyBadHeader;
    bool hasFormat = false;
    while (lines.Next(line)) {
        if (IsFreeTextLine(line)) continue;
        if (!SplitWords(line, words, 5, count)) return kPlyBadHeader;
        if (count == 0) continue;
        short status = kPlyOk;
        if (words[0] == "end_header" && count == 1) {
            header.bodyOffset = lines.Offset();
            return hasFormat ? kPlyOk : kPlyBadHeader;
        } else if (words[0] == "format" && !hasFormat) {
            status = ParseFormatLine(words, count, header);
            hasFormat = true;
        } else if (words[0] == "element") {
            status = ParseElementLine(words, count, header);
        } else if (words[0] == "property") {
            status = ParsePropertyLine(words, count, header);
        } else {
            status = kPlyBadHeader;
        }
        if (status != kPlyOk) return status;
    }
    return kPlyBadHeader;  // no end_header
}

short MarkVertexAxes(PlyElement& element, PlyHeader& header)
{
    element.isVertex = true;
    const PropertyUse axes[] = {PropertyUse::kX, PropertyUse::kY, PropertyUse::kZ};
    const char* names[] = {"x", "y", "z"};
    for (int axis = 0; axis < 3; ++axis) {
        PlyProperty* found = nullptr;
        for (PlyProperty& property : element.properties)
            if (!found && !property.isList && property.name == names[axis]) found = &property;
        if (!found) return kPlyMissingProperty;
        found->use = axes[axis];
    }
    if (element.count > std::numeric_limits<uint32_t>::max()) return kPlyTooLarge;
    header.vertexCount = static_cast<uint32_t>(element.count);
    return kPlyOk;
}

short MarkIndexList(PlyElement& element, PropertyUse use)
{
    PlyProperty* found = nullptr;
    for (PlyProperty& property : element.properties)
        if (!found && property.isList && (property.name == "vertex_indices" || property.name == "vertex_index"))
            found = &property;
    if (!found) return kPlyMissingProperty;
    found->use = use;
    return kPlyOk;
}

// Marks x, y, z of the first vertex element and the index lists of the first face and
// the first tristrips element; later elements of the same names are skipped like any other.
short AssignPropertyUses(PlyHeader& header)
{
    bool vertexSeen = false, faceSeen = false, stripsSeen = false;
    for (PlyElement& element : header.elements) {
        short status = kPlyOk;
        if (element.name == "vertex" && !vertexSeen) {
            vertexSeen = true;
            status = MarkVertexAxes(element, header);
        } else if (element.name == "face" && !faceSeen) {
            faceSeen = true;
            status = MarkIndexList(element, PropertyUse::kCorners);
        } else if (element.name == "tristrips" && !stripsSeen) {
            stripsSeen = true;
            status = MarkIndexList(element, PropertyUse::kStripIds);
        }
        if (status != kPlyOk) return status;
    }
    return kPlyOk;
}

// The fewest body bytes one row of the element can take: the scalars and list counts
// in binary, one character per value in ASCII.
uint64_t MinimumRowBytes(const PlyElement& element, PlyFormat format)
{
    uint64_t bytes = 0;
    for (const PlyProperty& property : element.properties)
        bytes += format == PlyFormat::kAscii ? 1 : TypeSize(property.isList ? property.countType : property.type);
    return bytes;
}

// Refuses counts the body cannot hold before anything is allocated for them.
short CheckCountsFitBody(const PlyHeader& header, uint64_t bodyBytes)
{
    uint64_t left = bodyBytes;
    for (const PlyElement& element : header.elements) {
        const uint64_t rowBytes = MinimumRowBytes(element, header.format);
        if (rowBytes == 0) continue;
        if (element.count > left / rowBytes) return kPlyTruncated;
        left -= element.count * rowBytes;
    }
    return kPlyOk;
}

// Value sources, one per format, share the Read / Skip / MinimumBytes shape so that the
// element walk below is written once for all three formats.

// Whitespace-separated numbers; line structure is not enforced.
class AsciiSource {
public:
    AsciiSource(const char* begin, const char* end) : p_(begin), end_(end) {}

    short Read(PlyType type, double& value)
    {
        while (p_ != end_ && IsSpace(*p_)) ++p_;
        if (p_ == end_) return kPlyTruncated;
        const char* first = p_;
        while (p_ != end_ && !IsSpace(*p_)) ++p_;
        if (*first == '+' && p_ - first > 1 && first[1] != '-') ++first;  // from_chars takes no '+'
        return ParseNumber(first, p_, type, value) ? kPlyOk : kPlyBadNumber;
    }

    short Skip(PlyType type, uint64_t n)
    {
        double ignored = 0;
        for (uint64_t i = 0; i < n; ++i)
            if (short status = Read(type, ignored)) return status;
        return kPlyOk;
    }

    uint64_t Remaining() const { return uint64_t(end_ - p_); }
    static uint64_t MinimumBytes(PlyType) { return 1; }

private:
    static bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

    // The whole token must be the number. Floats are parsed as floats so that they
    // round once; a float beyond float range is parsed again as a double.
    static bool ParseNumber(const char* first, const char* last, PlyType type, double& value)
    {
        if (IsIntegerType(type)) {
            int64_t integer = 0;
            const auto parsed = std::from_chars(first, last, integer);
            value = static_cast<double>(integer);
            return parsed.ec == std::errc() && parsed.ptr == last;
        }
        if (type == PlyType::kFloat32) {
            float single = 0;
            const auto parsed = std::from_chars(first, last, single);
            value = single;
            if (parsed.ec == std::errc()) return parsed.ptr == last;
            if (parsed.ec != std::errc::result_out_of_range) return false;
        }
        const auto parsed = std::from_chars(first, last, value);
        return parsed.ec == std::errc() && parsed.ptr == last;
    }

    const char* p_;
    const char* end_;
};

// Raw values of a fixed byte order, bounds-checked on every read.
template <bool kBigEndian>
class BinarySource {
public:
    BinarySource(const char* begin, const char* end)
        : p_(reinterpret_cast<const unsigned char*>(begin)), end_(reinterpret_cast<const unsigned char*>(end)) {}

    short Read(PlyType type, double& value)
    {
        if (Remaining() < TypeSize(type)) return kPlyTruncated;
        switch (type) {
        case PlyType::kInt8: value = static_cast<int8_t>(Load<uint8_t>()); break;
        case PlyType::kUint8: value = Load<uint8_t>(); break;
        case PlyType::kInt16: value = static_cast<int16_t>(Load<uint16_t>()); break;
        case PlyType::kUint16: value = Load<uint16_t>(); break;
        case PlyType::kInt32: value = static_cast<int32_t>(Load<uint32_t>()); break;
        case PlyType::kUint32: value = Load<uint32_t>(); break;
        case PlyType::kFloat32: value = BitsTo<float>(Load<uint32_t>()); break;
        case PlyType::kFloat64: value = BitsTo<double>(Load<uint64_t>()); break;
        }
        p_ += TypeSize(type);
        return kPlyOk;
    }

    short Skip(PlyType type, uint64_t n)
    {
        if (n > Remaining() / TypeSize(type)) return kPlyTruncated;
        p_ += n * TypeSize(type);
        return kPlyOk;
    }

    uint64_t Remaining() const { return uint64_t(end_ - p_); }
    static uint64_t MinimumBytes(PlyType type) { return TypeSize(type); }

private:
    template <class Unsigned>
    Unsigned Load() const
    {
        Unsigned bits = 0;
        for (size_t i = 0; i < sizeof(Unsigned); ++i) {
            const size_t shift = 8 * (kBigEndian ? sizeof(Unsigned) - 1 - i : i);
            bits = static_cast<Unsigned>(bits | static_cast<Unsigned>(Unsigned(p_[i]) << shift));
        }
        return bits;
    }
    template <class Real, class Unsigned>
    static Real BitsTo(Unsigned bits)
    {
        Real real;
        std::memcpy(&real, &bits, sizeof real);
        return real;
    }

    const unsigned char* p_;
    const unsigned char* end_;
};

// A list length: a whole, non-negative number whose items can still fit the body.
template <class Source>
short ReadListCount(Source& source, const PlyProperty& property, uint64_t& count)
{
    double value = 0;
    if (short status = source.Read(property.countType, value)) return status;
    if (!(value >= 0 && value <= 9007199254740992.0)) return kPlyBadNumber;  // NaN fails too
    count = static_cast<uint64_t>(value);
    if (double(count) != value) return kPlyBadNumber;  // a fraction
    return count > source.Remaining() / Source::MinimumBytes(property.type) ? kPlyTruncated : kPlyOk;
}

short CheckVertexIndex(double value, uint32_t vertexCount, uint32_t& index)
{
    if (!(value >= 0 && value < double(vertexCount))) return kPlyBadIndex;  // NaN fails too
    index = static_cast<uint32_t>(value);
    return double(index) == value ? kPlyOk : kPlyBadIndex;
}

template <class Source>
short ReadVertexIndex(Source& source, PlyType type, uint32_t vertexCount, uint32_t& index)
{
    double value = 0;
    if (short status = source.Read(type, value)) return status;
    return CheckVertexIndex(value, vertexCount, index);
}

short AddTriangle(TriangleSoup& soup, uint32_t a, uint32_t b, uint32_t c)
{
    if (soup.corners.size() / 3 >= std::numeric_limits<uint32_t>::max()) return kPlyTooLarge;
    soup.corners.push_back(a);
    soup.corners.push_back(b);
    soup.corners.push_back(c);
    return kPlyOk;
}

// Splits a polygon as a fan around its first corner as the corners arrive, so that
// even a huge polygon needs no buffer.
template <class Source>
short ReadPolygonAsFan(Source& source, const PlyProperty& property, TriangleSoup& soup)
{
    uint64_t cornerCount = 0;
    if (short status = ReadListCount(source, property, cornerCount)) return status;
    uint32_t first = 0, previous = 0;
    for (uint64_t k = 0; k < cornerCount; ++k) {
        uint32_t index = 0;
        if (short status = ReadVertexIndex(source, property.type, soup.vertexCount, index)) return status;
        if (k == 0) first = index;
        if (k >= 2)
            if (short status = AddTriangle(soup, first, previous, index)) return status;
        previous = index;
    }
    return kPlyOk;
}

// A triangle that repeats an id has no area: strips use such triangles only to join
// runs or turn, so they carry no surface and are dropped. Dropping one leaves the
// winding of the next alone, since parity counts every id triple after a restart.
short AddStripTriangle(TriangleSoup& soup, uint32_t older, uint32_t previous, uint32_t index, bool odd)
{
    if (older == previous || previous == index || older == index) return kPlyOk;
    return odd ? AddTriangle(soup, previous, older, index) : AddTriangle(soup, older, previous, index);
}

// Turns a strip row into triangles as its ids arrive, so that a long strip needs no
// buffer; its triangle count is unknown until read, so the soup grows as they come.
template <class Source>
short ReadStrip(Source& source, const PlyProperty& property, TriangleSoup& soup)
{
    const double kRestart = -1;
    uint64_t idCount = 0;
    if (short status = ReadListCount(source, property, idCount)) return status;
    uint64_t run = 0;  // ids since the last restart
    uint32_t older = 0, previous = 0;
    for (uint64_t k = 0; k < idCount; ++k) {
        double value = 0;
        if (short status = source.Read(property.type, value)) return status;
        if (value == kRestart) {
            run = 0;
            continue;
        }
        uint32_t index = 0;
        if (short status = CheckVertexIndex(value, soup.vertexCount, index)) return status;
        if (run >= 2)
            if (short status = AddStripTriangle(soup, older, previous, index, run % 2 == 1)) return status;
        older = previous;
        previous = index;
        ++run;
    }
    return kPlyOk;
}

template <class Source>
short SkipProperty(Source& source, const PlyProperty& property)
{
    uint64_t count = 1;
    if (property.isList)
        if (short status = ReadListCount(source, property, count)) return status;
    return source.Skip(property.type, count);
}

template <class Source>
short ReadElement(Source& source, const PlyElement& element, TriangleSoup& soup)
{
    if (element.properties.empty()) return kPlyOk;
    if (element.isVertex) soup.positions.assign(size_t(element.count) * 3, 0.0f);
    for (uint64_t row = 0; row < element.count; ++row) {
        for (const PlyProperty& property : element.properties) {
            short status = kPlyOk;
            if (property.use == PropertyUse::kSkip) {
                status = SkipProperty(source, property);
            } else if (property.use == PropertyUse::kCorners) {
                status = ReadPolygonAsFan(source, property, soup);
            } else if (property.use == PropertyUse::kStripIds) {
                status = ReadStrip(source, property, soup);
            } else {
                double value = 0;
                status = source.Read(property.type, value);
                const size_t axis = static_cast<size_t>(property.use) - static_cast<size_t>(PropertyUse::kX);
                soup.positions[size_t(row) * 3 + axis] = NarrowToFloat(value);
            }
            if (status != kPlyOk) return status;
        }
    }
    return kPlyOk;
}

template <class Source>
short ReadBody(Source source, const PlyHeader& header, TriangleSoup& soup)
{
    for (const PlyElement& element : header.elements)
        if (short status = ReadElement(source, element, soup)) return status;
    return kPlyOk;  // bytes after the last element are ignored
}

// Room for the triangles a face element may give, bounded by what the body can hold
// (a triangle takes at least 8 bytes, "3 0 1 2\n" or more in any format), so that a
// lying count cannot reserve more than the file justifies. Strips are not counted:
// their rows say nothing of their triangle count.
void ReserveTriangles(const PlyHeader& header, uint64_t bodyBytes, TriangleSoup& soup)
{
    for (const PlyElement& element : header.elements) {
        for (const PlyProperty& property : element.properties)
            if (property.use == PropertyUse::kCorners)
                soup.corners.reserve(size_t(std::min<uint64_t>(element.count, bodyBytes / 8)) * 3);
    }
}

// Looks up the corners' coordinates into the caller's array of nine floats per triangle.
short BuildTriangleArray(const TriangleSoup& soup, float*& data, uint32_t& count)
{
    const size_t triangles = soup.corners.size() / 3;
    if (triangles > std::numeric_limits<uint32_t>::max() ||
        triangles > std::numeric_limits<size_t>::max() / (9 * sizeof(float)))
        return kPlyTooLarge;
    float* out = static_cast<float*>(l_memptr_alloc(nullptr, triangles * 9 * sizeof(float)));
    if (!out) return kPlyTooLarge;
    for (size_t c = 0; c < soup.corners.size(); ++c)
        std::memcpy(out + c * 3, &soup.positions[size_t(soup.corners[c]) * 3], 3 * sizeof(float));
    data = out;
    count = static_cast<uint32_t>(triangles);
    return kPlyOk;
}

short ReadPlyText(std::string_view file, float*& data, uint32_t& count)
{
    PlyHeader header;
    if (short status = ParseHeader(file, header)) return status;
    if (short status = AssignPropertyUses(header)) return status;
    const char* body = file.data() + header.bodyOffset;
    const char* end = file.data() + file.size();
    const uint64_t bodyBytes = uint64_t(end - body);
    if (short status = CheckCountsFitBody(header, bodyBytes)) return status;

    TriangleSoup soup;
    soup.vertexCount = header.vertexCount;
    ReserveTriangles(header, bodyBytes, soup);
    short status = kPlyOk;
    switch (header.format) {
    case PlyFormat::kAscii: status = ReadBody(AsciiSource(body, end), header, soup); break;
    case PlyFormat::kBinaryLittleEndian: status = ReadBody(BinarySource<false>(body, end), header, soup); break;
    case PlyFormat::kBinaryBigEndian: status = ReadBody(BinarySource<true>(body, end), header, soup); break;
    }
    if (status != kPlyOk) return status;
    return BuildTriangleArray(soup, data, count);
}

}  // namespace

short LscLibReadPlyFile(const wchar_t* path, float*& data, uint32_t& count)
{
    data = nullptr;
    count = 0;
    LscMemoryMappedFile file;
    const char* base = static_cast<const char*>(file.Open(path, LMMF_READ_ONLY, 0, 0, 0));
    if (!base) return kPlyCannotOpen;
    try {
        return ReadPlyText(std::string_view(base, size_t(file.Size())), data, count);
    } catch (...) {
        // Only allocation can throw here; nothing was handed out yet.
        return kPlyTooLarge;
    }
}

void LscLibFreePlyFileData(float*& data)
{
    if (data) l_memptr_free(data);
    data = nullptr;
}

}  // namespace nsLscApi
