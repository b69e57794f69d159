#include "benchmarks/store/Session.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <stdexcept>
#include <unistd.h>

namespace Tessarin::benchmarks {
namespace {

namespace fs = std::filesystem;

double middle(std::vector<double>& values) {
    auto const at = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/// Else a run's own sync would have to write what was copied.
void syncFile(std::string const& file) {
    auto const descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0 || fsync(descriptor) != 0) throw std::runtime_error("cannot sync " + file);
    close(descriptor);
}

} // namespace

Workload::Workload(std::size_t books, Synchronous durability)
    : library(Library::generate(books + 10'000)), imported(std::min<std::size_t>(books, 50'000)), synchronous(durability) {
    auto const end = library.books.begin() + static_cast<std::ptrdiff_t>(books);
    more.assign(std::make_move_iterator(end), std::make_move_iterator(library.books.end()));
    library.books.erase(end, library.books.end());
    json = booksAsJSON(library, imported);
    json.reserve(json.size() + 64); // simdjson reads past the end
}

Session::Session(std::size_t books, Synchronous synchronous, std::string folder, Contenders const& contenders)
    : work_(books, synchronous), folder_(std::move(folder)), contenders_(contenders) {}

Figures Session::measure(RowPlan const& plan, int runs) {
    struct Values {
        std::vector<double> judged, wall;
    };
    std::vector<Values> values(contenders_.size());
    std::optional<std::uint64_t> expected;
    if (plan.expected) expected = plan.expected(work_);
    for (int run = 0; run < runs; ++run)
        for (std::size_t at = 0; at < contenders_.size(); ++at) {
            if (!contenders_[at]) continue;
            auto& contender = *contenders_[at];
            auto const reading = plan.measure(contender, work_, fileFor(plan.start, contender));
            if (!reading && at == 0) return Figures(contenders_.size()); // a row needs ours
            if (!reading) continue;
            values[at].judged.push_back(reading->value);
            values[at].wall.push_back(reading->wall);
            if (!expected) expected = reading->checksum;
            check(fmt::format("{} of {}", plan.id, contender.name()), reading->checksum, *expected);
        }
    Figures figures;
    for (auto& [judged, wall] : values)
        figures.push_back(judged.empty() ? std::optional<Figure>() : Figure{middle(judged), middle(wall)});
    return figures;
}

std::string Session::fileFor(Start start, Contender& contender) {
    switch (start) {
    case Start::Empty: return freshFile();
    case Start::Filled: return filledFile(contender);
    case Start::Copied: return copiedFile(contender);
    }
    return {};
}

void Session::check(std::string_view row, std::uint64_t checksum, std::uint64_t expected) {
    if (checksum == expected) return;
    hasFailed_ = true;
    fmt::print(stderr, "{}: CHECKSUMS DIFFER: {:016x}, expected {:016x}\n", row, checksum, expected);
}

/// The name of a file that does not exist; the one before it is removed.
std::string Session::freshFile() const {
    auto const folder = fs::path(folder_) / "fresh";
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder / "library.db";
}

std::string Session::filledFile(Contender& contender) {
    auto& file = filled_[&contender];
    if (file.empty()) {
        auto const folder = fs::path(folder_) / contender.name();
        fs::create_directories(folder);
        file = folder / "library.db";
        contender.insertAll(work_, file);
    }
    return file;
}

std::string Session::copiedFile(Contender& contender) {
    auto const source = filledFile(contender), file = freshFile();
    if (fs::exists(source + "-wal")) throw std::runtime_error(source + " has a log");
    fs::copy_file(source, file);
    syncFile(file);
    return file;
}

} // namespace Tessarin::benchmarks
