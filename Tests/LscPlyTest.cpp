#include <gtest/gtest.h>
#include "LscFormats.h"
