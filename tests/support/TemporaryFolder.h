#pragma once
#include "Tessarin/platform/foundation/files/NSURL.h"
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin::tests {

/// A folder for one test, removed with all it holds.
class TemporaryFolder {
public:
    TemporaryFolder() {
        auto name = (std::filesystem::temp_directory_path() / "tessarin-XXXXXX").native();
        path_ = ::mkdtemp(name.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::string path(std::string_view name = {}) const { return name.empty() ? path_ : path_ + "/" + std::string{name}; }
    NSURL url(std::string_view name) const { return NSURL::fileURLWithPath(path(name)); }
    /// Writes a file, with the folders on the way to it, and gives its path.
    std::string write(std::string_view name, std::string_view text) const {
        auto file = path(name);
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file) << text;
        return file;
    }
    std::string read(std::string_view name) const {
        std::ifstream file(path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string path_;
};

/// Sets an environment variable, or unsets it when there is no value, for as long as it lives.
class Environment {
public:
    Environment(char const* name, std::optional<std::string> const& value) : name_(name) {
        if (auto const* const old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~Environment() { set(old_); }
    Environment(Environment const&) = delete;
    Environment& operator=(Environment const&) = delete;

private:
    void set(std::optional<std::string> const& value) {
        if (value)
            ::setenv(name_, value->c_str(), 1);
        else
            ::unsetenv(name_);
    }
    char const* name_;
    std::optional<std::string> old_;
};

} // namespace Tessarin::tests
