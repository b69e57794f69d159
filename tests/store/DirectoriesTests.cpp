#include "Tessarin/platform/foundation/NSFileManager.h"

#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

TEST(Directories, AreFileURLsOfTheUsersFolders) {
    tests::TemporaryFolder const home;
    tests::Environment const variables[] = {{"HOME", home.path()}, {"XDG_CONFIG_HOME", std::nullopt}, {"XDG_DATA_HOME", home.path("data dir")},
                                            {"XDG_CACHE_HOME", std::nullopt}, {"TMPDIR", home.path("tmp")}};
    auto const url = [&](std::string_view name) { return NSURL::fileURLWithPath(home.path(name)); };
    EXPECT_EQ(NSFileManager::documentsDirectoryURL(), url("Documents"));
    EXPECT_EQ(NSFileManager::libraryDirectoryURL(), url("data dir"));
    EXPECT_EQ(NSFileManager::applicationSupportDirectoryURL(), url("data dir"));
    EXPECT_EQ(NSFileManager::cachesDirectoryURL(), url(".cache"));
    EXPECT_EQ(NSFileManager::tempDirectoryURL(), url("tmp/"));
    EXPECT_EQ(NSFileManager::userDirectory(NSSearchPathDirectory{9}), url("Documents"));
    EXPECT_EQ(NSFileManager::userDirectory(NSSearchPathDirectory{1}), std::nullopt);
    EXPECT_TRUE(std::filesystem::is_empty(home.path())) << "none of these creates a folder";
}

TEST(Directories, ExistenceTellsFilesFromFolders) {
    tests::TemporaryFolder const folder;
    auto const file = NSURL::fileURLWithPath(folder.write("a file", ""));
    auto const& files = NSFileManager::defaultManager();
    EXPECT_TRUE(files->fileExistsAtURL(file));
    EXPECT_FALSE(files->directoryExistsAtURL(file));
    auto const directory = NSURL::fileURLWithPath(folder.path());
    EXPECT_TRUE(files->fileExistsAtURL(directory));
    EXPECT_TRUE(files->directoryExistsAtURL(directory));
    auto const none = directory.URLByAppendingPathComponent("none");
    EXPECT_FALSE(files->fileExistsAtURL(none));
    EXPECT_FALSE(files->directoryExistsAtURL(none));
    auto const web = *NSURL::URLWithString("http://h.example/tmp");
    EXPECT_DEATH(files->fileExistsAtURL(web), "no path in the file system");
    EXPECT_DEATH(files->directoryExistsAtURL(web), "no path in the file system");
}

} // namespace
} // namespace Tessarin
