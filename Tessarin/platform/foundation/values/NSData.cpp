#include "Tessarin/platform/foundation/values/NSData.h"

namespace Tessarin {

std::string NSData::description() const { return value_.description(); }

} // namespace Tessarin
