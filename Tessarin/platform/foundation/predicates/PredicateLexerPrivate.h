#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <string>
#include <vector>

namespace Tessarin {

/// A word of a predicate format, with the argument that it takes already in its place.
struct PredicateToken {
    enum class Kind {
        End,
        Word,     // a key or a keyword; "@count" too
        Key,      // a key that was marked with "#"
        Path,     // %K
        Constant, // a number, a quoted text, %@, %d
        Variable, // $NAME
        Symbol    // an operator, a bracket, a comma, a full stop
    };
    Kind kind = Kind::End;
    std::string text; // as written, without marks; the path of a Path
    Value value;      // of a Constant
    std::size_t at = 0; // position in the format
};

/// Takes a format apart. Empty when it holds what no format may hold, or when arguments are missing, left over or of a wrong
/// kind; `problem` and `at` then say what and where. Else the last token is of kind End.
std::vector<PredicateToken> predicateTokens(std::string_view format, List const& arguments, std::string& problem,
                                            std::size_t& at);

} // namespace Tessarin
