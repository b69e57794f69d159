#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"

namespace Tessarin {

/// Reads the XML text of a model document. Absent when it is not well-formed UTF-8 XML with the root `model`, holds marks of
/// an unfinished merge, has an attribute of an unknown type, an element without the name it needs, or a composite that is
/// missing or holds itself; `problem` then says what. Unknown elements and attributes are ignored.
///
/// An attribute of composite type becomes one attribute for each of the composite's own, named "attribute_part".
TESSARIN_API std::optional<ModelDefinition> parseModelDocument(std::string_view xml, std::string& problem);

} // namespace Tessarin
