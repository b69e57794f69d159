// Files, standard folders, bundles and property lists.
#include "Tessarin/platform/foundation/bundles/Gestalt.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/bundles/PropertyList.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include "tests/support/TemporaryFolder.h"
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Stands for what a test framework registers under this name.
class XCTest : public Tessarin::NSObject {};

namespace {
thread_local std::vector<mode_t> modesBefore; // of files whose mode this thread then set
bool rightsAreRaised = false;
} // namespace

// In place of the system's own, so that a moment shows which no test could hit, and rights that no test has.
extern "C" int fchmod(int file, mode_t mode) noexcept {
    struct stat status {};
    ::fstat(file, &status);
    modesBefore.push_back(status.st_mode & 0777);
    return static_cast<int>(::syscall(SYS_fchmod, file, mode));
}
extern "C" char* secure_getenv(char const* name) noexcept { return rightsAreRaised ? nullptr : std::getenv(name); }

namespace Tessarin {
namespace {

using tests::Environment;
using tests::TemporaryFolder;

NSURL at(TemporaryFolder const& folder, std::string_view name) { return NSURL::fileURLWithPath(folder.path(name)); }

template <class Work> int errnoOf(Work work) {
    try {
        work();
    } catch (ErrorException const& failure) {
        return failure.error()->domain() == NSPOSIXErrorDomain ? static_cast<int>(failure.error()->code()) : -1;
    }
    return 0;
}

TEST(NSError, DescribesItselfAndComparesByContent) {
    auto const error = NSError::errorWithErrno(ENOENT, "/x");
    EXPECT_EQ(error->localizedDescription(), "/x: No such file or directory");
    EXPECT_EQ(error->userInfo()["NSFilePath"], Value("/x"));
    EXPECT_TRUE(equal(error, NSError::errorWithErrno(ENOENT, "/x")));
    EXPECT_FALSE(equal(error, NSError::errorWithErrno(ENOENT, "/y")));
    EXPECT_EQ(NSError::errorWithDomain("D", 7)->description(),
              "Error Domain=D Code=7 \"The operation could not be completed (D error 7).\"");
    EXPECT_NE(std::string{ErrorException(error).what()}.find("No such file"), std::string::npos);
}

TEST(NSData, WritingReplacesTheWholeFileOrNothing) {
    TemporaryFolder const folder;
    auto const file = folder.write("file", "a longer text that was there");
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    std::filesystem::create_symlink("file", folder.path("link"));
    std::string big(100'000, 'x');
    big[50'000] = '\0';
    NSData::dataWithText(big).writeToURL(at(folder, "link"));
    EXPECT_EQ(NSData::contentsOfURL(at(folder, "file")).text(), big);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
    struct stat status {};
    ::stat(file.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    EXPECT_EQ(errnoOf([&] { NSData().writeToURL(at(folder, "none/file")); }), ENOENT);
    std::filesystem::create_directory(folder.path("folder"));
    EXPECT_EQ(errnoOf([&] { NSData().writeToURL(at(folder, "folder")); }), EISDIR);
    EXPECT_EQ(errnoOf([&] { NSData::contentsOfURL(at(folder, "none")); }), ENOENT);
    EXPECT_EQ(NSFileManager::defaultManager()->contentsOfDirectoryAtURL(at(folder, "")).size(), 3u)
        << "nothing temporary stays behind";
    EXPECT_GT(NSData::contentsOfFile("/proc/self/maps").length(), 0u) << "a file without a size";
}

TEST(NSFileManager, MakesCopiesMovesAndRemoves) {
    TemporaryFolder const folder;
    auto const& files = NSFileManager::defaultManager();
    auto const a = at(folder, "a"), deep = at(folder, "a/b c/d"), copy = at(folder, "copy"), moved = at(folder, "moved");
    EXPECT_EQ(errnoOf([&] { files->createDirectoryAtURL(deep, IntermediateDirectories::Require); }), ENOENT);
    files->createDirectoryAtURL(deep);
    files->createDirectoryAtURL(deep);
    EXPECT_EQ(errnoOf([&] { files->createDirectoryAtURL(deep, IntermediateDirectories::Require); }), EEXIST);
    folder.write("a/b c/d/file", "12345");
    std::filesystem::create_symlink("nowhere", folder.path("a/broken"));

    files->copyItemAtURL(a, copy);
    EXPECT_EQ(folder.read("copy/b c/d/file"), "12345");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("copy/broken")));
    EXPECT_EQ(errnoOf([&] { files->copyItemAtURL(a, copy); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { files->moveItemAtURL(a, copy); }), EEXIST);
    files->moveItemAtURL(copy, moved);
    EXPECT_FALSE(files->fileExistsAtPath(copy.path()));

    auto const attributes = files->attributesOfItemAtURL(at(folder, "moved/b c/d/file"));
    EXPECT_EQ(attributes["NSFileSize"], Value(5));
    EXPECT_EQ(attributes["NSFileType"], Value("NSFileTypeRegular"));
    EXPECT_LT(std::abs(attributes["NSFileModificationDate"].as<NSDate>()->timeIntervalSinceNow()), 3600);
    EXPECT_EQ(files->attributesOfItemAtURL(at(folder, "moved/broken"))["NSFileType"], Value("NSFileTypeSymbolicLink"));

    files->removeItemAtURL(moved);
    EXPECT_EQ(errnoOf([&] { files->removeItemAtURL(moved); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { files->removeItemAtURL(*NSURL::URLWithString("http://h/a")); }), EINVAL);
    EXPECT_EQ(files->contentsAtPath(moved.path()), std::nullopt);
    EXPECT_EQ(files->contentsOfDirectoryAtURL(a), (std::vector{at(folder, "a/b c"), at(folder, "a/broken")}));
}

TEST(Files, NobodyOpensATemporaryFileThatTheFileItselfWouldKeepFromThem) {
    TemporaryFolder const folder;
    auto const file = folder.write("file", "secret");
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    modesBefore.clear();
    NSData::dataWithText("new").writeToURL(at(folder, "file"));
    EXPECT_EQ(modesBefore, std::vector<mode_t>{0600}) << "from the start";
}

TEST(Files, AURLWithAZeroByteNamesNoFile) {
    TemporaryFolder const folder;
    auto const file = folder.write("file", "x");
    auto const url = *NSURL::URLWithString("file://" + file + "%00.txt");
    auto const& manager = *NSFileManager::defaultManager();
    EXPECT_FALSE(manager.fileExistsAtURL(url));
    EXPECT_EQ(errnoOf([&] { NSData::contentsOfURL(url); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { NSData().writeToURL(url); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { manager.removeItemAtURL(url); }), EINVAL);
    EXPECT_TRUE(manager.fileExistsAtPath(file));
}

TEST(SearchPaths, CountNoVariableInAProgramThatRunsWithRaisedRights) {
    TemporaryFolder const planted;
    Environment const variables[] = {{"HOME", planted.path()},
                                     {"TMPDIR", planted.path()},
                                     {"XDG_CACHE_HOME", planted.path()},
                                     {"XDG_DATA_HOME", planted.path()}};
    EXPECT_TRUE(NSTemporaryDirectory().starts_with(planted.path()));
    rightsAreRaised = true;
    auto const caches = NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory::Caches, NSSearchPathDomainMask::User);
    auto const paths = NSHomeDirectory() + NSTemporaryDirectory() + (caches.empty() ? "" : caches[0]);
    rightsAreRaised = false;
    EXPECT_EQ(paths.find(planted.path()), paths.npos) << paths;
}

TEST(SearchPaths, FollowTheUsersOwnFolders) {
    TemporaryFolder const home;
    Environment const variables[] = {
        {"HOME", home.path()}, {"XDG_CONFIG_HOME", std::nullopt}, {"XDG_DATA_HOME", "relative"}, {"XDG_CACHE_HOME", "/cache/"}};
    auto const path = [](NSSearchPathDirectory directory, ExpandTilde expand = ExpandTilde::Yes) {
        auto const paths = NSSearchPathForDirectoriesInDomains(directory, NSSearchPathDomainMask::User, expand);
        return paths.empty() ? "none" : paths[0];
    };
    using enum NSSearchPathDirectory;
    EXPECT_EQ(path(Document), home.path("Documents")) << "without a file";
    home.write(
        ".config/user-dirs.dirs",
        "# XDG_MUSIC_DIR=\"/no\"\nXDG_DOCUMENTS_DIR=\"/first\"\nXDG_DOCUMENTS_DIR=\"$HOME/My \\\"Texts\\\"/\"\n"
        "XDG_MUSIC_DIR=\"relative\"\n  XDG_VIDEOS_DIR=\"$HOME/\"\nXDG_PICTURES_DIR=\"$HOMEX/a\"\nXDG_DESKTOP_DIR=/unquoted\n");
    struct {
        NSSearchPathDirectory directory;
        std::string path;
    // clang-format off
    } const rows[] = {
        {Document, home.path("My \"Texts\"")}, {Music, home.path("Music")}, {Movies, home.path()},
        {Pictures, home.path("Pictures")}, {Desktop, home.path("Desktop")}, {Library, home.path(".local/share")},
        {ApplicationSupport, home.path(".local/share")}, {Caches, "/cache"}, {NSSearchPathDirectory{1}, "none"}};
    // clang-format on
    for (auto const& row : rows) EXPECT_EQ(path(row.directory), row.path);
    EXPECT_EQ(path(Library, ExpandTilde::No), "~/.local/share");
    EXPECT_EQ(path(Caches, ExpandTilde::No), "/cache");
    EXPECT_TRUE(NSSearchPathForDirectoriesInDomains(Document, NSSearchPathDomainMask::System).empty());
    EXPECT_EQ(NSSearchPathForDirectoriesInDomains(Document, NSSearchPathDomainMask::All).size(), 1u);
}

TEST(NSFileManager, GroupContainersExistOnlyUnderProperNames) {
    TemporaryFolder const data;
    Environment const variable("XDG_DATA_HOME", data.path());
    auto const& files = NSFileManager::defaultManager();
    NSBundle::mainBundle()->setBundleIdentifier("org.example.self");
    for (char const* name : {"org.example.group", "org.example.self", "a..b"})
        std::filesystem::create_directories(data.path("group-containers") + "/" + name);
    EXPECT_EQ(files->containerURLForSecurityApplicationGroupIdentifier("org.example.group"),
              at(data, "group-containers/org.example.group"));
    for (char const* name : {"", "org.example.none", "org.example.self", "a..b", "..", "org.example.group/",
                             "../group-containers/org.example.group"})
        EXPECT_EQ(files->containerURLForSecurityApplicationGroupIdentifier(name), std::nullopt) << name;
    NSBundle::mainBundle()->setBundleIdentifier({});
}

TEST(NSBundle, FindsResourcesInEveryLayout) {
    TemporaryFolder const folder;
    folder.write("App/Contents/Resources/a.txt", "");
    folder.write("App/Resources/b.txt", "");
    folder.write("App/Resources/a.txt", "");
    folder.write("App/c.data", "");
    folder.write("App/Contents/Resources/sub/d.txt", "");
    folder.write("App/Contents/Info.plist",
                 "<plist><dict><key>CFBundleIdentifier</key><string>org.example.app</string></dict></plist>");
    auto const bundle = NSBundle::bundleWithURL(at(folder, "App"));
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(bundle->URLForResource("a", "txt"), at(folder, "App/Contents/Resources/a.txt"));
    EXPECT_EQ(bundle->URLForResource("b.txt"), at(folder, "App/Resources/b.txt"));
    EXPECT_EQ(bundle->URLForResource("c", "data"), at(folder, "App/c.data"));
    EXPECT_EQ(bundle->URLForResource("d", "txt", "sub"), at(folder, "App/Contents/Resources/sub/d.txt"));
    EXPECT_EQ(bundle->URLForResource("d", "txt"), std::nullopt);
    EXPECT_EQ(bundle->URLsForResourcesWithExtension("txt").size(), 3u);
    EXPECT_EQ(bundle->bundleIdentifier(), "org.example.app");
    bundle->setBundleIdentifier("set.by.code");
    EXPECT_EQ(bundle->bundleIdentifier(), "set.by.code");

    EXPECT_EQ(NSBundle::bundleWithURL(at(folder, "App/c.data")), nullptr);
    EXPECT_EQ(NSBundle::bundleWithPath(folder.path("none")), nullptr);
    EXPECT_EQ(NSBundle::bundleWithURL(*NSURL::URLWithString("http://h/")), nullptr);
    folder.write("broken/Info.plist", "<plist><dict>");
    EXPECT_EQ(NSBundle::bundleWithPath(folder.path("broken"))->bundleIdentifier(), std::nullopt);
    EXPECT_TRUE(NSBundle::mainBundle()->URLForResource(std::filesystem::read_symlink("/proc/self/exe").filename().native()));
}

TEST(PropertyList, ReadsEveryKind) {
    auto const list = PropertyList::fromXML(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Example//DTD PLIST 1.0//EN" "http://example.org/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>text</key><string>a &lt;b&gt; <!-- not this --> c</string> <key>blank</key><string> </string> <key>empty</key><string/>
  <key>list</key><array><integer> -7 </integer><real>2.5</real><true/><false/><dict> </dict><array/></array>
  <key>date</key><date>2015-03-01T12:30:00Z</date> <key>data</key><data> Zm9v
  Yg== </data>
</dict></plist>)");
    auto const& dictionary = list.dictionary();
    EXPECT_EQ(dictionary["text"], Value("a <b>  c"));
    EXPECT_EQ(dictionary["blank"], Value(" "));
    EXPECT_EQ(dictionary["empty"], Value(""));
    EXPECT_EQ(dictionary["list"], Value(List{-7, 2.5, true, false, Dictionary{}, List{}}));
    EXPECT_EQ(dictionary["list"].list()[2].kind(), Value::Kind::Boolean);
    EXPECT_EQ(dictionary["date"], Value(*NSDate::dateWithISO8601Text("2015-03-01T12:30:00.000Z")));
    EXPECT_EQ(dictionary["data"], Value(NSData::dataWithText("foob")));
}

TEST(PropertyList, RefusesEverythingElse) {
    for (std::string const text :
         {"", "<dict/>", "<plist/>", "<plist><dict/><dict/></plist>", "<plist><dict><key>a</key></dict></plist>",
          "<plist><dict><string>a</string><key>b</key></dict></plist>", "<plist><integer>7x</integer></plist>",
          "<plist><integer></integer></plist>", "<plist><date>2015-03-01</date></plist>", "<plist><data>*</data></plist>",
          "<plist><other/></plist>", "<plist><array>text</array></plist>", "<plist><string><true/></string></plist>",
          "<plist><array>"})
        EXPECT_EQ(errnoOf([&] { PropertyList::fromXML(text); }), -1) << text;
    std::string deep;
    for (int i = 0; i < 10'000; ++i) deep += "<array>";
    for (int i = 0; i < 10'000; ++i) deep += "</array>";
    EXPECT_EQ(errnoOf([&] { PropertyList::fromXML("<plist>" + deep + "</plist>"); }), -1);
    EXPECT_EQ(errnoOf([&] { PropertyList::contentsOfURL(NSURL::fileURLWithPath("/none")); }), ENOENT);
}

TEST(Gestalt, UnitTestsRunExactlyWhileTheirClassIsRegistered) {
    EXPECT_FALSE(Gestalt::isRunningUnitTests());
    EXPECT_FALSE(classOf<XCTest>().name().empty());
    EXPECT_FALSE(Gestalt::isRunningUnitTests()) << "known, but not registered";
    registerClass<XCTest>();
    EXPECT_TRUE(Gestalt::isRunningUnitTests());
}

} // namespace
} // namespace Tessarin
