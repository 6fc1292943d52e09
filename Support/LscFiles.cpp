#include "LscFiles.h"
