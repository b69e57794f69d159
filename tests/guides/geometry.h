#include "Tessarin/Tessarin.h"
#include <numbers>

using namespace Tessarin;
inline NSPoint const cursor{1, 2};
inline NSRect const sheet{{0, 0}, {210, 297}};
inline void showDetails() {}
