#include "Tessarin/platform/foundation/preferences/DefaultsDocumentPrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsScanPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin::defaults {
namespace {

/// The first part of the key of a statement.
Text firstKey(std::string_view statement) {
    statement.remove_prefix(std::min(statement.find_first_not_of("[ \t"), statement.size()));
    if (!statement.starts_with('"') && !statement.starts_with('\''))
        return statement.substr(0, statement.find_first_of(" \t.=]\r\n"));
    return dictionaryFromTOML(std::string{statement.substr(0, behindString(statement, 0))} + " = 0").begin()->key;
}

std::string line(Dictionary::Entry const& entry) { return tomlKey(entry.key) + " = " + tomlValue(entry.value); }

} // namespace

DefaultsDocument::DefaultsDocument(std::string text) : text_(std::move(text)), values_(dictionaryFromTOML(text_)) {
    statements_ = statements(text_, after_);
}

std::vector<DefaultsDocument::Statement> DefaultsDocument::statements(std::string_view text, std::string& after) {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    std::vector<Statement> found;
    for (std::size_t at = 0;;) {
        auto const begin = behindTrivia(text, at);
        if (begin == text.size()) {
            after = text.substr(at);
            return found;
        }
        auto const extent = extentFrom(text, begin);
        auto const valueEnd = extent.valueEnd, end = extent.end;
        std::string before{text.substr(at, begin - at)}, body{text.substr(begin, valueEnd - begin)},
            ending{text.substr(valueEnd, end - valueEnd)};
        bool const isSection = text[begin] == '[';
        if (!isSection && !found.empty() && found.back().isSection) {
            auto& section = found.back();
            section.body += section.ending + before + body;
            section.ending = std::move(ending);
        } else {
            found.push_back({firstKey(body), isSection, std::move(before), std::move(body), std::move(ending)});
        }
        at = end;
    }
}

void DefaultsDocument::apply(std::vector<Dictionary::Entry> const& changes) {
    Changes open; // what is not in the text yet
    for (auto const& change : changes) {
        auto const* const now = values_.find(change.key);
        if (now ? !isSame(*now, change.value) : !change.value.isAbsent()) open.emplace(change.key, &change);
    }
    if (open.empty()) return;
    Dictionary values;
    values.reserve(values_.size() + open.size());
    for (auto const& [key, value] : values_)
        if (!open.contains(key)) values.append(key, value);
    for (auto const& [key, change] : open)
        if (!change->value.isAbsent()) values.append(change->key, change->value);
    values_ = std::move(values);

    std::vector<Statement> kept, fresh;
    for (auto& statement : statements_)
        if (staysAfter(statement, open)) kept.push_back(std::move(statement));
    for (auto const& change : changes)
        if (auto const found = open.find(change.key); found != open.end() && found->second == &change && !change.value.isAbsent())
            fresh.push_back({change.key, false, {}, line(change), "\n"});
    // Behind the first section everything would belong to sections.
    auto const place = std::ranges::find(kept, true, &Statement::isSection);
    if (place != kept.begin() && !std::prev(place)->ending.ends_with('\n')) std::prev(place)->ending += '\n';
    kept.insert(place, std::make_move_iterator(fresh.begin()), std::make_move_iterator(fresh.end()));
    statements_ = std::move(kept);
    text_ = joined();
}

/// Whether a statement stays, perhaps with another value. A table may be in several, and a section gives way to a new line.
bool DefaultsDocument::staysAfter(Statement& statement, Changes& open) {
    auto const found = open.find(statement.key);
    if (found == open.end()) return true;
    auto const* const change = found->second;
    if (!change || change->value.isAbsent() || statement.isSection) return false;
    statement.body = line(*change);
    found->second = nullptr; // done
    return true;
}

std::string DefaultsDocument::joined() const {
    std::string text;
    for (auto const& statement : statements_) text += statement.before + statement.body + statement.ending;
    return text + after_;
}

} // namespace Tessarin::defaults
