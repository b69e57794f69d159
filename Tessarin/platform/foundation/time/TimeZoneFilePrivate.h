#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// What a TZif file says (RFC 8536), checked: types are within range, changes in order. Leap seconds are left out.
struct TimeZoneFile {
    struct Type {
        std::int32_t offset;
        bool isDaylight;
        std::string abbreviation;
    };
    struct Change {
        std::int64_t time; // seconds since 1970
        std::uint8_t type;
    };
    std::vector<Type> types; // the first is valid before all changes; never empty
    std::vector<Change> changes;
    std::string footer; // the rule after the last change; empty when that lasts for ever, and in files of version 1

    static std::optional<TimeZoneFile> fromContent(std::string_view content);
};

} // namespace Tessarin
