#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"

#include "Tessarin/platform/foundation/predicates/TextPattern.h"

namespace Tessarin {

void NSAttributeDescription::init(AttributeDefinition definition) {
    NSObject::init();
    definition_ = std::move(definition);
    auto& options = definition_.options;
    options.defaultValue = attributeValue(definition_.type, options.defaultValue);
    if (options.renamingIdentifier.empty()) options.renamingIdentifier = definition_.name;
    if (!options.regularExpression.empty()) pattern_ = TextPattern::compile(options.regularExpression);
    auto const says = [&](std::string_view key) {
        auto const found = options.userInfo.find(key);
        return found != options.userInfo.end() && attributeValue(NSAttributeType::Boolean, Value(found->second)).boolean();
    };
    options.keptInHistory = options.keptInHistory || says("keptInHistory");
    options.fullText = options.fullText || says("fullText");
    isOptional_ = options.optional;
    isTransient_ = options.transient;
}

bool NSAttributeDescription::holdsKindOf(Value const& value) const noexcept {
    if (value.isAbsent()) return true;
    switch (attributeType()) {
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
    case NSAttributeType::Double:
    case NSAttributeType::Float:
    case NSAttributeType::Boolean:
    case NSAttributeType::Decimal: return value.isNumber() || value.kind() == Value::Kind::Decimal;
    case NSAttributeType::String: return value.isText();
    case NSAttributeType::Date: return value.kind() == Value::Kind::Date;
    case NSAttributeType::BinaryData: return value.kind() == Value::Kind::Data;
    case NSAttributeType::UUID: return value.kind() == Value::Kind::UUID;
    case NSAttributeType::URI: return value.kind() == Value::Kind::URL;
    default: return true;
    }
}

NSAttributeDescription::NSAttributeDescription() {
    name_ = &definition_.name;
    attribute_ = this;
}

} // namespace Tessarin
