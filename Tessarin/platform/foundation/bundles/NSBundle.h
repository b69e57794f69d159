#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// A folder with resources: those in `Contents/Resources`, `Resources` or the folder itself, found in this order, and
/// facts about it in an `Info.plist` (in `Contents`, `Resources` or the folder). The main bundle is the executable's folder.
/// Any thread.
///
///     NSBundle::mainBundle()->setBundleIdentifier("org.example.notes"); // first thing in main
///     auto const model = NSBundle::mainBundle()->URLForResource("Notes", "xcdatamodeld");
class TESSARIN_API NSBundle : public NSObject {
public:
    static Ref<NSBundle> const& mainBundle();
    /// Null unless the URL is that of an existing folder. A new object at each call.
    static Ref<NSBundle> bundleWithURL(NSURL const& url);
    static Ref<NSBundle> bundleWithPath(std::string_view path);

    NSURL bundleURL() const { return *url_; }
    std::string bundlePath() const { return url_->path(); }

    /// Set by code, else `CFBundleIdentifier` of the Info.plist; absent when neither is there.
    std::optional<std::string> bundleIdentifier() const;
    void setBundleIdentifier(std::optional<std::string> identifier) { identifier_.set(std::move(identifier)); }
    /// The Info.plist as it was when first asked for; empty when there is none or it cannot be read.
    Dictionary infoDictionary() const;

    /// Where resources are: the first of the three folders that exists.
    NSURL resourceURL() const;
    /// The resource `name`.`extension`; an empty extension means that the name is whole.
    std::optional<NSURL> URLForResource(std::string_view name, std::string_view extension = {},
                                        std::string_view subdirectory = {}) const;
    /// All resources with that extension (all when it is empty), sorted by name.
    std::vector<NSURL> URLsForResourcesWithExtension(std::string_view extension, std::string_view subdirectory = {}) const;

    /// The text under `key` in the table `<table>.strings`, "Localizable" unless named, from the folder `<language>.lproj` of the
    /// first of the user's languages that has the table, else of `CFBundleDevelopmentRegion`. Without a text, `value`, and where
    /// that is empty the key itself. The languages are those of LANGUAGE, LC_ALL, LC_MESSAGES and LANG; what is read is kept.
    std::string localizedStringForKey(std::string_view key, std::string_view value = {}, std::string_view table = {}) const;

    std::string description() const override;

    using NSObject::init;
    virtual void init(NSURL const& url);

protected:
    NSBundle() = default;

private:
    struct Localization;
    Ref<Localization const> localization(std::string_view table) const;
    std::vector<NSURL> resourceFolders(std::string_view subdirectory) const;

    std::optional<NSURL> url_; // constant after init
    Cell<std::optional<std::string>> identifier_;
    mutable Cell<std::optional<Value>> info_;
    mutable Cell<Ref<Localization const>> localization_;
};

} // namespace Tessarin
