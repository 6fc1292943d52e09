#include "GeoLibElements.h"
