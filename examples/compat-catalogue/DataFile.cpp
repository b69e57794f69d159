#include "DataFile.h"

#include "Tessarin/platform/foundation/json/JSON.h"
#include <stdexcept>

using namespace Tessarin;

namespace Catalogue {
namespace {

[[noreturn]] void reject(std::string const& place, std::string const& what) { throw std::runtime_error(place + ": " + what); }

Dictionary const& dictionaryAt(Value const& value, std::string const& place) {
    if (value.kind() != Value::Kind::Dictionary) reject(place, "an object is expected here");
    return value.dictionary();
}

} // namespace

List asList(Value const& value) { return value.kind() == Value::Kind::List ? value.list() : List{value}; }

DataFile::DataFile(std::string const& file) {
    auto const parsed = JSON::contentsOfURL(NSURL::fileURLWithPath(file));
    json_ = dictionaryAt(parsed, file);
    if (!json_.contains("browsers")) reject(file, "there are no browsers in it; is it a web-compatibility data set?");
    for (auto const& [identifier, browser] : dictionaryAt(json_["browsers"], "browsers"))
        countBrowser(identifier.string(), browser);
    for (auto const& [key, value] : json_) {
        if (key == "__meta" || key == "browsers") continue; // everything else is a root of the tree
        ++census_.roots;
        walk(value, key.string(), "", key.string());
    }
}

void DataFile::countBrowser(std::string const& identifier, Value const& browser) {
    auto const place = "browsers." + identifier;
    auto& counts = census_.browsers[identifier];
    for (auto const& [version, release] : dictionaryAt(dictionaryAt(browser, place)["releases"], place + ".releases")) {
        ++census_.releases;
        ++counts.releases;
        // Very old and very new releases have no date.
        if (dictionaryAt(release, place + ".releases." + version.string())["release_date"].isText()) ++counts.datedReleases;
    }
}

void DataFile::walk(Value const& value, std::string const& path, std::string const& parent, std::string const& name) {
    auto const& children = dictionaryAt(value, path);
    auto const* compat = children.find("__compat");
    if (compat) countFeature(dictionaryAt(*compat, path + ".__compat"), path);
    nodes_.push_back({path, parent, name, compat ? &compat->dictionary() : nullptr});
    ++census_.nodes;
    for (auto const& [key, child] : children)
        if (key != "__compat") walk(child, path + "." + key.string(), path, key.string());
}

void DataFile::countFeature(Dictionary const& compat, std::string const& path) {
    ++census_.features;
    if (auto const* status = compat.find("status")) {
        ++census_.statuses;
        if (dictionaryAt(*status, path + " status")["deprecated"].boolean()) ++census_.deprecated;
    }
    for (auto const& [browser, statements] : dictionaryAt(compat["support"], path + " support")) {
        auto const place = path + " support." + browser.string();
        auto const known = census_.browsers.find(browser.string());
        if (known == census_.browsers.end()) reject(place, "there is no such browser");
        // The sources of the data set say "mirror" where a browser follows its upstream; the published file has the result.
        if (statements.isText())
            reject(place, "\"" + std::string(statements.text()) + "\" is no statement; is this a source file of the data set?");
        for (auto const& statement : asList(statements)) {
            countStatement(dictionaryAt(statement, place), place);
            ++known->second.statements;
        }
    }
}

void DataFile::countStatement(Dictionary const& statement, std::string const& path) {
    ++census_.statements;
    auto const& added = statement["version_added"];
    if (added.kind() == Value::Kind::Boolean)
        ++(added.boolean() ? census_.addedTrue : census_.addedFalse);
    else if (added.isAbsent())
        ++census_.addedNull;
    else if (!added.isText())
        reject(path, "version_added is " + added.description());
    census_.addedAtLatest += added.text().starts_with("≤");
    census_.addedPreview += added.text() == "preview";
    auto const& removed = statement["version_removed"];
    census_.removed += removed.isText() || removed.boolean();
    census_.removedFalse += removed.kind() == Value::Kind::Boolean && !removed.boolean();
    census_.partial += statement["partial_implementation"].boolean();
    census_.flagged += !statement["flags"].list().empty();
}

} // namespace Catalogue
