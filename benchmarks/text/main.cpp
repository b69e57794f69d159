// Characters by index beside a plain string and ICU's iterator, and paths beside the standard library's. Processor time.
#include "Tessarin/platform/foundation/text/Path.h"
#include "Tessarin/text/TextIndex.h"
#include "benchmarks/support/Threads.h"

#include <filesystem>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/utext.h>

namespace Tessarin::benchmarks {
namespace {

namespace fs = std::filesystem;

constexpr int runs = 15;
constexpr std::size_t megabyte = 1'000'000;

double milliseconds(FunctionRef<void()> work) { return costOf(work).processor * 1e3; }

std::string repeated(std::string_view part) {
    std::string text;
    while (text.size() < megabyte) text += part;
    return text;
}

/// As sources and letters are, and as chats are.
constexpr std::string_view mixedText = "Größe und Maß: naïve façade, 12 °C – «été». Привет, мир! 東京は晴れ。 हिन्दी में लिखा "
                                       "👩‍🚀🇩🇪 ok\r\n";
constexpr std::string_view denseText = "👩‍🚀🇩🇪e\u0301o\u0308한국어각क्षि";

std::size_t walk(TextIndex const& index) {
    std::size_t sum = 0;
    for (std::size_t at = 0; at < index.length(); ++at) {
        auto const character = *index.at(static_cast<std::ptrdiff_t>(at));
        sum += static_cast<unsigned char>(character[0]) + character.size();
    }
    return sum;
}

void benchASCII(Report& report) {
    auto text = repeated("The quick brown fox jumps over the lazy dog.\n");
    TextIndex const index{Text{text}};
    auto const byString = [&] {
        std::size_t sum = 0;
        for (std::size_t at = 0; at < text.size(); ++at) {
            auto place = at;
            touch(place); // a loop that the compiler may turn into a sum of sixteen at once is no access by index
            sum += static_cast<unsigned char>(text[place]);
        }
        touch(sum);
    };
    auto const byIndex = [&](TextIndex const& characters) {
        std::size_t sum = 0;
        for (std::size_t at = 0; at < characters.length(); ++at) {
            auto place = at;
            touch(place);
            sum += static_cast<unsigned char>(characters.at(static_cast<std::ptrdiff_t>(place))->front());
        }
        touch(sum);
    };
    auto const add = [&](char const* row, double target, auto const& ours) {
        if (!report.wants("characters", row)) return;
        auto const result = medians(
            runs, [&] { return milliseconds(ours); }, [&] { return milliseconds(byString); });
        report.add({.group = "characters",
                    .row = row,
                    .unit = "ms",
                    .ours = result.ours,
                    .peer = "std::string[]",
                    .theirs = result.theirs,
                    .target = target});
    };
    add("1 MB of ASCII by index", 3, [&] { byIndex(index); });
    add("… and the index made before", 0, [&] { byIndex(TextIndex{Text{text}}); });
}

void benchMixed(Report& report, char const* row, std::string const& text) {
    if (!report.wants("characters", row)) return;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> const iterator{
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status)};
    auto const byICU = [&] {
        UText opened = UTEXT_INITIALIZER;
        utext_openUTF8(&opened, text.data(), static_cast<std::int64_t>(text.size()), &status);
        iterator->setText(&opened, status);
        std::size_t sum = 0;
        auto from = iterator->first();
        for (auto to = iterator->next(); to != icu::BreakIterator::DONE; from = to, to = iterator->next())
            sum += static_cast<unsigned char>(text[static_cast<std::size_t>(from)]) + static_cast<std::size_t>(to - from);
        utext_close(&opened);
        return sum;
    };
    if (auto const ours = walk(TextIndex{Text{text}}); ours != byICU())
        std::fprintf(stderr, "%s: ICU finds other characters\n", row);
    auto const measured = [](auto const& work) {
        return milliseconds([&] {
            auto sum = work();
            touch(sum);
        });
    };
    auto const result = medians(
        runs, [&] { return measured([&] { return walk(TextIndex{Text{text}}); }); }, [&] { return measured(byICU); });
    report.add({.group = "characters",
                .row = row,
                .unit = "ms",
                .ours = result.ours,
                .peer = "ICU, walked once",
                .theirs = result.theirs,
                .target = 1.2});
}

/// The peer's paths are made before; ours are read from the text each time.
template <class Ours, class Theirs> void benchPath(Report& report, char const* row, Ours const& ours, Theirs const& theirs) {
    if (!report.wants("paths", row)) return;
    static std::vector<std::string> const texts{"/home/ada/Documents/letters/2024/to Charles.draft.txt", "notes.txt",
                                                "/usr/share/./icons/../fonts/", "../build/release/Tessarin/libtessarin.so.0.1.0"};
    static std::vector<fs::path> const paths(texts.begin(), texts.end());
    auto const perCall = [](auto const& all, auto const& operation) {
        constexpr int rounds = 20'000;
        return milliseconds([&] {
                   for (int round = 0; round < rounds; ++round)
                       for (auto const& each : all) {
                           auto result = operation(each);
                           touch(result);
                       }
               }) *
               1e6 / (rounds * static_cast<double>(all.size()));
    };
    auto const result = medians(
        runs, [&] { return perCall(texts, ours); }, [&] { return perCall(paths, theirs); });
    report.add({.group = "paths",
                .row = row,
                .unit = "ns",
                .ours = result.ours,
                .peer = "fs::path",
                .theirs = result.theirs,
                .target = 1});
}

void benchPaths(Report& report) {
    using Name = std::string const&;
    using Peer = fs::path const&;
    benchPath(
        report, "last component", [](Name path) { return Path::lastPathComponent(path); },
        [](Peer path) { return path.filename(); });
    benchPath(
        report, "without it", [](Name path) { return Path::deletingLastPathComponent(path); },
        [](Peer path) { return path.parent_path(); });
    benchPath(
        report, "extension", [](Name path) { return Path::pathExtension(path); }, [](Peer path) { return path.extension(); });
    benchPath(
        report, "another extension",
        [](Name path) { return Path::appendingPathExtension(Path::deletingPathExtension(path), "bak"); },
        [](fs::path path) { return path.replace_extension("bak"); });
    benchPath(
        report, "with a component", [](Name path) { return Path::appendingPathComponent(path, "part.txt"); },
        [](Peer path) { return path / "part.txt"; });
    benchPath(
        report, "components", [](Name path) { return Path::pathComponents(path); },
        [](Peer path) { return std::vector<std::string>(path.begin(), path.end()); });
    benchPath( // a path finds its components while it is made
        report, "components, the peer's path made, too", [](Name path) { return Path::pathComponents(path); },
        [](Peer made) {
            fs::path const path(made.native());
            return std::vector<std::string>(path.begin(), path.end());
        });
    benchPath(
        report, "standardized", [](Name path) { return Path::standardized(path); },
        [](Peer path) { return path.lexically_normal(); });
    benchPath(
        report, "relative to a folder", [](Name path) { return Path::relativeTo(path, "/home/ada/Pictures"); },
        [](Peer path) { return path.lexically_relative("/home/ada/Pictures"); });
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    benchASCII(report);
    benchMixed(report, "1 MB of mixed text by index", repeated(mixedText));
    benchMixed(report, "1 MB of joined characters", repeated(denseText));
    benchPaths(report);
    return report.finish();
}
