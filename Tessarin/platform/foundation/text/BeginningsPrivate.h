#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Tessarin::clusters {

/// Whether each byte is a cluster of its own, whatever stands beside it: ASCII without "\r\n".
bool isOfSingleBytes(std::string_view text) noexcept;

/// Where the clusters of a text begin: a bit for each byte, the count before each block of 512, and the block of every 512th
/// cluster. That is 8/64 + 8/512 + at most 8/512 of the text's size, and finds each cluster in the same time, however long its
/// neighbours are.
class Beginnings {
public:
    Beginnings() = default;
    explicit Beginnings(std::string_view text);

    std::size_t count() const noexcept { return count_; }
    /// Of a cluster that there is.
    std::size_t offsetOf(std::size_t index) const noexcept;
    /// Where the next cluster begins, or the text ends.
    std::size_t nextAfter(std::size_t offset) const noexcept;
    /// Of the cluster that a byte of the text belongs to.
    std::size_t indexOf(std::size_t offset) const noexcept;

private:
    static constexpr std::size_t wordsPerBlock = 8, clustersPerHint = 512;
    void mark(std::size_t from, std::size_t count) noexcept;
    void countBlocks();

    std::vector<std::uint64_t> words_; // and a bit behind the last cluster
    std::vector<std::uint64_t> before_;
    std::vector<std::uint64_t> hints_;
    std::size_t count_ = 0;
};

} // namespace Tessarin::clusters
