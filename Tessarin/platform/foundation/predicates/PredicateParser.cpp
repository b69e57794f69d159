#include "Tessarin/platform/foundation/predicates/PredicateParserPrivate.h"

#include "Tessarin/platform/foundation/predicates/PredicateFormatPrivate.h"

#include <fmt/format.h>
#include <algorithm>
#include <limits>

namespace Tessarin {
namespace {

using Modifier = NSComparisonPredicateModifier;
using Operator = NSPredicateOperatorType;

constexpr std::size_t deepestNesting = 200; // each level takes some of the stack

struct Named {
    std::string_view text;
    Operator type;
};
constexpr Named operators[] = {
    {"==", Operator::EqualTo},
    {"=", Operator::EqualTo},
    {"!=", Operator::NotEqualTo},
    {"<>", Operator::NotEqualTo},
    {"<", Operator::LessThan},
    {"<=", Operator::LessThanOrEqualTo},
    {"=<", Operator::LessThanOrEqualTo},
    {">", Operator::GreaterThan},
    {">=", Operator::GreaterThanOrEqualTo},
    {"=>", Operator::GreaterThanOrEqualTo},
    {"IN", Operator::In},
    {"CONTAINS", Operator::Contains},
    {"BETWEEN", Operator::Between},
    {"BEGINSWITH", Operator::BeginsWith},
    {"ENDSWITH", Operator::EndsWith},
    {"LIKE", Operator::Like},
    {"MATCHES", Operator::Matches},
    {"FINDS", Operator::Finds},
};

constexpr std::string_view collectionOperators[] = {"@count", "@sum", "@avg", "@min", "@max"};

bool sameLetters(std::string_view keyword, std::string_view word) {
    auto const upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
    return std::ranges::equal(keyword, word, {}, {}, upper);
}

} // namespace

PredicateParser::PredicateParser(std::string_view format, List const& arguments)
    : format_(format), tokens_(predicateTokens(format, arguments, problem_, problemAt_)) {}

std::string PredicateParser::problem() const {
    return fmt::format("the predicate format \"{}\" cannot be read at character {}: {}", format_, problemAt_ + 1, problem_);
}

std::nullptr_t PredicateParser::fail(std::string problem) {
    if (problem_.empty() || current().at >= problemAt_) {
        problem_ = std::move(problem);
        problemAt_ = current().at;
    }
    return nullptr;
}

bool PredicateParser::isKeyword(std::string_view keyword) const {
    return current().kind == Token::Kind::Word && sameLetters(keyword, current().text);
}

bool PredicateParser::take(std::string_view symbol, std::string_view keyword) {
    if (!isSymbol(symbol) && (keyword.empty() || !isKeyword(keyword))) return false;
    ++next_;
    return true;
}

Ref<NSPredicate> PredicateParser::parse() {
    if (tokens_.empty()) return nullptr;
    auto predicate = disjunction();
    if (predicate && current().kind != Token::Kind::End) return fail("a condition ends here, AND or OR is expected");
    return predicate;
}

Ref<NSPredicate> PredicateParser::disjunction() {
    auto first = conjunction();
    if (!first) return nullptr;
    std::vector<Ref<NSPredicate>> parts{std::move(first)};
    while (take("||", "OR")) {
        parts.push_back(conjunction());
        if (!parts.back()) return nullptr;
    }
    return parts.size() == 1 ? parts.front() : NSCompoundPredicate::orPredicateWithSubpredicates(std::move(parts));
}

Ref<NSPredicate> PredicateParser::conjunction() {
    auto first = negation();
    if (!first) return nullptr;
    std::vector<Ref<NSPredicate>> parts{std::move(first)};
    while (take("&&", "AND")) {
        parts.push_back(negation());
        if (!parts.back()) return nullptr;
    }
    return parts.size() == 1 ? parts.front() : NSCompoundPredicate::andPredicateWithSubpredicates(std::move(parts));
}

Ref<NSPredicate> PredicateParser::negation() {
    bool negated = false;
    while (take("!", "NOT")) negated = !negated;
    auto predicate = primary();
    return predicate && negated ? NSCompoundPredicate::notPredicateWithSubpredicate(std::move(predicate)) : predicate;
}

Ref<NSPredicate> PredicateParser::primary() {
    if (take({}, "TRUEPREDICATE")) return NSPredicate::predicateWithValue(true);
    if (take({}, "FALSEPREDICATE")) return NSPredicate::predicateWithValue(false);
    if (!isSymbol("(")) return comparison();
    // A parenthesis opens a condition, or else an expression of a comparison.
    auto const opened = next_;
    if (auto predicate = inParentheses()) return predicate;
    next_ = opened;
    return comparison();
}

Ref<NSPredicate> PredicateParser::inParentheses() {
    if (depth_ == deepestNesting) return fail("the conditions are nested too deeply");
    ++depth_;
    ++next_;
    auto predicate = disjunction();
    --depth_;
    if (!predicate) return nullptr;
    return take(")") ? predicate : fail("a closing parenthesis is expected");
}

Ref<NSPredicate> PredicateParser::comparison() {
    bool const none = take({}, "NONE");
    auto modifier = Modifier::Direct;
    if (none || take({}, "ANY") || take({}, "SOME"))
        modifier = Modifier::Any;
    else if (take({}, "ALL"))
        modifier = Modifier::All;
    auto left = expression();
    if (!left) return nullptr;
    auto const found = comparator();
    if (!found) return nullptr;
    auto right = expression();
    if (!right) return nullptr;
    if (auto problem = NSComparisonPredicate::problemWith(*right, found->type); !problem.empty()) return fail(std::move(problem));
    auto predicate = NSComparisonPredicate::predicateWithLeftExpression(std::move(left), std::move(right), found->type, modifier,
                                                                        found->options);
    if (none) return NSCompoundPredicate::notPredicateWithSubpredicate(std::move(predicate));
    return predicate;
}

std::optional<PredicateParser::Comparator> PredicateParser::comparator() {
    auto const isMeant = [this](auto const& named) { return isSymbol(named.text) || isKeyword(named.text); };
    auto const* const found = std::ranges::find_if(operators, isMeant);
    if (found == std::end(operators)) {
        constexpr std::string_view arithmetic = "+-*/&|^~<<>>**";
        if (isSymbol("["))
            fail("members by position are not supported");
        else if (current().kind == Token::Kind::Symbol && arithmetic.find(current().text) != arithmetic.npos)
            fail("arithmetic and bit operators are not supported");
        else
            fail("a comparison such as == or IN is expected");
        return {};
    }
    ++next_;
    auto const letters = options();
    return letters ? std::optional(Comparator{found->type, *letters}) : std::nullopt;
}

std::optional<TextOptions> PredicateParser::options() {
    if (!take("[")) return TextOptions::None;
    auto options = TextOptions::None;
    auto const letters = current().kind == Token::Kind::Word ? std::string_view{current().text} : std::string_view{"?"};
    for (auto const letter : letters) switch (letter) {
        case 'c':
        case 'C': options = options | TextOptions::CaseInsensitive; break;
        case 'd':
        case 'D': options = options | TextOptions::DiacriticInsensitive; break;
        case 'n':
        case 'N': options = options | TextOptions::Normalized; break;
        default: fail("the options of a comparison are c, d and n"); return {};
        }
    ++next_;
    if (take("]")) return options;
    fail("the options of a comparison are c, d and n");
    return {};
}

Ref<NSExpression> PredicateParser::expression() {
    if (depth_ == deepestNesting) return fail("the expressions are nested too deeply");
    ++depth_;
    auto result = simpleExpression();
    --depth_;
    return result;
}

Ref<NSExpression> PredicateParser::simpleExpression() {
    auto const token = current();
    switch (token.kind) {
    case Token::Kind::Constant: ++next_; return NSExpression::expressionForConstantValue(token.value);
    case Token::Kind::Variable: ++next_; return path(NSExpression::expressionForVariable(token.text), {});
    case Token::Kind::Key:
    case Token::Kind::Path: ++next_; return path(nullptr, token.text);
    case Token::Kind::Word: return keywordExpression();
    case Token::Kind::End: return fail("the format ends where an expression is expected");
    case Token::Kind::Symbol: break;
    }
    if (isSymbol("{")) return list();
    if (!take("(")) return fail("an expression is expected");
    auto inner = expression();
    if (!inner) return nullptr;
    return take(")") ? inner : fail("a closing parenthesis is expected");
}

Ref<NSExpression> PredicateParser::keywordExpression() {
    if (take({}, "NIL") || take({}, "NULL")) return NSExpression::expressionForConstantValue({});
    if (take({}, "YES") || take({}, "TRUE")) return NSExpression::expressionForConstantValue(true);
    if (take({}, "NO") || take({}, "FALSE")) return NSExpression::expressionForConstantValue(false);
    if (take({}, "INF")) return NSExpression::expressionForConstantValue(std::numeric_limits<double>::infinity());
    if (take({}, "SELF")) return isSymbol(".") ? path(nullptr, {}) : NSExpression::expressionForEvaluatedObject();
    auto const word = current().text;
    if (tokens_[next_ + 1].text == "(" && tokens_[next_ + 1].kind == Token::Kind::Symbol)
        return fail(word + "(…) is not supported");
    if (isFormatKeyword(word))
        return fail("an expression is expected before " + word + "; a key of that name is written #" + word);
    std::string first;
    return appendComponent(first) ? path(nullptr, std::move(first)) : nullptr;
}

Ref<NSExpression> PredicateParser::path(Ref<NSExpression> start, std::string text) {
    while (take("."))
        if (!appendComponent(text)) return nullptr;
    if (text.empty()) return start;
    if (static_cast<std::size_t>(std::ranges::count(text, '.')) >= deepestNesting) return fail("the key path is too long");
    return NSExpression::expressionForKeyPath(text, std::move(start));
}

bool PredicateParser::appendComponent(std::string& path) {
    auto const& token = current();
    if (token.kind != Token::Kind::Word && token.kind != Token::Kind::Key && token.kind != Token::Kind::Path)
        return fail("a key is expected"), false;
    if (token.text.starts_with('@') && std::ranges::find(collectionOperators, token.text) == std::end(collectionOperators))
        return fail("the collection operator " + token.text + " is not supported"), false;
    path += (path.empty() ? "" : ".") + token.text;
    ++next_;
    return true;
}

Ref<NSExpression> PredicateParser::list() {
    ++next_;
    std::vector<Ref<NSExpression>> members;
    while (!take("}")) {
        if (!members.empty() && !take(",")) return fail("a comma or a closing brace is expected");
        members.push_back(expression());
        if (!members.back()) return nullptr;
    }
    auto aggregate = NSExpression::expressionForAggregate(std::move(members));
    return aggregate->isConstant() ? NSExpression::expressionForConstantValue(aggregate->expressionValueWithObject({}))
                                   : aggregate;
}

} // namespace Tessarin
