#include "Tessarin/platform/foundation/values/NSError.h"

#include <fmt/format.h>
#include <system_error>

namespace Tessarin {

Ref<NSError> NSError::errorWithDomain(std::string_view domain, std::int64_t code, Dictionary userInfo) {
    return make<NSError>(domain, code, std::move(userInfo));
}

Ref<NSError> NSError::errorWithErrno(int code, std::string_view path) {
    auto const words = std::generic_category().message(code);
    Dictionary userInfo;
    userInfo.append(NSLocalizedDescriptionKey, path.empty() ? words : fmt::format("{}: {}", path, words));
    if (!path.empty()) userInfo.append(NSFilePathErrorKey, path);
    return make<NSError>(NSPOSIXErrorDomain, code, std::move(userInfo));
}

void NSError::init(std::string_view domain, std::int64_t code, Dictionary userInfo) {
    NSObject::init();
    domain_ = domain;
    code_ = code;
    userInfo_ = std::move(userInfo);
}

std::string NSError::localizedDescription() const {
    if (auto const* text = userInfo_.find(NSLocalizedDescriptionKey); text && text->isText()) return std::string{text->text()};
    return fmt::format("The operation could not be completed ({} error {}).", domain_, code_);
}

std::string NSError::description() const {
    std::string text = fmt::format("Error Domain={} Code={} \"{}\"", domain_, code_, localizedDescription());
    if (!userInfo_.empty()) text += " UserInfo=" + Value(userInfo_).description();
    return text;
}

bool NSError::isEqual(NSObject const& other) const {
    auto const* error = dynamic_cast<NSError const*>(&other);
    return error && code_ == error->code_ && domain_ == error->domain_ && userInfo_ == error->userInfo_;
}

std::size_t NSError::hash() const { return std::hash<std::string>{}(domain_) ^ static_cast<std::size_t>(code_); }

} // namespace Tessarin
