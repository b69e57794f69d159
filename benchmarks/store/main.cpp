// The object store beside hand-written SQLite: the same data, the same checksums, in one run.
//
//     bench_store [--json FILE] [--only ROW]... [part of a row's name]...
#include "benchmarks/store/Contender.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <map>

namespace Tessarin::benchmarks {
namespace {

/// The file that a row starts from: none, or one that already holds the library.
enum class Start { Empty, Filled };

/// A row in which both contenders do the same work.
struct Duel {
    char const* id;
    char const* what;
    char const* unit;
    double target; // ours / raw
    int runs;
    Start start;
    Reading (*measure)(Contender&, Workload const&, std::string const& file);
    std::uint64_t (*expected)(Workload const&) = nullptr; // the checksum; null where agreement is all that can be asked
};

constexpr Duel duels[] = {
    {"W1", "insert 101,200 objects, 200,000 links", "ms", 2, 5, Start::Empty,
     [](Contender& c, Workload const& work, std::string const& file) { return c.insertAll(work, file); },
     [](Workload const& work) { return checksumOf(work.library); }},
    {"W3", "fetch all, read 5 attributes", "ms", 2, 11, Start::Filled,
     [](Contender& c, Workload const& work, std::string const& file) { return c.readAll(work, file); }},
    {"W6", "fetch all, read book.author.name", "ms", 2, 11, Start::Filled,
     [](Contender& c, Workload const& work, std::string const& file) { return c.walkToAuthors(work, file); }},
    {"W10", "import 50,000 JSON dictionaries", "ms", 2, 5, Start::Empty,
     [](Contender& c, Workload const& work, std::string const& file) { return c.importJSON(work, file); },
     [](Workload const& work) { return checksumOfJSON(work.library, work.imported); }},
    {"W12", "memory of 100,000 live books", "MiB", 2, 3, Start::Filled, residentInChild},
};

/// Measures the rows and compares the checksums.
class Session {
public:
    Session(std::string folder, Report& report) : report_(report) {
        work_.folder = std::move(folder);
        work_.library = Library::generate(100'000);
        work_.json = booksAsJSON(work_.library, work_.imported);
        work_.json.reserve(work_.json.size() + 64); // simdjson reads past the end
    }

    void measure(Duel const& duel) {
        std::uint64_t sums[2]{};
        bool isSteady = true;
        auto const run = [&](Contender& contender, std::uint64_t& sum) {
            auto const reading = duel.measure(contender, work_, duel.start == Start::Empty ? freshFile() : filledFile(contender));
            isSteady &= sum == 0 || sum == reading.checksum;
            sum = reading.checksum;
            return reading.value;
        };
        auto const figures = medians(
            duel.runs, [&] { return run(*ours_, sums[0]); }, [&] { return run(*raw_, sums[1]); });
        report_.add({.group = "store",
                     .row = fmt::format("{} {}", duel.id, duel.what),
                     .unit = duel.unit,
                     .ours = figures.ours,
                     .peer = raw_->name(),
                     .theirs = figures.theirs,
                     .target = duel.target});
        if (!isSteady || sums[0] != sums[1]) fail(duel.id, sums[0], sums[1]);
        if (auto const expected = duel.expected ? duel.expected(work_) : sums[1]; sums[0] != expected)
            fail(duel.id, sums[0], expected);
    }

    void measureMainQueue() {
        auto const library = Library::generate(125'000);
        auto const expected = checksumOf(library);
        auto const held = median(3, [&] {
            auto const reading = longestMainQueueHold(library, freshFile());
            if (reading.checksum != expected) fail("W14", reading.checksum, expected);
            return reading.value;
        });
        report_.add(
            {.group = "store", .row = "W14 main queue held, 5 saves of 25,000", .unit = "ms", .ours = held, .target = 20});
    }

    bool hasFailed() const { return hasFailed_; }

private:
    void fail(char const* row, std::uint64_t ours, std::uint64_t theirs) {
        hasFailed_ = true;
        fmt::print(stderr, "{}: CHECKSUMS DIFFER: ours {:016x}, expected {:016x}\n", row, ours, theirs);
    }
    /// The name of a file that does not exist; the one before it is removed.
    std::string freshFile() {
        auto const folder = std::filesystem::path(work_.folder) / "fresh";
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        return folder / "library.db";
    }
    std::string filledFile(Contender& contender) {
        auto& file = filled_[&contender];
        if (file.empty()) {
            auto const folder = std::filesystem::path(work_.folder) / contender.name();
            std::filesystem::create_directories(folder);
            file = folder / "library.db";
            contender.insertAll(work_, file);
        }
        return file;
    }

    Report& report_;
    Workload work_;
    std::unique_ptr<Contender> ours_ = makeOurs(), raw_ = makeRaw();
    std::map<Contender*, std::string> filled_;
    bool hasFailed_ = false;
};

class TemporaryFolder {
public:
    TemporaryFolder() {
        if (!mkdtemp(path_.data())) throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string const& path() const { return path_; }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "bench_store.XXXXXX";
};

int measureAll(int argc, char** argv) {
    std::vector<std::string> only;
    std::vector<char*> others;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc)
            only.emplace_back(argv[++i]);
        else
            others.push_back(argv[i]);
    }
    Report report(static_cast<int>(others.size()), others.data());
    auto const isWanted = [&](std::string const& id, std::string const& what) {
        return only.empty() ? report.wants("store", id + " " + what) : std::ranges::find(only, id) != only.end();
    };
    TemporaryFolder const folder;
    Session session(folder.path(), report);
    for (auto const& duel : duels)
        if (isWanted(duel.id, duel.what)) session.measure(duel);
    if (isWanted("W14", "main queue")) session.measureMainQueue();
    auto const status = report.finish();
    return session.hasFailed() ? 1 : status;
}

} // namespace

} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    try {
        return argc == 4 && std::strcmp(argv[1], "--resident") == 0 ? measureResident(argv[2], argv[3]) : measureAll(argc, argv);
    } catch (std::exception const& failure) {
        fmt::print(stderr, "bench_store: {}\n", failure.what());
        return 1;
    }
}
