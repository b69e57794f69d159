#pragma once
#include "Tessarin/platform/objectgraph/model/NSPropertyDescription.h"

namespace Tessarin {

class NSError;
class TextPattern;

/// An attribute of an entity: its type, its default and its bounds. Immutable; any thread.
///
///     if (auto error = attribute.validate(value)) report(error->localizedDescription());
class TESSARIN_API NSAttributeDescription : public NSPropertyDescription {
public:
    NSAttributeType attributeType() const noexcept { return definition_.type; }
    /// The initial value, already of the kind that the type holds; absent when there is none.
    Value const& defaultValue() const noexcept { return definition_.options.defaultValue; }

    /// Bounds of a number, of a date's seconds since 2001, of a text's count of code points. Checked at save.
    std::optional<double> minimum() const noexcept { return definition_.options.minimum; }
    std::optional<double> maximum() const noexcept { return definition_.options.maximum; }
    /// The pattern that the whole text must match; empty when there is none.
    std::string const& regularExpression() const noexcept { return definition_.options.regularExpression; }

    bool isIndexed() const noexcept { return definition_.options.indexed; }
    /// Whether its value stays in the store's history when the record is deleted: by the option of that name, or "YES" under that
    /// key in the user info of a document.
    bool isKeptInHistory() const noexcept { return definition_.options.keptInHistory; }
    /// Whether stores keep an index of its words.
    bool isFullText() const noexcept { return definition_.options.fullText; }
    bool allowsExternalBinaryDataStorage() const noexcept { return definition_.options.allowsExternalBinaryDataStorage; }
    bool isDerived() const noexcept { return definition_.options.derived; }
    std::string const& derivationExpression() const noexcept { return definition_.options.derivationExpression; }
    std::string const& valueTransformerName() const noexcept { return definition_.options.valueTransformerName; }

    std::string const& renamingIdentifier() const noexcept override { return definition_.options.renamingIdentifier; }
    std::string const& versionHashModifier() const noexcept override { return definition_.options.versionHashModifier; }
    UserInfo const& userInfo() const noexcept override { return definition_.options.userInfo; }
    AttributeDefinition const& definition() const noexcept { return definition_; }

    /// What is wrong with saving `value` here: it is absent though mandatory, of a kind that the type does not hold, out of
    /// its bounds, or does not match the pattern. Null when it is fine. The message names entity and property.
    Ref<NSError> validate(Value const& value) const;
    /// Whether values of that kind may be kept here. A number attribute takes any number; absent is always taken.
    bool holdsKindOf(Value const& value) const noexcept;

protected:
    NSAttributeDescription();
    using NSObject::init;
    virtual void init(AttributeDefinition definition);

private:
    AttributeDefinition definition_;
    Ref<TextPattern const> pattern_;
};

/// `value` in the kind that an attribute of `type` keeps: an integer for a double attribute becomes a double. Texts are
/// read for every other type ("YES", "0.0" and "100" are Booleans, "NO" is also the integer 0). Absent when it does not convert.
TESSARIN_API Value attributeValue(NSAttributeType type, Value value);

} // namespace Tessarin
