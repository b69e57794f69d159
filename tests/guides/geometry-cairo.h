#include "Tessarin/Tessarin.h"
#include <cairo.h>

using namespace Tessarin;
extern RadialGradient const& glow;
extern cairo_surface_t* image;
