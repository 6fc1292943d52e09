// (in progress)
#include <benchmark/benchmark.h>
