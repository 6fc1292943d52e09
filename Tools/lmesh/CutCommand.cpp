#include "Commands.h"

int RunCut(const std::vector<std::string>&) { return 1; }
