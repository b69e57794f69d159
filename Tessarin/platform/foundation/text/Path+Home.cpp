#include "Tessarin/platform/foundation/files/NSSearchPath.h"
#include "Tessarin/platform/foundation/text/Path.h"

#include <cerrno>
#include <pwd.h>

namespace Tessarin::Path {
namespace {

std::string homeOf(std::string const& user) {
    std::vector<char> space(1024);
    passwd entry{};
    passwd* found = nullptr;
    while (::getpwnam_r(user.c_str(), &entry, space.data(), space.size(), &found) == ERANGE && space.size() < (1U << 20))
        space.resize(space.size() * 2);
    return found && found->pw_dir ? found->pw_dir : std::string{};
}

} // namespace

std::string abbreviatingWithTilde(std::string_view path) {
    auto const home = NSHomeDirectory();
    if (home.size() < 2 || !path.starts_with(home)) return std::string{path};
    auto const rest = path.substr(home.size());
    return rest.empty() || rest.front() == '/' ? "~" + std::string{rest} : std::string{path};
}

std::string expandingTilde(std::string_view path) {
    if (!path.starts_with('~')) return std::string{path};
    auto const user = path.substr(1, path.find('/') - 1); // npos - 1 is all, too
    auto const home = user.empty() ? NSHomeDirectory() : homeOf(std::string{user});
    if (home.empty()) return std::string{path};
    auto const rest = path.substr(1 + user.size());
    return home == "/" && !rest.empty() ? std::string{rest} : home + std::string{rest};
}

} // namespace Tessarin::Path
