#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Whether values of one type are values of another: each of them (an integer in a wider one), those that come out the same
/// (a double that is whole, in an integer), none.
enum class ValueConversion { Always, WhereExact, Never };
ValueConversion conversionBetween(NSAttributeType from, NSAttributeType to) noexcept;

/// A type in words: "Integer 16".
char const* nameOf(NSAttributeType type) noexcept;

/// Makes `tessarin_converted(value, from, to)` known to a connection: a stored number of the one type as it is stored for the
/// other, the types by their numbers; NULL for NULL and where the other type would not give back the same number.
void registerValueConversion(SQLite::Connection& connection);

} // namespace Tessarin
