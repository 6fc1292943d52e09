// Exchange-format helpers: telling binary STL from ASCII, and reading PLY files into
// triangle soup.
#pragma once

#include <cstdint>

namespace nsLscApi {

enum eLscFileType { LSC_FILE_UNKNOWN = 0, LSC_FILE_STL_ASCII = 1, LSC_FILE_STL_BINARY = 2 };

// LSC_FILE_STL_BINARY for a binary STL file, another value for anything else.
eLscFileType LscLibCheckSTLFileType(const wchar_t* path);

// Reads a PLY file (ASCII or binary, either byte order) into triangle soup: nine floats
// per triangle, polygons split as fans. 0 on success; non-zero with data null and
// count 0 on any failure. Free the data with LscLibFreePlyFileData.
short LscLibReadPlyFile(const wchar_t* path, float*& data, uint32_t& count);
void LscLibFreePlyFileData(float*& data);

}  // namespace nsLscApi
