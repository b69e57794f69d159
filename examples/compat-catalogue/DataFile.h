#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <map>
#include <string>
#include <vector>

namespace Catalogue {

/// What the file holds, counted straight from its JSON: the store must give the same numbers.
struct Census {
    struct OfBrowser {
        std::int64_t releases = 0;
        std::int64_t datedReleases = 0;
        std::int64_t statements = 0;
    };
    std::map<std::string, OfBrowser> browsers; // by identifier
    std::int64_t nodes = 0; // features and the folders that hold them
    std::int64_t features = 0;
    std::int64_t roots = 0;
    std::int64_t statuses = 0;
    std::int64_t deprecated = 0;
    std::int64_t releases = 0;
    std::int64_t statements = 0;
    std::int64_t addedTrue = 0, addedFalse = 0, addedNull = 0, addedAtLatest = 0, addedPreview = 0;
    std::int64_t removed = 0, removedFalse = 0;
    std::int64_t partial = 0;
    std::int64_t flagged = 0;
};

/// A node of the tree of features; a parent always stands before its children.
struct Node {
    std::string path;   // "api.AbortController.abort"
    std::string parent; // the path of its parent, empty for a root
    std::string name;   // the last part of the path
    Tessarin::Dictionary const* compat; // null for a folder
};

/// The data set, parsed, checked and counted. Throws std::runtime_error, with the place, when it is not what it should be;
/// nothing has been imported by then.
class DataFile {
public:
    explicit DataFile(std::string const& file);
    DataFile(DataFile const&) = delete;
    DataFile& operator=(DataFile const&) = delete;

    Tessarin::Dictionary const& browsers() const { return json_["browsers"].dictionary(); }
    std::vector<Node> const& nodes() const { return nodes_; }
    Census const& census() const { return census_; }

private:
    void countBrowser(std::string const& identifier, Tessarin::Value const& browser);
    void walk(Tessarin::Value const& node, std::string const& path, std::string const& parent, std::string const& name);
    void countFeature(Tessarin::Dictionary const& compat, std::string const& path);
    void countStatement(Tessarin::Dictionary const& statement, std::string const& path);

    Tessarin::Dictionary json_;
    std::vector<Node> nodes_; // point into json_
    Census census_;
};

/// A value that the data writes as one thing or as a list of things.
Tessarin::List asList(Tessarin::Value const& value);

} // namespace Catalogue
