#pragma once

namespace Catalogue {

/// Serves the main queue as a toolkit's event loop does, through its descriptor, and remembers how long the longest turn
/// took: for that time a user interface would not have answered. On the main thread.
class MainQueueWatch {
public:
    /// Returns when an item of the main queue has set `isDone`.
    void serveUntil(bool const& isDone);
    double longestMilliseconds() const { return longest_; }

private:
    double longest_ = 0;
};

} // namespace Catalogue
