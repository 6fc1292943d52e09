#include "GeoLibTriangles.h"
