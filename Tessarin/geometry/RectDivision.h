#pragma once
// They stand with the operations that every rectangle brings along.
#include "Tessarin/platform/foundation/geometry/NSRect.h"
