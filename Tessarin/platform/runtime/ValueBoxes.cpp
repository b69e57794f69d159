#include "Tessarin/platform/runtime/ValueBoxesPrivate.h"

#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {

void ValueBoxes::destroy(Counter* box, Value::Kind kind) noexcept {
    using Kind = Value::Kind;
    switch (kind) {
    case Kind::UUID: delete static_cast<Box<std::array<std::uint8_t, 16>>*>(box); break;
    case Kind::Data: delete static_cast<Box<std::vector<std::byte>>*>(box); break;
    case Kind::URL: delete static_cast<Box<std::string>*>(box); break;
    case Kind::Decimal: delete static_cast<Box<Decimal>*>(box); break;
    case Kind::Object: delete static_cast<Box<Ref<NSObject>>*>(box); break;
    case Kind::List: delete static_cast<Box<List>*>(box); break;
    case Kind::Set: delete static_cast<Box<ValueSet>*>(box); break;
    case Kind::Dictionary: delete static_cast<Box<Dictionary>*>(box); break;
    case Kind::ValueDictionary: delete static_cast<Box<ValueDictionary>*>(box); break;
    default: break; // held in the value itself
    }
}

} // namespace Tessarin
