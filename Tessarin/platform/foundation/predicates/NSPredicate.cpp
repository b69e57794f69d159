#include "Tessarin/platform/foundation/predicates/NSPredicate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/predicates/PredicateParserPrivate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <typeinfo>

namespace Tessarin {

void NSPredicate::init(bool value) {
    NSObject::init();
    value_ = value;
    if (type_ == NSPredicateType::Own && typeid(*this) == typeid(detail::Made<NSPredicate>)) type_ = NSPredicateType::Value;
}

Ref<NSPredicate> NSPredicate::predicateWithValue(bool value) { return make<NSPredicate>(value); }

Ref<NSPredicate> NSPredicate::predicateWithFormatArguments(std::string_view format, List const& arguments) {
    PredicateParser parser{format, arguments};
    auto predicate = parser.parse();
    if (!predicate) fatal(parser.problem());
    return predicate;
}

Ref<NSPredicate> NSPredicate::parse(std::string_view format, List const& arguments, Ref<NSError>* error) {
    PredicateParser parser{format, arguments};
    auto predicate = parser.parse();
    if (!predicate && error)
        *error = NSError::errorWithDomain(NSFormatErrorDomain, 1, {{NSLocalizedDescriptionKey, parser.problem()}});
    return predicate;
}

NSComparisonPredicate const* NSPredicate::asComparison() const noexcept {
    return type_ == NSPredicateType::Comparison ? static_cast<NSComparisonPredicate const*>(this) : nullptr;
}

NSCompoundPredicate const* NSPredicate::asCompound() const noexcept {
    return type_ == NSPredicateType::Compound ? static_cast<NSCompoundPredicate const*>(this) : nullptr;
}

bool NSPredicate::evaluateWithObject(Value const&) const { return value_; }

std::set<std::string> NSPredicate::keyPaths() const {
    std::set<std::string> paths;
    collectKeyPaths(paths);
    return paths;
}

void NSPredicate::collectKeyPaths(std::set<std::string>&) const {}

Ref<NSPredicate> NSPredicate::predicateWithSubstitutionVariables(Dictionary const&) const {
    return const_cast<NSPredicate&>(*this).self<NSPredicate>(); // it has none
}

std::string NSPredicate::predicateFormat() const {
    if (type_ == NSPredicateType::Own) return "<" + objectClass().name() + ">";
    return value_ ? "TRUEPREDICATE" : "FALSEPREDICATE";
}

bool NSPredicate::isEqual(NSObject const& object) const {
    if (type_ == NSPredicateType::Own) return this == &object;
    auto const* other = dynamic_cast<NSPredicate const*>(&object);
    return other && type_ == other->type_ && value_ == other->value_;
}

std::size_t NSPredicate::hash() const { return value_; }

} // namespace Tessarin
