#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// The machine, the system on it, and the session of the user, as they are at the call. What the system does not tell is
/// absent. Any thread.
namespace Tessarin::Gestalt {

enum class DisplayServer { None, X11, Wayland };

/// NAME and VERSION_ID of os-release: "Debian GNU/Linux" and "12". Without a readable one the kernel's name, and no version.
TESSARIN_API std::string systemName();
TESSARIN_API std::optional<std::string> systemVersion();
/// "6.1.0-18-amd64".
TESSARIN_API std::string kernelVersion();
TESSARIN_API std::string hostName();
/// "x86_64".
TESSARIN_API std::string architecture();
/// Processors that are online, at least 1; this process may be allowed fewer of them.
TESSARIN_API std::size_t processorCount();
/// Bytes.
TESSARIN_API std::uint64_t physicalMemory();
TESSARIN_API std::size_t pageSize();

/// The desktop of the session: "GNOME", "KDE". Absent without one.
TESSARIN_API std::optional<std::string> desktopSession();
/// What windows would be shown by. None: there is no screen.
TESSARIN_API DisplayServer displayServer();
inline bool hasScreen() { return displayServer() != DisplayServer::None; }

/// What this process is confined in: "flatpak", "snap", "docker", "podman", "lxc", "systemd-nspawn", "kubernetes" … Absent when
/// it has the system to itself, or cannot tell.
TESSARIN_API std::optional<std::string> container();

} // namespace Tessarin::Gestalt
