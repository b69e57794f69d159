#pragma once
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string_view>

// What the writer and the reader of preferences must agree about.
namespace Tessarin::defaults {

namespace tags {
inline constexpr std::string_view single = "float", data = "data", text = "text", uuid = "uuid", url = "url", decimal = "decimal",
                                  seconds = "seconds-since-2001", dictionary = "dictionary";
inline constexpr std::string_view all[] = {single, data, text, uuid, url, decimal, seconds, dictionary};
} // namespace tags

inline bool isTag(std::string_view key) { return std::ranges::find(tags::all, key) != std::end(tags::all); }

/// The day from which dates count.
inline constexpr std::chrono::sys_days referenceDay = std::chrono::year{2001} / std::chrono::January / 1;
inline double dateSeconds(std::int64_t whole, std::int64_t nanoseconds) {
    return static_cast<double>(whole) + static_cast<double>(nanoseconds) / 1e9;
}

} // namespace Tessarin::defaults
