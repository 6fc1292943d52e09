// Exchange-format helpers: telling binary STL from ASCII, and reading PLY files into
// triangle soup.
#pragma once

#include <cstdint>

namespace nsLscApi {

enum eLscFileType { LSC_FILE_UNKNOWN = 0, LSC_FILE_STL_ASCII = 1, LSC_FILE_STL_BINARY = 2 };

}  // namespace nsLscApi
