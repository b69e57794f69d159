#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <optional>
#include <string>

namespace Tessarin {

class NSTimeZone;

/// What decides on the system's zone: the text of TZ and the state of the file that it or /etc/localtime leads to.
std::string systemTimeZoneKey();
/// The zone that TZ or /etc/localtime names; UTC where they say nothing understandable.
Ref<NSTimeZone> systemTimeZone();

} // namespace Tessarin
