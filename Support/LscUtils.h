// The utility layer: tracked allocation, paged lists, sorted trees, file helpers.
#pragma once

#include "LscMemory.h"
#include "LscBaseList.h"
#include "LscTrees.h"
#include "LscFiles.h"
#include "LscFormats.h"
