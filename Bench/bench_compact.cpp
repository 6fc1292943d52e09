#include "BenchSupport.h"
