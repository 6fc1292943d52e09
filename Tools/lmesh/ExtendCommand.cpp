// (in progress)
#include "Commands.h"

#include "CommandSupport.h"

int RunExtend(const std::vector<std::string>&) { return Failure("extend", "not available yet"); }
