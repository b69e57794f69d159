#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>
// What other rooms add to data:
#include "Tessarin/system/NSData+Hexadecimal.h"

namespace Tessarin {

class NSURL;

/// Immutable bytes: a value of sixteen bytes whose copies share them. Any thread.
///
///     auto const note = NSData::contentsOfURL(url);
///     NSData::dataWithText("done").writeToURL(url);
class TESSARIN_API NSData : public NSDataHexadecimal {
public:
    NSData();
    explicit NSData(std::vector<std::byte> bytes);
    static NSData dataWithBytes(std::span<std::byte const> bytes);
    static NSData dataWithText(std::string_view text);

    /// All bytes of a file. Throws ErrorException (an errno) when it cannot be read.
    static NSData contentsOfURL(NSURL const& url);
    static NSData contentsOfFile(std::string const& path);
    /// Replaces the file's content in one step, so that a reader finds the old bytes or the new; they are synced before.
    /// Throws ErrorException, and the file stays as it was. Follows a symbolic link and keeps the mode of an existing file.
    void writeToURL(NSURL const& url) const;
    void writeToFile(std::string const& path) const;

    std::span<std::byte const> bytes() const noexcept { return value_.bytes(); }
    std::size_t length() const noexcept { return bytes().size(); }
    std::string_view text() const noexcept { return {reinterpret_cast<char const*>(bytes().data()), length()}; }

    std::string description() const;
    friend bool operator==(NSData const& a, NSData const& b) noexcept { return a.text() == b.text(); }
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSData const& data);

private:
    friend struct ValueTraits<NSData>;
    Value value_; // always of kind Data
};

template <> struct ValueTraits<NSData> {
    static Value into(NSData const& data) { return data.value_; }
    static TESSARIN_API std::optional<NSData> from(Value const& value);
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSData> {
    std::size_t operator()(Tessarin::NSData const& data) const noexcept { return std::hash<std::string_view>{}(data.text()); }
};
