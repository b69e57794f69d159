#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
// What other rooms add to preferences:
#include "Tessarin/defaults/NSUserDefaults+Keys.h"

namespace Tessarin {

class NSError;
namespace defaults {
class DefaultsSuite;
}

/// Posted on the main queue when settings of a store have changed, at most once for each turn of that queue. Its object is
/// the store; its userInfo holds a list of the keys that others changed: another process, or somebody who edited the file.
inline constexpr std::string_view NSUserDefaultsDidChangeNotification = "NSUserDefaultsDidChangeNotification";
inline constexpr std::string_view NSUserDefaultsChangedKeys = "NSUserDefaultsChangedKeys";

/// A user's settings: values by name, in a TOML file that other processes and the user may write, too. Any thread.
///
///     auto const& defaults = NSUserDefaults::standardUserDefaults();
///     defaults->setInteger(11, "volume");
///     auto const volume = defaults->integerForKey("volume"); // 0 when never set
///
/// The file is `$XDG_CONFIG_HOME/<name>/defaults.toml`; the name is that of the suite, or the main bundle's identifier, or
/// else the executable's. Reading and setting touch only memory: a change is written after a second without another one (after
/// ten seconds at most), by `synchronize`, and when the process ends through `exit` or `main`. Writing takes over what others
/// wrote meanwhile, except where both changed the same key, and leaves their comments and layout alone. Where it fails (no
/// space, no permission) the settings stay in memory, a line on standard error says why, and it is tried again.
/// Of a file that is not TOML what is well-formed in it counts, a line on standard error says so, and `synchronize` why. It is
/// left alone until something must be written; then it is kept beside as `defaults.toml.broken`.
///
/// How the typed readings take what is stored:
///
/// | stored          | string          | integer                   | float, double        | Boolean                       |
/// |-----------------|-----------------|---------------------------|----------------------|-------------------------------|
/// | nothing         | absent          | 0                         | 0                    | false                         |
/// | Boolean         | "0" or "1"      | 0 or 1                    | 0 or 1               | itself                        |
/// | integer         | its digits      | itself                    | the nearest          | whether it is not 0           |
/// | float, double   | shortest digits | cut off, saturated; NaN 0 | itself, the nearest  | whether it is not 0           |
/// | text            | itself          | its leading integer, or 0 | its leading number,  | whether it begins with Y, y,  |
/// |                 |                 | " 12 px" is 12            | or 0: "1.5e3x" is 1500 | T, t or a number that is not 0|
/// | any other kind  | absent          | 0                         | 0                    | false                         |
class TESSARIN_API NSUserDefaults : public NSObject, public NSUserDefaultsKeys {
public:
    /// The application's own settings. The identifier of the main bundle counts when this is first called.
    static Ref<NSUserDefaults> const& standardUserDefaults();
    /// The settings of a suite, which several applications may share: one object for as long as somebody holds it. Null for a
    /// name that can be no folder (empty, ".", longer than 255 bytes, with "/", ".." or a NUL) or is the application's own.
    static Ref<NSUserDefaults> initWithSuiteName(std::string_view name);
    /// Values that are read where nothing is stored, in every store of the process; never written to a file. Those of an
    /// earlier call stay unless they are replaced.
    static void registerDefaults(Dictionary const& values);

    /// The value as it was stored; absent when there is none.
    Value objectForKey(std::string_view key) const;
    std::optional<std::string> stringForKey(std::string_view key) const;
    std::int64_t integerForKey(std::string_view key) const;
    float floatForKey(std::string_view key) const;
    double doubleForKey(std::string_view key) const;
    bool boolForKey(std::string_view key) const;
    /// Absent unless a list is stored; the second one also unless all its elements are texts.
    std::optional<List> arrayForKey(std::string_view key) const;
    std::optional<std::vector<std::string>> stringArrayForKey(std::string_view key) const;
    std::optional<Dictionary> dictionaryForKey(std::string_view key) const;
    std::optional<NSData> dataForKey(std::string_view key) const;

    /// Stores any value but objects, sets, dictionaries whose keys are not texts, lists with absent elements, and more than
    /// a hundred levels: those are fatal, as is a key that is not UTF-8. An absent value removes.
    void setObject(Value value, std::string_view key);
    void setInteger(std::int64_t value, std::string_view key) { store(key, value); }
    void setFloat(float value, std::string_view key) { store(key, value); }
    void setDouble(double value, std::string_view key) { store(key, value); }
    void setBool(bool value, std::string_view key) { store(key, value); }
    void removeObjectForKey(std::string_view key) { store(key, {}); }

    /// Everything that is stored or registered, by key.
    Dictionary dictionaryRepresentation() const;
    /// Writes what was set here and takes over what others wrote. False when that could not be; nothing set here is lost.
    bool synchronize();
    /// The same; tells why: an errno, or NSFormatErrorDomain with the line for a file that is not TOML.
    bool synchronize(Ref<NSError>& error);

    std::string description() const override;

    using NSObject::init;
    virtual void init(Ref<defaults::DefaultsSuite> suite);

protected:
    NSUserDefaults() = default;

private:
    void store(std::string_view key, Value value);

    Ref<defaults::DefaultsSuite> suite_; // constant after init
};

} // namespace Tessarin

#include "Tessarin/defaults/NSUserDefaults+Keys.inl"
