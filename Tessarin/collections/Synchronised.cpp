#include "Tessarin/collections/Synchronised.h"

#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin::detail {

void noQueue(char const* type, char const* operation) { fatal(std::string{type} + "." + operation + ": there is no queue"); }

} // namespace Tessarin::detail
