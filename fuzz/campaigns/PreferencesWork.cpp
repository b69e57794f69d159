// Settings are changed and written; a file of settings holds all of a step or nothing of it.
#include "fuzz/campaigns/PlainWork.h"

#include "fuzz/campaigns/Campaign.h"

#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <cstdlib>
#include <filesystem>

namespace Tessarin::campaigns {
namespace {

std::string textOf(std::int64_t number) {
    return std::string(static_cast<std::size_t>(number) * 900, static_cast<char>('a' + number));
}
Value listOf(std::int64_t number) { return Value(List(static_cast<std::size_t>(number), Value(number))); }

Ref<NSUserDefaults> settingsIn(std::string const& folder) {
    ::setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    return NSUserDefaults::initWithSuiteName("campaign");
}

class PreferencesWork : public PlainWork {
    using PlainWork::PlainWork;

    void step(std::int64_t number) override {
        auto const settings = settingsIn(folder_);
        if (settings->integerForKey("number") != number) {
            settings->setInteger(number, "number");
            settings->setObject(textOf(number), "text");
            settings->setObject(listOf(number), "list");
        }
        Ref<NSError> error;
        if (!settings->synchronize(error)) throw ErrorException(error);
    }

    /// Read as another process does: from the file, not from what this one has in memory.
    std::optional<std::int64_t> stepIn(std::string const& folder) override {
        auto const elsewhere = folder + "-read";
        std::filesystem::remove_all(elsewhere);
        std::filesystem::copy(folder, elsewhere, std::filesystem::copy_options::recursive);
        auto const settings = settingsIn(elsewhere);
        Ref<NSError> error;
        require(settings->synchronize(error), "the settings cannot be read: {}", error ? error->localizedDescription() : "");
        require(!std::filesystem::exists(elsewhere + "/campaign/defaults.toml.broken"), "the settings were ill-formed");
        auto const number = settings->integerForKey("number");
        if (number == 0) {
            require(settings->objectForKey("text").isAbsent(), "settings without a number");
            return 0;
        }
        require(settings->objectForKey("text") == Value(textOf(number)), "the settings hold step {} by halves", number);
        require(settings->objectForKey("list") == listOf(number), "a list of step {} is cut", number);
        return number;
    }
};

} // namespace

std::unique_ptr<PlainWork> makePreferencesWork(std::string folder) {
    return std::make_unique<PreferencesWork>(std::move(folder));
}

} // namespace Tessarin::campaigns
