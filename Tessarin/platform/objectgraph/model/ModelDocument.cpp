#include "Tessarin/platform/objectgraph/model/ModelDocument.h"

#include "Tessarin/platform/foundation/values/UTF8Private.h"
#include "Tessarin/platform/objectgraph/model/ModelDocumentReaderPrivate.h"

#include <pugixml.hpp>

#include <algorithm>

namespace Tessarin {
namespace {

bool isMergeMark(std::string_view line) {
    return line.starts_with("<<<<<<< ") || line.starts_with(">>>>>>> ") || line == "=======" || line == "=======\r";
}

bool holdsMergeMarks(std::string_view text) {
    while (!text.empty()) {
        auto const end = std::min(text.find('\n'), text.size());
        if (isMergeMark(text.substr(0, end))) return true;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return false;
}

} // namespace

std::optional<ModelDefinition> parseModelDocument(std::string_view xml, std::string& problem) {
    pugi::xml_document document;
    if (!isUTF8(xml)) {
        problem = "it is not UTF-8";
    } else if (holdsMergeMarks(xml)) {
        problem = "it holds marks of an unfinished merge";
    } else if (auto const result = document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
               !result) {
        problem = std::string{"it is not well-formed: "} + result.description();
    } else if (auto const root = document.document_element(); std::string_view{root.name()} != "model") {
        problem = "its root is not a model";
    } else if (document.first_child() != document.last_child()) {
        problem = "it is not well-formed: something stands beside its root";
    } else {
        ModelDocumentReader reader{root};
        auto definition = reader.read();
        if (!definition) problem = reader.problem();
        return definition;
    }
    return {};
}

} // namespace Tessarin
