#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace Tessarin;

namespace {

std::string document(std::string const& entity, std::string const& inside = {}) {
    return "<model><entity name=\"" + entity + "\">" + inside + "</entity></model>";
}
std::string note(std::string const& content) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + content + "</dict></plist>";
}
std::string currentIs(std::string const& name) { return note("<key>_XCCurrentVersionName</key><string>" + name + "</string>"); }

/// The name of the only entity of what loads from there, or "absent".
std::string loaded(std::string const& path) {
    auto const model = NSManagedObjectModel::contentsOfURL(NSURL::fileURLWithPath(path));
    return model ? model->entities().front()->name() : "absent";
}

} // namespace

TEST(ModelFiles, FindsTheCurrentVersion) {
    tests::TemporaryFolder const folder;
    auto const one = [&](std::string const& name, std::string const& current) {
        folder.write(name + ".xcdatamodeld/M 1.0.xcdatamodel/contents", document("One"));
        if (!current.empty()) folder.write(name + ".xcdatamodeld/.xccurrentversion", current);
        return folder.path(name + ".xcdatamodeld");
    };
    auto const two = [&](std::string const& name, std::string const& current) {
        folder.write(name + ".xcdatamodeld/M 2.0.1.xcdatamodel/contents", document("Two"));
        folder.write(name + ".xcdatamodeld/M 2.0.1.xcdatamodel/layout", "x");
        return one(name, current);
    };
    struct {
        std::string path, expected;
    // clang-format off
    } const rows[] = {
        {two("named", currentIs("M 2.0.1.xcdatamodel")), "Two"}, {two("other", currentIs("M 1.0.xcdatamodel")), "One"},
        {two("gone", currentIs("M 3.xcdatamodel")), "absent"},
        {two("outside", currentIs("../named.xcdatamodeld/M 1.0.xcdatamodel")), "absent"}, {two("empty", note("")), "absent"},
        {two("unnoted", ""), "absent"}, {one("only", ""), "One"}, {one("onlyEmpty", note("")), "One"},
        {one("onlyBroken", "<plist"), "One"}, {folder.path("only.xcdatamodeld/M 1.0.xcdatamodel"), "One"},
        {folder.path("only.xcdatamodeld/M 1.0.xcdatamodel/contents"), "One"},
        {folder.write("old.xcdatamodel/elements", "binary"), "absent"}, {folder.path("old.xcdatamodel"), "absent"},
        {folder.path(), "absent"}, {folder.path("nowhere"), "absent"}};
    // clang-format on
    for (auto const& [path, expected] : rows) EXPECT_EQ(loaded(path), expected) << path;

    auto const versions = NSManagedObjectModel::versionsOfURL(NSURL::fileURLWithPath(rows[0].path));
    ASSERT_EQ(versions.size(), 2U);
    EXPECT_TRUE(versions.at("M 2.0.1")->entityNamed("Two"));
    EXPECT_EQ(NSManagedObjectModel::versionsOfURL(NSURL::fileURLWithPath(folder.path("only.xcdatamodeld/M 1.0.xcdatamodel")))
                  .count("M 1.0"),
              1U);
    std::string problem;
    EXPECT_FALSE(NSManagedObjectModel::contentsOfURL(NSURL::fileURLWithPath(rows[5].path), &problem));
    EXPECT_NE(problem.find("which version is current"), std::string::npos);
    auto const cutOff = NSURL::URLWithString("file://" + folder.path("only.xcdatamodeld/M%201.0.xcdatamodel/contents%00.x"));
    EXPECT_FALSE(NSManagedObjectModel::contentsOfURL(*cutOff, &problem));
    EXPECT_NE(problem.find("contents%00.x is not a file"), std::string::npos) << problem;
}

TEST(ModelFiles, UnitesTheModelsOfBundles) {
    tests::TemporaryFolder const folder;
    folder.write("a/Resources/A.xcdatamodel/contents",
                 document("A", "<attribute name=\"x\" attributeType=\"String\"/><attribute name=\"y\"/>"));
    folder.write("a/Resources/B.xcdatamodeld/B.xcdatamodel/contents", document("B"));
    folder.write("same/A.xcdatamodel/contents",
                 document("A", "<attribute name=\"y\"/><attribute name=\"x\" attributeType=\"String\"/>"));
    folder.write("different/A.xcdatamodel/contents",
                 document("A", "<attribute name=\"x\" attributeType=\"Date\"/><attribute name=\"y\"/>"));
    folder.write("damaged/C.xcdatamodel/contents", "<model>");
    folder.write("empty/readme", "");
    struct {
        std::vector<char const*> bundles;
        std::size_t entities; // 0: absent
    } const rows[] = {
        {{"a"}, 2}, {{"a", "same"}, 2}, {{"same", "empty"}, 1}, {{"a", "different"}, 0}, {{"a", "damaged"}, 0}, {{"empty"}, 0},
        {{}, 0}};
    for (auto const& [names, entities] : rows) {
        std::vector<Ref<NSBundle>> bundles;
        for (auto const* name : names) bundles.push_back(NSBundle::bundleWithPath(folder.path(name)));
        auto const model = NSManagedObjectModel::mergedModelFromBundles(bundles);
        EXPECT_EQ(model ? model->entities().size() : 0, entities) << testing::PrintToString(names);
    }
    EXPECT_EQ(NSManagedObjectModel::mergedModelFromBundles(), nullptr); // none stands beside the tests
}
