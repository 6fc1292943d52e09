#include "Commands.h"

#include "CommandSupport.h"

int RunCompact(const std::vector<std::string>&) { return Failure("compact", "not available yet"); }
int RunGroups(const std::vector<std::string>&) { return Failure("groups", "not available yet"); }
