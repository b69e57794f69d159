#include "Tessarin/platform/foundation/NSData.h"

#include "Tessarin/platform/foundation/FilesPrivate.h"

namespace Tessarin {

NSData NSData::contentsOfFile(std::string const& path) { return NSData{files::read(path)}; }
void NSData::writeToFile(std::string const& path) const { files::writeAtomically(path, bytes()); }
std::string NSData::description() const { return value_.description(); }

} // namespace Tessarin
