#include "Tessarin/platform/foundation/files/FilesPrivate.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/NSData.h"

namespace Tessarin {

NSData NSData::contentsOfURL(NSURL const& url) { return contentsOfFile(url.path()); }
NSData NSData::contentsOfFile(std::string const& path) { return NSData{files::read(path)}; }
void NSData::writeToURL(NSURL const& url) const { writeToFile(url.path()); }
void NSData::writeToFile(std::string const& path) const { files::writeAtomically(path, bytes()); }

} // namespace Tessarin
