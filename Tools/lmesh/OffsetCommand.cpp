#include "Commands.h"

int RunOffset(const std::vector<std::string>&) { return 1; }
