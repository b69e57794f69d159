#include "Tessarin/system/Gestalt+Process.h"

#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/system/GestaltReadingPrivate.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <unistd.h>

namespace Tessarin::Gestalt {
namespace {

std::optional<std::uint64_t> ofStatus(char const* name) {
    auto const status = reading::file("/proc/self/status");
    return status ? reading::statusNumber(*status, name) : std::nullopt;
}
std::optional<std::uint64_t> bytesOfStatus(char const* name) {
    auto kibibytes = ofStatus(name);
    if (kibibytes) *kibibytes *= 1024;
    return kibibytes;
}

} // namespace

std::string processName() {
    char path[PATH_MAX];
    auto const length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return program_invocation_short_name;
    std::string_view name{path, static_cast<std::size_t>(length)};
    constexpr std::string_view gone = " (deleted)"; // an update replaced the file
    if (name.ends_with(gone)) name.remove_suffix(gone.size());
    return std::string{name.substr(name.rfind('/') + 1)};
}

int processIdentifier() { return ::getpid(); }

std::optional<std::string> applicationVersion() {
    auto const facts = NSBundle::mainBundle()->infoDictionary();
    auto version = facts["CFBundleShortVersionString"].as<std::string>();
    return version ? version : facts["CFBundleVersion"].as<std::string>();
}

std::vector<std::string> arguments() { return reading::zeroEnded(reading::file("/proc/self/cmdline").value_or("")); }

std::optional<NSDate> processStartTime() {
    auto const ticks = reading::startTicks(reading::file("/proc/self/stat").value_or(""));
    auto const perSecond = ::sysconf(_SC_CLK_TCK);
    timespec sinceBoot{};
    if (!ticks || perSecond <= 0 || ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) return {};
    double const age = static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) / 1e9 -
                       static_cast<double>(*ticks) / static_cast<double>(perSecond);
    return NSDate::dateWithTimeIntervalSinceNow(-age);
}

std::optional<std::uint64_t> memoryInUse() { return bytesOfStatus("VmRSS"); }
std::optional<std::uint64_t> peakMemoryInUse() { return bytesOfStatus("VmHWM"); }
bool isBeingDebugged() { return ofStatus("TracerPid").value_or(0) != 0; }

} // namespace Tessarin::Gestalt
