#include <benchmark/benchmark.h>

#include "BenchSupport.h"
