#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/runtime/Value.h"
#include <string_view>

/// XML property lists, read to values: dict, array, string, integer, real, true, false, date and data.
///
///     auto const facts = PropertyList::contentsOfURL(url).dictionary();
namespace Tessarin::PropertyList {

/// Throws ErrorException (NSFormatErrorDomain) for anything that is no property list.
TESSARIN_API Value fromXML(std::string_view text);
/// The same from a file; throws ErrorException with an errno too.
TESSARIN_API Value contentsOfURL(NSURL const& url);

} // namespace Tessarin::PropertyList
