#include "Tessarin/platform/foundation/bundles/NSBundle.h"

#include "Tessarin/platform/foundation/bundles/PropertyList.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <algorithm>
#include <filesystem>

namespace Tessarin {
namespace {

bool isFolder(NSURL const& url) { return url.isFileURL() && NSFileManager::defaultManager()->directoryExistsAtURL(url); }

std::string executableFolder() {
    std::error_code error;
    auto const executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::current_path(error).native() : executable.parent_path().native();
}

Dictionary readInfo(NSURL const& folder) {
    for (std::string_view const place : {"Contents/Info.plist", "Resources/Info.plist", "Info.plist"}) {
        auto const file = folder.URLByAppendingPathComponent(place);
        if (!NSFileManager::defaultManager()->fileExistsAtURL(file)) continue;
        try {
            return PropertyList::contentsOfURL(file).dictionary();
        } catch (ErrorException const&) {
            return {}; // an application without readable facts still has resources
        }
    }
    return {};
}

} // namespace

Ref<NSBundle> const& NSBundle::mainBundle() {
    static auto const& shared = *new Ref<NSBundle>(make<NSBundle>(NSURL::fileURLWithPath(executableFolder())));
    return shared;
}

Ref<NSBundle> NSBundle::bundleWithURL(NSURL const& url) { return isFolder(url) ? make<NSBundle>(url) : nullptr; }
Ref<NSBundle> NSBundle::bundleWithPath(std::string_view path) { return bundleWithURL(NSURL::fileURLWithPath(path)); }

void NSBundle::init(NSURL const& url) {
    NSObject::init();
    url_ = url;
}

std::optional<std::string> NSBundle::bundleIdentifier() const {
    if (auto set = identifier_.get()) return set;
    return infoDictionary()["CFBundleIdentifier"].as<std::string>();
}

Dictionary NSBundle::infoDictionary() const {
    if (auto const known = info_.get()) return known->dictionary();
    auto info = readInfo(*url_);
    info_.set(Value(info));
    return info;
}

std::vector<NSURL> NSBundle::resourceFolders(std::string_view subdirectory) const {
    std::vector<NSURL> folders;
    for (std::string_view const place : {"Contents/Resources", "Resources", ""}) {
        auto folder = place.empty() ? *url_ : url_->URLByAppendingPathComponent(place);
        if (!subdirectory.empty()) folder = folder.URLByAppendingPathComponent(subdirectory);
        if (isFolder(folder)) folders.push_back(std::move(folder));
    }
    return folders;
}

NSURL NSBundle::resourceURL() const {
    auto const folders = resourceFolders({});
    return folders.empty() ? *url_ : folders.front();
}

std::optional<NSURL> NSBundle::URLForResource(std::string_view name, std::string_view extension,
                                              std::string_view subdirectory) const {
    std::string file{name};
    if (!extension.empty()) file.append(1, '.').append(extension);
    for (auto const& folder : resourceFolders(subdirectory)) {
        auto url = folder.URLByAppendingPathComponent(file);
        if (NSFileManager::defaultManager()->fileExistsAtURL(url)) return url;
    }
    return {};
}

std::vector<NSURL> NSBundle::URLsForResourcesWithExtension(std::string_view extension, std::string_view subdirectory) const {
    std::vector<NSURL> found;
    for (auto const& folder : resourceFolders(subdirectory)) {
        try {
            for (auto& url : NSFileManager::defaultManager()->contentsOfDirectoryAtURL(folder))
                if (extension.empty() || url.pathExtension() == extension) found.push_back(std::move(url));
        } catch (ErrorException const&) {
            continue; // a folder that may not be listed offers nothing
        }
    }
    std::ranges::stable_sort(found, {}, &NSURL::lastPathComponent);
    return found;
}

std::string NSBundle::description() const { return "NSBundle <" + bundlePath() + ">"; }

} // namespace Tessarin
