#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/predicates/PredicateLexerPrivate.h"

namespace Tessarin {

/// Parses one format. OR binds weaker than AND, AND weaker than NOT.
class PredicateParser {
public:
    PredicateParser(std::string_view format, List const& arguments);
    /// Null for a malformed format; `problem()` is then one line that says what is wrong and where.
    Ref<NSPredicate> parse();
    std::string problem() const;

private:
    using Token = PredicateToken;
    struct Comparator {
        NSPredicateOperatorType type;
        TextOptions options;
    };

    Ref<NSPredicate> disjunction();
    Ref<NSPredicate> conjunction();
    Ref<NSPredicate> negation();
    Ref<NSPredicate> primary();
    Ref<NSPredicate> inParentheses();
    Ref<NSPredicate> comparison();
    std::optional<Comparator> comparator();
    std::optional<TextOptions> options();
    Ref<NSExpression> expression();
    Ref<NSExpression> simpleExpression();
    Ref<NSExpression> keywordExpression();
    Ref<NSExpression> list();
    Ref<NSExpression> path(Ref<NSExpression> start, std::string first);
    bool appendComponent(std::string& path);

    Token const& current() const { return tokens_[next_]; }
    bool isSymbol(std::string_view symbol) const { return current().kind == Token::Kind::Symbol && current().text == symbol; }
    bool isKeyword(std::string_view keyword) const;
    bool take(std::string_view symbol, std::string_view keyword = {});
    std::nullptr_t fail(std::string problem);

    std::string format_;
    std::string problem_; // the one that was met furthest on
    std::size_t problemAt_ = 0;
    std::vector<Token> tokens_; // after the problem: taking the format apart may note one
    std::size_t next_ = 0;
    std::size_t depth_ = 0;
};

} // namespace Tessarin
