#pragma once
// Stores of settings, each with the same three operations on the same fifty keys. Toolkits' headers stay apart from ours, since
// their macros are not.
#include <cstdint>
#include <memory>
#include <string>

namespace Tessarin::benchmarks {

inline constexpr int keyCount = 50;
inline std::string keyName(int at) { return "window.setting" + std::to_string(100 + at); }

class Settings {
public:
    virtual ~Settings() = default;
    virtual std::int64_t get(int key) = 0;
    virtual void set(int key, std::int64_t value) = 0;
    /// Until it is on the disk.
    virtual void write() = 0;
};

using SettingsMaker = std::unique_ptr<Settings> (*)(std::string const& folder);

/// Null where the peer was not installed at build time.
std::unique_ptr<Settings> makeQtSettings(std::string const& folder);
std::unique_ptr<Settings> makeKDESettings(std::string const& folder);

} // namespace Tessarin::benchmarks
