// Paths as texts, beside what the standard library and POSIX say of the same.
#include "Tessarin/platform/foundation/text/Path.h"

#include "tests/support/TemporaryFolder.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <libgen.h>
#include <pwd.h>
#include <unistd.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

template <class Parts> std::string joined(Parts const& parts) {
    std::string text;
    for (auto const& part : parts) text += (text.empty() ? "" : "|") + std::string{part};
    return text;
}

std::string ours(char operation, std::string_view path, std::string_view other) {
    switch (operation) {
    case 'L': return std::string{Path::lastPathComponent(path)};
    case 'D': return std::string{Path::deletingLastPathComponent(path)};
    case 'E': return std::string{Path::pathExtension(path)};
    case 'X': return std::string{Path::deletingPathExtension(path)};
    case 'A': return Path::appendingPathComponent(path, other);
    case 'P': return Path::appendingPathExtension(path, other);
    case 'C': return joined(Path::pathComponents(path));
    case 'I': return Path::isAbsolutePath(path) ? "yes" : "no";
    case 'S': return Path::standardized(path);
    default: return Path::relativeTo(path, other).value_or("none");
    }
}

std::string standard(char operation, fs::path path, std::string const& other) {
    switch (operation) {
    case 'L': return path.filename();
    case 'D': return path.parent_path();
    case 'E': return path.extension().string().substr(path.has_extension() ? 1 : 0); // whose "." is not ours
    case 'X': return path.replace_extension();
    case 'A': return path / other;
    case 'P': return path += "." + other;
    case 'C': return joined(path);
    case 'I': return path.is_absolute() ? "yes" : "no";
    case 'S': return path.lexically_normal();
    default: return path.lexically_relative(other).empty() ? "none" : path.lexically_relative(other);
    }
}

std::string posix(char operation, std::string path) {
    return operation == 'L' ? ::basename(path.data()) : operation == 'D' ? ::dirname(path.data()) : "-";
}

