#include "Tessarin/platform/foundation/bundles/Gestalt.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/system/GestaltReadingPrivate.h"
#include "Tessarin/system/Subprocess.h"
#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>

namespace Tessarin::tests {
namespace {

namespace reading = Gestalt::reading;
using Assignments = std::map<std::string, std::string>;

TEST(Gestalt, OSReleaseMayBeMissingOrIllFormed) {
    struct Row {
        char const* text;
        Assignments assignments;
    };
    for (auto const& [text, expected] : {
             Row{"NAME=\"Debian GNU/Linux\"\nVERSION_ID='12'\r\n  ID=debian\n",
                 {{"NAME", "Debian GNU/Linux"}, {"VERSION_ID", "12"}, {"ID", "debian"}}},
             Row{"# NAME=no\n\n=x\nA B=c\nno sign\nÄ=1\nNAME=yes", {{"NAME", "yes"}}},
             Row{"A=\"open\nB=2\nC=\\", {{"B", "2"}}},
             Row{"A=\"q\\\"q \\$x\"\nB='\\'\nC=a'b'\"c\"\nD=\nA=last", {{"A", "last"}, {"B", "\\"}, {"C", "abc"}, {"D", ""}}},
             Row{"", {}},
         })
        EXPECT_EQ(reading::assignments(text), expected) << text;

    TemporaryFolder const root;
    EXPECT_EQ(reading::osRelease(root.path()), Assignments());
    root.write("usr/lib/os-release", "ID=fallback\n");
    EXPECT_EQ(reading::osRelease(root.path()), (Assignments{{"ID", "fallback"}}));
    std::filesystem::create_directories(root.path("etc"));
    ::mkfifo(root.path("etc/os-release").c_str(), 0600);
    EXPECT_EQ(reading::osRelease(root.path()), (Assignments{{"ID", "fallback"}})) << "nobody writes into it";
    std::filesystem::remove(root.path("etc/os-release"));
    root.write("etc/os-release", std::string(3 << 20, 'x') + "\nID=far\n");
    EXPECT_EQ(reading::osRelease(root.path()), Assignments()) << "no such file is as long";
}

TEST(Gestalt, FilesOfTheKernelAreReadWhateverNamesHold) {
    EXPECT_EQ(reading::startTicks("7 (a) b) (c) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 4711 20"), 4711U);
    EXPECT_EQ(reading::statusNumber("Name:\tVmRSS: 7\nVmRSSx:\t1\nVmRSS:\t  1234 kB\n", "VmRSS"), 1234U);
    for (auto const* ill : {"", "7", "7 (a", "7 (a) S 1 2", "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 x"})
        EXPECT_EQ(reading::startTicks(ill), std::nullopt) << ill;
    for (auto const* ill : {"", "VmRSS", "VmRSS:", "VmRSS:\tmany kB", "VmRSS:\t99999999999999999999 kB"})
        EXPECT_EQ(reading::statusNumber(ill, "VmRSS"), std::nullopt) << ill;
    EXPECT_EQ(reading::zeroEnded(std::string_view("a\0\0b c\0d", 8)), (std::vector<std::string>{"a", "", "b c", "d"}));
}

TEST(Gestalt, WhatConfinesAProcessIsToldByItsFiles) {
    static Assignments variables;
    auto const variable = [](char const* name) {
        auto const found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    };
    struct Row {
        char const *file, *text;
        Assignments variables;
        std::optional<std::string> expected;
    };
    // clang-format off
    for (auto const& [file, text, set, expected] : {
             Row{"other", "", {}, {}}, Row{".flatpak-info", "", {}, "flatpak"},
             Row{".dockerenv", "", {{"SNAP", "/snap/x"}}, "snap"},
             Row{"other", "", {{"SNAP", "/snap/code"}}, {}}, // a terminal's
             Row{"run/systemd/container", "systemd-nspawn\n", {}, "systemd-nspawn"}, Row{"run/systemd/container", "\n", {}, {}},
             Row{"run/.containerenv", "", {}, "podman"}, Row{".dockerenv", "", {}, "docker"},
             Row{"proc/1/cgroup", "0::/kubepods/besteffort\n", {}, "kubernetes"},
             Row{"proc/1/cgroup", "0::/init.scope\n", {{"container", "lxc"}}, "lxc"}}) {
    // clang-format on
        TemporaryFolder const root;
        root.write(file, text);
        std::filesystem::create_directories(root.path("proc/self"));
        std::filesystem::create_symlink("/snap/x/bin/editor", root.path("proc/self/exe"));
        variables = set;
        EXPECT_EQ(reading::container(root.path(), variable), expected) << file;
    }
}

std::string says(std::string script) {
    auto const result = Subprocess::run({.program = "sh", .arguments = {"-c", std::move(script)}});
    return std::string{result.outputText().substr(0, result.outputText().find('\n'))};
}

TEST(Gestalt, AgreesWithWhatTheSystemsProgramsSay) {
    EXPECT_EQ(Gestalt::kernelVersion(), says("uname -r"));
    EXPECT_EQ(Gestalt::hostName(), says("uname -n"));
    EXPECT_EQ(Gestalt::architecture(), says("uname -m"));
    EXPECT_EQ(std::to_string(Gestalt::processorCount()), says("getconf _NPROCESSORS_ONLN"));
    EXPECT_EQ(std::to_string(Gestalt::pageSize()), says("getconf PAGESIZE"));
    EXPECT_EQ(std::to_string(Gestalt::physicalMemory() / 1024), says("awk '/^MemTotal/ { print $2 }' /proc/meminfo"));
    EXPECT_EQ(Gestalt::systemVersion().value_or(""), says(". /etc/os-release; echo $VERSION_ID"));
    EXPECT_EQ(Gestalt::systemName(), says(". /etc/os-release; echo $NAME"));

    auto const own = std::to_string(Gestalt::processIdentifier());
    EXPECT_EQ(Gestalt::processName(), "tests_system");
    EXPECT_TRUE(Gestalt::arguments().at(0).ends_with("tests_system"));
    auto const boot = std::stod(says("awk '/^btime/ { print $2 }' /proc/stat"));
    auto const start = boot + std::stod(says("awk '{ print $22 }' /proc/" + own + "/stat")) / 100;
    EXPECT_NEAR(Gestalt::processStartTime().value().timeIntervalSince1970(), start, 2.5);
    auto const touched = std::string(32 << 20, 'x');
    EXPECT_GT(Gestalt::memoryInUse().value(), touched.size());
    EXPECT_GE(Gestalt::peakMemoryInUse().value(), Gestalt::memoryInUse().value());
    EXPECT_EQ(Gestalt::isBeingDebugged(), says("awk '/^TracerPid/ { print $2 }' /proc/" + own + "/status") != "0");
    EXPECT_EQ(Gestalt::applicationVersion(), std::nullopt) << "tests have no Info.plist";
    EXPECT_TRUE(Gestalt::compiler().starts_with("GCC ") || Gestalt::compiler().starts_with("Clang "));
}

TEST(Gestalt, SessionMayHaveNoDisplayAndNoDesktop) {
    struct Row {
        std::optional<std::string> x11, wayland, desktops, session, desktop;
        Gestalt::DisplayServer server;
    };
    using enum Gestalt::DisplayServer;
    // clang-format off
    for (auto const& [x11, wayland, desktops, session, desktop, server] : {
             Row{{}, {}, {}, {}, {}, None}, Row{"", "", "", "", {}, None},
             Row{":0", {}, "ubuntu:GNOME", "ubuntu", "GNOME", X11}, Row{":0", "wayland-0", "KDE", {}, "KDE", Wayland},
             Row{{}, "wayland-0", {}, "sway", "sway", Wayland}}) {
    // clang-format on
        Environment const a("DISPLAY", x11), b("WAYLAND_DISPLAY", wayland);
        Environment const c("XDG_CURRENT_DESKTOP", desktops), d("DESKTOP_SESSION", session);
        EXPECT_TRUE(Gestalt::displayServer() == server && Gestalt::hasScreen() == (server != None));
        EXPECT_EQ(Gestalt::desktopSession(), desktop);
    }
}

} // namespace
} // namespace Tessarin::tests
