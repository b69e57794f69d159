#include "Tessarin/platform/foundation/bundles/PropertyList.h"

#include "Tessarin/platform/foundation/text/BlanksPrivate.h"
#include "Tessarin/platform/foundation/text/NumberReadingPrivate.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/Base64.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <fmt/format.h>
#include <pugixml.hpp>

namespace Tessarin::PropertyList {
namespace {

[[noreturn]] void refuse(std::string_view reason) {
    throw ErrorException(NSError::errorWithDomain(NSFormatErrorDomain, 1,
                                                  {{NSLocalizedDescriptionKey, fmt::format("not a property list: {}", reason)}}));
}

template <class Number> Value numberIn(std::string_view text) {
    auto const number = readNumber<Number>(text);
    if (!number) refuse(fmt::format("'{}' is no number", text));
    return *number;
}

Value readDate(std::string_view text) { // 2015-03-01T12:30:00Z
    auto const read =
        text.ends_with('Z') ? NSDate::dateWithISO8601Text(fmt::format("{}.000Z", text.substr(0, text.size() - 1))) : std::nullopt;
    if (!read) refuse(fmt::format("'{}' is no date", text));
    return *read;
}

Value readData(std::string_view text) {
    auto bytes = bytesFromBase64(text);
    if (!bytes) refuse("ill-formed data");
    return Value::data(*std::move(bytes));
}

Value read(pugi::xml_node node, std::size_t depth);

/// The elements inside a collection; blanks between them do not count, any other text is an error.
std::vector<pugi::xml_node> elementsOf(pugi::xml_node node) {
    std::vector<pugi::xml_node> elements;
    for (auto const child : node.children()) {
        if (child.type() == pugi::node_element)
            elements.push_back(child);
        else if (!withoutBlanks(child.value()).empty())
            refuse("text between elements");
    }
    return elements;
}

/// The whole text of an element; a comment inside divides it into several nodes.
std::string textOf(pugi::xml_node node) {
    std::string text;
    for (auto const child : node.children()) {
        if (child.type() == pugi::node_element) refuse(fmt::format("an element inside <{}>", node.name()));
        text += child.value();
    }
    return text;
}

Value readDictionary(pugi::xml_node node, std::size_t depth) {
    auto const elements = elementsOf(node);
    if (elements.size() % 2 != 0) refuse("a key without a value, or a value without a key");
    Dictionary dictionary;
    for (std::size_t at = 0; at < elements.size(); at += 2) {
        if (std::string_view{elements[at].name()} != "key") refuse("a value without a key");
        dictionary.set(textOf(elements[at]), read(elements[at + 1], depth + 1));
    }
    return dictionary;
}

Value readList(pugi::xml_node node, std::size_t depth) {
    List list;
    for (auto const element : elementsOf(node)) list.push_back(read(element, depth + 1));
    return list;
}

Value read(pugi::xml_node node, std::size_t depth) {
    if (depth > deepestLevel) refuse("nested too deeply");
    std::string_view const kind = node.name();
    if (kind == "dict") return readDictionary(node, depth);
    if (kind == "array") return readList(node, depth);
    auto const text = textOf(node);
    if (kind == "string") return text;
    if (kind == "integer") return numberIn<std::int64_t>(withoutBlanks(text));
    if (kind == "real") return numberIn<double>(withoutBlanks(text));
    if (kind == "true") return true;
    if (kind == "false") return false;
    if (kind == "date") return readDate(withoutBlanks(text));
    if (kind == "data") return readData(text);
    refuse(fmt::format("unknown element <{}>", kind));
}

} // namespace

Value fromXML(std::string_view text) {
    pugi::xml_document document;
    // Blanks that are a whole text count: <string> </string>. Between elements they are dropped.
    auto const result = document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata_single);
    if (!result) refuse(fmt::format("{} at byte {}", result.description(), result.offset));
    auto const root = document.child("plist");
    if (!root) refuse("no <plist>");
    auto const content = elementsOf(root);
    if (content.size() != 1) refuse("<plist> holds not exactly one value");
    return read(content.front(), 0);
}

Value contentsOfURL(NSURL const& url) { return fromXML(NSData::contentsOfURL(url).text()); }

} // namespace Tessarin::PropertyList