TEST(Path, EachOperationAndWhereItDiffersFromTheStandardLibraryAndPOSIX) {
    constexpr char const* same = "";
    constexpr char const* end = "a slash at the end names nothing, so that a folder's path may bear one";
    constexpr char const* root = "the root has a name to show, as in POSIX";
    constexpr char const* nothing = "no name is no name; the current folder's would be made up";
    constexpr char const* slashes = "slashes beyond one mean nothing";
    constexpr char const* dot = "a dot alone is no extension, so none is taken off or put on";
    constexpr char const* hidden = "dots in front belong to the name; what is left would be a folder's";
    constexpr char const* appended = "appending never throws away what it appends to";
    constexpr char const* nameless = "there is no name to bear it";
    constexpr char const* inside = "an extension that begins another component would be another file's";
    constexpr char const* unknown = "the name of the folder to come back from is not known";
    constexpr char const* written = "both are standardized first";
    struct {
        char operation; // the capital of last, deleting, extension, (deleting e)xtension, appending, plus extension, components …
        char const *path, *other, *ours, *standard, *posix, *reason;
        // clang-format off
    } const rows[] = {
        {'L', "/a/b/c", "", "c", "c", "c", same}, {'L', "/a/b/", "", "b", "", "b", end}, {'L', "a//", "", "a", "", "a", end},
        {'L', "/", "", "/", "", "/", root}, {'L', "", "", "", "", ".", nothing}, {'L', "a/.", "", ".", ".", ".", same},
        {'D', "/a/b/c", "", "/a/b", "/a/b", "/a/b", same}, {'D', "/a", "", "/", "/", "/", same},
        {'D', "/", "", "/", "/", "/", same}, {'D', "a", "", "", "", ".", nothing}, {'D', "", "", "", "", ".", nothing},
        {'D', "/a/b/", "", "/a", "/a/b", "/a", end}, {'D', "//a", "", "/", "/", "//", slashes},
        {'D', "..", "", "", "", ".", nothing}, {'E', "/x/a.tar.gz", "", "gz", "gz", "-", same},
        {'E', ".profile", "", "", "", "-", same}, {'E', "a.", "", "", "", "-", same}, {'E', "..a", "", "", "a", "-", hidden},
        {'E', "a.d/b", "", "", "", "-", same}, {'E', "a.d/", "", "d", "", "-", end},
        {'X', "/x/a.txt", "", "/x/a", "/x/a", "-", same}, {'X', ".profile", "", ".profile", ".profile", "-", same},
        {'X', "a.", "", "a.", "a", "-", dot}, {'X', "a.d/", "", "a", "a.d/", "-", end},
        {'X', "..a", "", "..a", ".", "-", hidden}, {'A', "/a", "b", "/a/b", "/a/b", "-", same},
        {'A', "/a", "/b", "/a/b", "/b", "-", appended}, {'A', "", "b", "b", "b", "-", same},
        {'A', "/", "b", "/b", "/b", "-", same}, {'A', "/a", "", "/a", "/a/", "-", end},
        {'A', "/a", "b/", "/a/b", "/a/b/", "-", end}, {'A', "a", "..", "a/..", "a/..", "-", same},
        {'A', "/a//", "//b", "/a/b", "//b", "-", appended}, {'P', "a.txt", "gz", "a.txt.gz", "a.txt.gz", "-", same},
        {'P', "a/", "txt", "a.txt", "a/.txt", "-", end}, {'P', "/", "txt", "/", "/.txt", "-", nameless},
        {'P', "", "txt", "", ".txt", "-", nameless}, {'P', "..", "txt", "..", "...txt", "-", nameless},
        {'P', "a", "", "a", "a.", "-", dot}, {'P', "a", "b/c", "a", "a.b/c", "-", inside},
        {'P', "a", ".txt", "a..txt", "a..txt", "-", same}, {'C', "/a//b/", "", "/|a|b", "/|a|b|", "-", end},
        {'C', "a/../b", "", "a|..|b", "a|..|b", "-", same}, {'C', "", "", "", "", "-", same},
        {'I', "/a", "", "yes", "yes", "-", same}, {'I', "a", "", "no", "no", "-", same},
        {'I', "~/a", "", "no", "no", "-", same}, {'S', "/a/./b/../c", "", "/a/c", "/a/c", "-", same},
        {'S', "a/b/", "", "a/b", "a/b/", "-", end}, {'S', "a/..", "", ".", ".", "-", same}, {'S', "", "", "", "", "-", same},
        {'S', "/..", "", "/", "/", "-", same}, {'S', "../a/../..", "", "../..", "../..", "-", same},
        {'S', "//a", "", "/a", "/a", "-", same}, {'S', "a/../../b", "", "../b", "../b", "-", same},
        {'S', "a/b/..", "", "a", "a/", "-", end}, {'R', "/a/d", "/a/b/c", "../../d", "../../d", "-", same},
        {'R', "/a/b", "/a/b", ".", ".", "-", same}, {'R', "/a", "b", "none", "none", "-", same},
        {'R', "a", "../b", "none", "a", "-", unknown}, {'R', "../a", "../b", "../a", "../a", "-", same},
        {'R', "/a/b/", "/a", "b", "b/", "-", end}, {'R', "/a/./b", "/a/c/..", "b", "./b", "-", written},
        {'R', "/a/../b", "/b", ".", "../a/../b", "-", written}};
    // clang-format on
    for (auto const& row : rows) {
        auto const where = std::string{row.operation} + " '" + row.path + "' '" + row.other + "'";
        EXPECT_EQ(ours(row.operation, row.path, row.other), row.ours) << where;
        EXPECT_EQ(standard(row.operation, row.path, row.other), row.standard) << where;
        EXPECT_EQ(posix(row.operation, row.path), row.posix) << where;
        bool const isSame =
            row.ours == std::string{row.standard} && (row.posix == std::string{"-"} || row.ours == std::string{row.posix});
        EXPECT_EQ(isSame, *row.reason == 0) << where;
    }
}

TEST(Path, ComponentsOfAnyLengthAreWholeWhateverTheirBytes) {
    for (std::size_t length = 1; length < 40; ++length) {
        std::string const first(length, 'a'), second(40 - length, static_cast<char>('/' | 0x80));
        for (auto const* const end : {"", "/", "///"})
            EXPECT_EQ(Path::pathComponents(first + "//" + second + "/c/" + first + end),
                      (std::vector<std::string>{first, second, "c", first}));
    }
}

TEST(Path, TheHomeFolderIsATildeAndBack) {
    auto const* const user = ::getpwuid(::getuid());
    struct {
        std::string home, path, abbreviated, expanded;
    } const rows[] = {{"/home/ada", "/home/ada", "~", "/home/ada"},
                      {"/home/ada", "/home/ada/a b", "~/a b", "/home/ada/a b"},
                      {"/home/ada", "/home/adam/a", "/home/adam/a", "/home/adam/a"}, // another's, that begins alike
                      {"/home/ada/", "/home/ada/a", "~/a", "/home/ada/a"},
                      {"/", "~/a", "~/a", "/a"},
                      {"/home/ada", "~", "~", "/home/ada"},
                      {"/home/ada", "a/~", "a/~", "a/~"},
                      {"/home/ada", "~no such user/a", "~no such user/a", "~no such user/a"},
                      {"/home/ada", "~" + std::string{user->pw_name} + "/a", "~" + std::string{user->pw_name} + "/a",
                       std::string{user->pw_dir} + "/a"}};
    for (auto const& row : rows) {
        tests::Environment const home("HOME", row.home.c_str());
        EXPECT_EQ(Path::abbreviatingWithTilde(row.path), row.abbreviated) << row.home << " " << row.path;
        EXPECT_EQ(Path::expandingTilde(row.path), row.expanded) << row.home << " " << row.path;
    }
}

} // namespace
} // namespace Tessarin
