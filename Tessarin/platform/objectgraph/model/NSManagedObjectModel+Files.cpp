// Models from files and folders.
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/bundles/PropertyList.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/model/ModelDocument.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view versionEnding = ".xcdatamodel", versionsEnding = ".xcdatamodeld";

Ref<NSManagedObjectModel> failure(std::string* problem, std::string text) {
    if (problem) *problem = std::move(text);
    return nullptr;
}

bool isFolder(fs::path const& path) {
    std::error_code ignored;
    return fs::is_directory(path, ignored);
}

/// What stands directly in a folder, in the order of the names; nothing when it cannot be read.
std::vector<fs::path> entriesOf(fs::path const& folder) {
    std::vector<fs::path> entries;
    std::error_code failed;
    for (fs::directory_iterator at{folder, failed}, end; !failed && at != end; at.increment(failed))
        entries.push_back(at->path());
    std::ranges::sort(entries);
    return entries;
}

std::vector<fs::path> versionFolders(fs::path const& folder) {
    auto entries = entriesOf(folder);
    std::erase_if(entries, [](auto const& entry) { return entry.extension() != versionEnding || !isFolder(entry); });
    return entries;
}

/// The name under which the folder notes its current version; empty when it does not.
std::string currentVersion(fs::path const& folder) {
    try {
        auto const note = PropertyList::contentsOfURL(NSURL::fileURLWithPath((folder / ".xccurrentversion").native()));
        return std::string{note.dictionary()["_XCCurrentVersionName"].text()};
    } catch (ErrorException const&) {
        return {}; // a folder with one version does without the note
    }
}

Ref<NSManagedObjectModel> modelOfDocument(fs::path const& path, std::string* problem) {
    std::error_code failed;
    if (!fs::is_regular_file(path, failed)) return failure(problem, path.native() + ": there is no such document");
    std::string reason;
    try {
        auto const content = NSData::contentsOfFile(path);
        if (auto definition = parseModelDocument(content.text(), reason))
            if (auto model = NSManagedObjectModel::modelWithDefinition(*std::move(definition), &reason)) return model;
    } catch (ErrorException const& unreadable) {
        reason = unreadable.error()->localizedDescription();
    }
    return failure(problem, path.native() + ": " + reason);
}

Ref<NSManagedObjectModel> modelOfVersions(fs::path const& folder, std::string* problem) {
    auto const versions = versionFolders(folder);
    auto const current = currentVersion(folder);
    auto const found = current.empty() ? versions.begin() : std::ranges::find(versions, folder / current);
    if (found == versions.end()) return failure(problem, folder.native() + ": the version " + current + " is missing");
    if (current.empty() && versions.size() > 1)
        return failure(problem, folder.native() + ": which version is current is not noted");
    return modelOfDocument(*found / "contents", problem);
}

} // namespace

Ref<NSManagedObjectModel> NSManagedObjectModel::contentsOfURL(NSURL const& url, std::string* problem) {
    fs::path const path = url.path();
    if (!url.isFileURL() || path.empty() || path.native().find('\0') != path.native().npos)
        return failure(problem, url.absoluteString() + " is not a file");
    if (!isFolder(path)) return modelOfDocument(path, problem);
    return path.extension() == versionsEnding ? modelOfVersions(path, problem) : modelOfDocument(path / "contents", problem);
}

std::map<std::string, Ref<NSManagedObjectModel>, std::less<>> NSManagedObjectModel::versionsOfURL(NSURL const& url) {
    std::map<std::string, Ref<NSManagedObjectModel>, std::less<>> models;
    fs::path const path = url.path();
    if (!url.isFileURL() || path.native().find('\0') != path.native().npos) return models;
    auto const folders = path.extension() == versionsEnding ? versionFolders(path) : std::vector{path};
    for (auto const& folder : folders)
        if (auto model = modelOfDocument(folder / "contents", nullptr)) models.emplace(folder.stem().native(), std::move(model));
    return models;
}

Ref<NSManagedObjectModel> NSManagedObjectModel::mergedModelFromBundles(std::optional<std::vector<Ref<NSBundle>>> const& bundles) {
    std::vector<Ref<NSManagedObjectModel>> models;
    auto const searched = bundles ? *bundles : std::vector{NSBundle::mainBundle()};
    for (auto const& bundle : searched)
        for (auto const* extension : {"xcdatamodeld", "xcdatamodel"})
            for (auto const& url : bundle->URLsForResourcesWithExtension(extension)) {
                if (!isFolder(url.path())) continue;
                auto model = contentsOfURL(url);
                if (!model) return nullptr;
                models.push_back(std::move(model));
            }
    return models.empty() ? nullptr : modelByMergingModels(models);
}

} // namespace Tessarin
