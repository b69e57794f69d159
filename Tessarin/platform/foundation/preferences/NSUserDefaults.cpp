#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"

#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/files/NSSearchPath.h"
#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <mutex>

namespace Tessarin {
namespace {

using defaults::DefaultsSuite;

std::string executableName() {
    std::error_code error;
    auto const executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? "application" : executable.filename().native();
}

std::string applicationName() { return NSBundle::mainBundle()->bundleIdentifier().value_or(executableName()); }

bool canBeFolder(std::string_view name) {
    return !name.empty() && name != "." && name.size() <= 255 && name.find_first_of(std::string_view{"/\0", 2}) == name.npos &&
           name.find("..") == name.npos;
}

std::string filePath(std::string_view name) {
    auto const* const variable = ::secure_getenv("XDG_CONFIG_HOME");
    auto const base = variable && *variable == '/' ? std::string{variable} : NSHomeDirectory() + "/.config";
    return fmt::format("{}/{}/defaults.toml", base, name);
}

/// The stores that somebody holds, and their suites, which live on until everything is written.
class Stores {
public:
    static Stores& shared() {
        static auto& stores = *new Stores;
        return stores;
    }

    Ref<NSUserDefaults> at(std::string const& path) {
        std::lock_guard const hold(mutex_);
        std::erase_if(suites_, [](auto const& entry) { return entry.second.expired(); });
        auto suite = suites_[path].lock();
        if (!suite) {
            suite = std::make_shared<DefaultsSuite>(path);
            suite->begin();
            suites_[path] = suite;
        }
        if (auto known = suite->home.lock()) return known;
        auto store = make<NSUserDefaults>(suite);
        suite->home.set(store);
        return store;
    }

private:
    Stores() { std::atexit([] { shared().writeAll(); }); }

    void writeAll() {
        std::vector<Ref<DefaultsSuite>> all;
        {
            std::lock_guard const hold(mutex_);
            for (auto const& [path, suite] : suites_)
                if (auto kept = suite.lock()) all.push_back(std::move(kept));
        }
        for (auto const& suite : all)
            if (auto const problem = suite->hasUnwritten() ? suite->synchronize() : nullptr)
                static_cast<void>(
                    std::fputs((asOneLine(problem->localizedDescription()) + "; settings are lost\n").c_str(), stderr));
    }

    std::mutex mutex_;
    std::map<std::string, WeakRef<DefaultsSuite>> suites_; // by file; guarded by mutex_
};

/// What was registered; replaced as a whole.
Cell<Ref<Dictionary const>>& registered() {
    static auto& values = *new Cell<Ref<Dictionary const>>(std::make_shared<Dictionary const>());
    return values;
}

} // namespace

Ref<NSUserDefaults> const& NSUserDefaults::standardUserDefaults() {
    static auto const& shared = *new Ref<NSUserDefaults>([] {
        auto const name = applicationName();
        if (!canBeFolder(name)) fatal(fmt::format("\"{}\" can be no folder for preferences", name));
        return Stores::shared().at(filePath(name));
    }());
    return shared;
}

Ref<NSUserDefaults> NSUserDefaults::initWithSuiteName(std::string_view name) {
    if (!canBeFolder(name) || name == applicationName()) return nullptr;
    return Stores::shared().at(filePath(name));
}

void NSUserDefaults::registerDefaults(Dictionary const& values) {
    for (auto const& [key, value] : values)
        if (auto const reason = defaults::obstacle(value); !reason.empty())
            fatal(fmt::format("NSUserDefaults cannot keep {} for \"{}\"", reason, key.view()));
    auto all = *registered().get();
    for (auto const& [key, value] : values) all.set(key, value);
    registered().set(std::make_shared<Dictionary const>(std::move(all)));
}

void NSUserDefaults::init(Ref<DefaultsSuite> suite) {
    NSObject::init();
    suite_ = std::move(suite);
}

Value NSUserDefaults::objectForKey(std::string_view key) const {
    auto value = suite_->value(key);
    return value.isAbsent() ? (*registered().get())[key] : value;
}

void NSUserDefaults::setObject(Value value, std::string_view key) {
    if (auto const reason = value.isAbsent() ? std::string_view{} : defaults::obstacle(value); !reason.empty())
        fatal(fmt::format("NSUserDefaults cannot keep {} for \"{}\"", reason, key));
    store(key, std::move(value));
}

void NSUserDefaults::store(std::string_view key, Value value) { suite_->set(key, std::move(value)); }

Dictionary NSUserDefaults::dictionaryRepresentation() const {
    auto all = suite_->values();
    for (auto const& [key, value] : *registered().get())
        if (!all.contains(key)) all.append(key, value);
    return all;
}

bool NSUserDefaults::synchronize() { return !suite_->synchronize(); }

bool NSUserDefaults::synchronize(Ref<NSError>& error) {
    auto problem = suite_->synchronize();
    if (problem) error = problem;
    return !problem;
}

std::string NSUserDefaults::description() const { return Value(dictionaryRepresentation()).description(); }

std::optional<List> NSUserDefaults::arrayForKey(std::string_view key) const { return objectForKey(key).as<List>(); }
std::optional<Dictionary> NSUserDefaults::dictionaryForKey(std::string_view key) const {
    return objectForKey(key).as<Dictionary>();
}
std::optional<NSData> NSUserDefaults::dataForKey(std::string_view key) const { return objectForKey(key).as<NSData>(); }
} // namespace Tessarin
