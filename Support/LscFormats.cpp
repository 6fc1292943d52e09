#include "LscFormats.h"
