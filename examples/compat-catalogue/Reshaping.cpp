#include "Reshaping.h"

#include <algorithm>
#include <charconv>

using namespace Tessarin;

namespace Catalogue {
namespace {

/// What stands under version_added or version_removed.
struct VersionValue {
    Value text;    // "12.1", "≤12.1", "preview"
    Value truth;   // true: since some version that nobody knows; false: not at all
    Value ordinal; // of a version that is a number
    bool isAtLatest = false;

    explicit VersionValue(Value const& raw) {
        // Three kinds of values under one key. An attribute holds one kind: importing a Boolean into a text attribute would
        // clear it, importing a text such as "12.1" into a Boolean attribute would make it false. null says "unknown",
        // which is what remains when neither attribute is set.
        if (raw.kind() == Value::Kind::Boolean) truth = raw;
        if (!raw.isText()) return;
        text = raw;
        // "≤12.1": the data's authors tested 12.1 and nothing before it, so the feature came then or earlier.
        constexpr std::string_view atLatest = "≤";
        isAtLatest = raw.text().starts_with(atLatest);
        // "preview" is in no released version yet; it has no number.
        ordinal = ordinalOf(raw.text().substr(isAtLatest ? atLatest.size() : 0));
    }
};

/// Texts, of which the data has one or a list, as one text with a line for each.
Value lines(Value const& raw) {
    std::string text;
    for (auto const& line : asList(raw))
        if (line.isText()) text += (text.empty() ? "" : "\n") + std::string(line.text());
    return text.empty() ? Value() : Value(text);
}

/// "preference #some-flag = Enabled": a list of dictionaries in the data, which the import would ignore.
Value describedFlags(Value const& raw) {
    List texts;
    for (auto const& flag : raw.list()) {
        auto const& parts = flag.dictionary();
        std::string text = std::string(parts["type"].text()) + " " + std::string(parts["name"].text());
        if (auto const* value = parts.find("value_to_set")) text += " = " + std::string(value->text());
        texts.push_back(text);
    }
    return lines(texts);
}

void copy(Dictionary& to, Dictionary const& from, std::initializer_list<char const*> keys) {
    for (auto const* key : keys)
        if (auto const* value = from.find(key)) to.append(key, *value);
}

Dictionary shapedStatement(Dictionary const& raw, Value const& browser, std::int64_t position) {
    VersionValue const added(raw["version_added"]), removed(raw["version_removed"]);
    auto const flags = describedFlags(raw["flags"]);
    bool const isAdded = !added.ordinal.isAbsent() || added.truth.boolean();
    bool const isRemoved = !removed.text.isAbsent() || removed.truth.boolean(); // false is written for "not removed"
    Dictionary shaped;
    shaped.reserve(16);
    shaped.append("browser", browser);
    shaped.append("position", position);
    shaped.append("addedVersion", added.text);
    shaped.append("addedTruth", added.truth);
    shaped.append("addedOrdinal", added.ordinal);
    shaped.append("addedAtLatest", added.isAtLatest);
    shaped.append("removedVersion", removed.text);
    shaped.append("removedTruth", removed.truth);
    shaped.append("removedOrdinal", removed.ordinal);
    shaped.append("isPlain",
                  isAdded && !isRemoved && flags.isAbsent() && !raw.contains("prefix") && !raw.contains("alternative_name"));
    shaped.append("flags", flags);
    shaped.append("notes", lines(raw["notes"]));
    copy(shaped, raw, {"partial_implementation", "prefix", "alternative_name", "impl_url"});
    return shaped;
}

} // namespace

std::optional<std::int64_t> ordinalOf(std::string_view version) {
    std::int64_t ordinal = 0;
    for (std::int64_t weight = 1'000'000; weight > 0; weight /= 1000) {
        unsigned part = 0;
        auto const [end, error] = std::from_chars(version.data(), version.data() + version.size(), part);
        if (error != std::errc{} || part > 999) return {};
        ordinal += part * weight;
        version.remove_prefix(static_cast<std::size_t>(end - version.data()));
        if (version.empty()) return ordinal;
        if (version.front() != '.') return {};
        version.remove_prefix(1);
    }
    return {}; // a fourth part
}

Dictionary shapedBrowser(std::string_view identifier, Dictionary const& raw) {
    Dictionary shaped{{"identifier", identifier}};
    copy(shaped, raw, {"name", "type", "preview_name", "pref_url", "accepts_flags", "accepts_webextensions"});
    return shaped;
}

std::vector<Dictionary> shapedReleases(Dictionary const& browser) {
    std::vector<Dictionary> releases;
    for (auto const& [version, raw] : browser["releases"].dictionary()) {
        // The raw keys are attributes of Release already. Dates stay "2008-12-11": Release reads them.
        auto release = raw.dictionary();
        release.set("version", version);
        release.set("ordinal", ordinalOf(version));
        releases.push_back(std::move(release));
    }
    // The file sorts versions as texts: "1", "10", "100", "11", "2".
    std::ranges::stable_sort(releases, {}, [](auto const& release) { return release["ordinal"].integer(); });
    return releases;
}

Dictionary shapedFeature(Node const& node) {
    Dictionary shaped{{"path", node.path}, {"name", node.name}, {"isFeature", node.compat != nullptr}};
    if (!node.compat) return shaped;
    // A class of objects has a `description` already, so the attribute is called summary.
    shaped.append("summary", (*node.compat)["description"]);
    shaped.append("specURLs", lines((*node.compat)["spec_url"]));
    copy(shaped, *node.compat, {"mdn_url", "source_file", "status"}); // status is a relationship: a nested dictionary
    return shaped;
}

std::vector<Dictionary> shapedStatements(Node const& node) {
    std::vector<Dictionary> shaped;
    if (!node.compat) return shaped;
    // In the data a dictionary by browser, of one statement or a list of them (some 4,000 times). The import follows nested
    // dictionaries but ignores lists, so each statement becomes a dictionary that names its browser.
    for (auto const& [identifier, statements] : (*node.compat)["support"].dictionary()) {
        Value const browser(Dictionary{{"identifier", identifier}});
        std::int64_t position = 0;
        for (auto const& statement : asList(statements))
            shaped.push_back(shapedStatement(statement.dictionary(), browser, position++));
    }
    return shaped;
}

} // namespace Catalogue
