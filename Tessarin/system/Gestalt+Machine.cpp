#include "Tessarin/system/Gestalt+Machine.h"

#include "Tessarin/system/GestaltReadingPrivate.h"

#include <algorithm>
#include <cstdlib>
#include <sys/utsname.h>
#include <unistd.h>

namespace Tessarin::Gestalt {
namespace {

utsname names() {
    utsname all{};
    ::uname(&all);
    return all;
}
char const* variable(char const* name) { return std::getenv(name); }
std::string_view set(char const* name) {
    auto const* const value = variable(name);
    return value ? value : "";
}
std::uint64_t positive(long answer, std::uint64_t otherwise) {
    return answer > 0 ? static_cast<std::uint64_t>(answer) : otherwise;
}

} // namespace

std::string systemName() {
    auto const facts = reading::osRelease("");
    auto const name = facts.find("NAME");
    return name != facts.end() && !name->second.empty() ? name->second : names().sysname;
}

std::optional<std::string> systemVersion() {
    auto const facts = reading::osRelease("");
    auto const version = facts.find("VERSION_ID"); // rolling ones have none
    return version != facts.end() && !version->second.empty() ? std::optional(version->second) : std::nullopt;
}

std::string kernelVersion() { return names().release; }
std::string hostName() { return names().nodename; }
std::string architecture() { return names().machine; }
std::size_t processorCount() { return positive(::sysconf(_SC_NPROCESSORS_ONLN), 1); }
std::size_t pageSize() { return positive(::sysconf(_SC_PAGESIZE), 4096); }
std::uint64_t physicalMemory() { return positive(::sysconf(_SC_PHYS_PAGES), 0) * pageSize(); }

std::optional<std::string> desktopSession() {
    auto const desktops = set("XDG_CURRENT_DESKTOP"); // "ubuntu:GNOME": from the special to the general
    auto const name = desktops.empty() ? set("DESKTOP_SESSION") : desktops.substr(desktops.rfind(':') + 1);
    return name.empty() ? std::nullopt : std::optional<std::string>(name);
}

DisplayServer displayServer() {
    if (!set("WAYLAND_DISPLAY").empty()) return DisplayServer::Wayland;
    return set("DISPLAY").empty() ? DisplayServer::None : DisplayServer::X11;
}

std::optional<std::string> container() { return reading::container("", &variable); }

} // namespace Tessarin::Gestalt
