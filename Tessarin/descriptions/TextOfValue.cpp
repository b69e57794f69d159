#include "Tessarin/descriptions/TextOfValue.h"

#include <sstream>

namespace Tessarin::descriptions {

std::string streamedText(FunctionRef<void(std::ostream&)> write) {
    std::ostringstream text;
    write(text);
    return std::move(text).str();
}

} // namespace Tessarin::descriptions
