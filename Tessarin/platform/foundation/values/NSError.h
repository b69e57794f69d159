#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <exception>
#include <string>
#include <string_view>

namespace Tessarin {

/// The domain of errors of the operating system; the code is an errno value.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
/// The domain of texts and files that cannot be read as what they claim to be.
inline constexpr std::string_view NSFormatErrorDomain = "NSFormatErrorDomain";

// Keys of an error's userInfo.
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view NSUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr std::string_view NSFilePathErrorKey = "NSFilePath";

/// What went wrong: a domain, a code within it, and details. Immutable, any thread.
///
///     catch (ErrorException const& failure) { print(failure.error()->localizedDescription()); }
class TESSARIN_API NSError : public NSObject {
public:
    static Ref<NSError> errorWithDomain(std::string_view domain, std::int64_t code, Dictionary userInfo = {});
    /// The error of an errno value, with the system's words for it and the path it is about.
    static Ref<NSError> errorWithErrno(int code, std::string_view path = {});

    std::string const& domain() const noexcept { return domain_; }
    std::int64_t code() const noexcept { return code_; }
    Dictionary const& userInfo() const noexcept { return userInfo_; }
    /// The text under NSLocalizedDescriptionKey, else one made of domain and code.
    virtual std::string localizedDescription() const;
    std::string description() const override;
    /// Equal when domain, code and userInfo are.
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    using NSObject::init;
    virtual void init(std::string_view domain, std::int64_t code, Dictionary userInfo);

protected:
    NSError() = default;

private:
    std::string domain_; // all three constant after init
    std::int64_t code_ = 0;
    Dictionary userInfo_;
};

/// The exception that carries an NSError.
class TESSARIN_API ErrorException : public std::exception {
public:
    explicit ErrorException(Ref<NSError> error) : error_(std::move(error)), what_(error_->description()) {}
    Ref<NSError> const& error() const noexcept { return error_; }
    char const* what() const noexcept override { return what_.c_str(); }

private:
    Ref<NSError> error_;
    std::string what_;
};

} // namespace Tessarin
