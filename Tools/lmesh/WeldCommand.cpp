#include "Commands.h"

#include "CommandSupport.h"

int RunWeld(const std::vector<std::string>&) { return Failure("weld", "not available yet"); }
