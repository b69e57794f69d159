#include "Tessarin/platform/objectgraph/context/NearestKeysPrivate.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <set>

namespace Tessarin {
namespace {

constexpr std::size_t longestShown = 100;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// How many letters have to be put in, taken out or replaced to make one text of the other.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1); // of the letters of `a` so far, to each beginning of `b`
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            auto const replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

void collect(NSEntityDescription const& entity, std::string_view key, std::set<std::pair<std::size_t, std::string_view>>& found) {
    for (auto const* property : entity.properties()) {
        found.emplace(distance(key, std::string_view{property->name()}.substr(0, longestShown)), property->name());
        if (found.size() > 3) found.erase(std::prev(found.end()));
    }
    for (auto const* child : entity.subentities()) collect(*child, key, found);
}

} // namespace

std::string shownKey(std::string_view key) {
    std::string shown{key.substr(0, longestShown)};
    if (shown.size() < key.size()) shown.append("…");
    return shown;
}

std::string nearestKeys(NSEntityDescription const& entity, std::string_view key) {
    std::set<std::pair<std::size_t, std::string_view>> found;
    collect(entity, key.substr(0, longestShown), found);
    std::string text;
    std::size_t count = 0;
    for (auto const& [distance, name] : found) {
        auto const* const before = ++count == 1 ? "; the nearest: " : count < found.size() ? ", " : " and ";
        text += before + ('"' + std::string{name} + '"');
    }
    return text;
}

} // namespace Tessarin
