#include "Tessarin/platform/foundation/NSData.h"

namespace Tessarin {

std::string NSData::description() const { return value_.description(); }

} // namespace Tessarin
