#include "Tessarin/platform/foundation/geometry/GeometryTextPrivate.h"
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSRect.h"

#include <ostream>

// What all values of the room have alike: text both ways, hash, stream.
namespace Tessarin {
namespace {

using geometry::readText;
using geometry::textOf;

constexpr std::string_view two = "{#, #}", rectangle = "{{#, #}, {#, #}}", four = "{#, #, #, #}";

std::size_t hashOf(std::initializer_list<double> numbers) {
    std::size_t hash = numbers.size();
    for (double const number : numbers) // zeros of either sign are equal, and hash alike
        hash = (hash ^ std::hash<double>{}(number)) * 0x9e3779b97f4a7c15u, hash ^= hash >> 32;
    return hash;
}

} // namespace

std::string NSPoint::description() const { return textOf(two, {x, y}); }
std::string NSSize::description() const { return textOf(two, {width, height}); }
std::string NSRect::description() const { return textOf(rectangle, {origin.x, origin.y, size.width, size.height}); }
std::string NSEdgeInsets::description() const { return textOf(four, {top, left, bottom, right}); }
std::string NSColor::description() const { return textOf(four, {red, green, blue, alpha}); }

std::optional<NSPoint> NSPoint::fromString(std::string_view text) {
    NSPoint point;
    return readText(text, two, {&point.x, &point.y}) ? std::optional(point) : std::nullopt;
}

std::optional<NSSize> NSSize::fromString(std::string_view text) {
    NSSize size;
    return readText(text, two, {&size.width, &size.height}) ? std::optional(size) : std::nullopt;
}

std::optional<NSRect> NSRect::fromString(std::string_view text) {
    NSRect rect;
    bool const isRead = readText(text, rectangle, {&rect.origin.x, &rect.origin.y, &rect.size.width, &rect.size.height});
    return isRead ? std::optional(rect) : std::nullopt;
}

std::optional<NSEdgeInsets> NSEdgeInsets::fromString(std::string_view text) {
    NSEdgeInsets insets;
    bool const isRead = readText(text, four, {&insets.top, &insets.left, &insets.bottom, &insets.right});
    return isRead ? std::optional(insets) : std::nullopt;
}

std::optional<NSColor> NSColor::fromString(std::string_view text) {
    NSColor color;
    bool const isRead = readText(text, four, {&color.red, &color.green, &color.blue, &color.alpha});
    return isRead ? std::optional(color) : std::nullopt;
}

std::ostream& operator<<(std::ostream& out, NSPoint const& point) { return out << point.description(); }
std::ostream& operator<<(std::ostream& out, NSSize const& size) { return out << size.description(); }
std::ostream& operator<<(std::ostream& out, NSRect const& rect) { return out << rect.description(); }
std::ostream& operator<<(std::ostream& out, NSEdgeInsets const& insets) { return out << insets.description(); }
std::ostream& operator<<(std::ostream& out, NSColor const& color) { return out << color.description(); }

} // namespace Tessarin

using namespace Tessarin;

std::size_t std::hash<NSPoint>::operator()(NSPoint const& point) const noexcept { return hashOf({point.x, point.y}); }
std::size_t std::hash<NSSize>::operator()(NSSize const& size) const noexcept { return hashOf({size.width, size.height}); }
std::size_t std::hash<NSRect>::operator()(NSRect const& rect) const noexcept {
    return hashOf({rect.origin.x, rect.origin.y, rect.size.width, rect.size.height});
}
std::size_t std::hash<NSEdgeInsets>::operator()(NSEdgeInsets const& insets) const noexcept {
    return hashOf({insets.top, insets.left, insets.bottom, insets.right});
}
std::size_t std::hash<NSColor>::operator()(NSColor const& color) const noexcept {
    return hashOf({color.red, color.green, color.blue, color.alpha});
}
