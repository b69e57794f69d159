#pragma once
#include "Tessarin/descriptions/Describe.h"
#include <ostream>

namespace Tessarin {

/// Types that a failed assertion would else show as bytes.
template <class T>
concept ShownByFields =
    (std::is_class_v<T> || std::is_union_v<T> || std::is_enum_v<T>)&&!describing::Streamable<T> && !reflection::Iterable<T>;

/// Has GoogleTest show such a value, in its own messages and inside of containers, as `describe` does. It finds this for types of
/// this namespace and for those derived from `DefaultReflectable`; an application says once in its own namespace:
///
///     namespace app { using Tessarin::PrintTo; }
template <ShownByFields T> void PrintTo(T const& value, std::ostream* out) { *out << describe(value); }

} // namespace Tessarin
