#pragma once
#include "Tessarin/platform/foundation/geometry/NSRect.h" // which ends with what stands in NSRect+Operations.inl: `RectDivision`, too
