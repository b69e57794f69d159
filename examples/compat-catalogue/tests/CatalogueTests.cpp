// The catalogue as a program: a made-up data set with every trap of the real one, imported, updated and checked.
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/wait.h>

using namespace Tessarin::tests;

namespace {

/// Statements that the real data set holds: texts, ≤, preview, true, false, null, a list, flags, something removed.
constexpr auto dataSet = R"({
"__meta": {"version": "1", "timestamp": "2024-09-11T14:27:17.000Z"},
"api": {"Zebra": {
    "__compat": {"description": "A <b>zebra</b>", "spec_url": ["https://a.example", "https://b.example"],
        "support": {"firefox": {"version_added": "104"}, "safari": {"version_added": false}, "edge": {"version_added": "≤12.1"}},
        "status": {"deprecated": true, "experimental": false, "standard_track": true}},
    "stripes": {"__compat": {"spec_url": "https://a.example", "support": {
        "firefox": [{"version_added": "99", "version_removed": false, "notes": ["one", "two"]},
                    {"version_added": "9", "version_removed": "12.16", "prefix": "moz", "partial_implementation": true}],
        "safari": {"version_added": true}, "edge": {"version_added": null}}}},
    "tail": {"__compat": {"support": {"firefox": {"version_added": "≤101"},
        "edge": {"version_added": "preview", "flags": [{"type": "preference", "name": "#tail", "value_to_set": "Enabled"}]}}}}}},
"browsers": {
    "edge": {"name": "Edge", "type": "desktop", "upstream": "firefox", "releases": {
        "9": {"release_date": "2015-03-01", "status": "retired"}, "12.1": {"status": "retired"},
        "100": {"status": "planned", "release_date": "2031-01-01"},
        "12.16": {"release_date": "2022-06-01", "status": "current"}}},
    "firefox": {"name": "Firefox", "preview_name": "Nightly", "releases": {
        "104": {"release_date": "2022-08-23", "engine": "Gecko", "engine_version": "104", "status": "current"},
        "99": {"release_date": "2022-04-05", "status": "retired"}}},
    "safari": {"name": "Safari", "releases": {"1.0": {"release_date": null, "status": "retired"}}}}
})";

struct Outcome {
    int status;
    std::string text; // standard output and standard error
};

Outcome run(std::string const& arguments) {
    auto* const pipe = popen((COMPAT_CATALOGUE " " + arguments + " 2>&1").c_str(), "r");
    std::string text;
    std::array<char, 4096> buffer;
    for (std::size_t count; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) text.append(buffer.data(), count);
    auto const status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

void replace(std::string& text, std::string_view what, std::string_view with) {
    auto const at = text.find(what);
    ASSERT_NE(at, std::string::npos) << what;
    text.replace(at, what.size(), with);
}

bool contains(std::string const& text, std::string_view part) { return text.find(part) != std::string::npos; }

class CompatCatalogue : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string data = folder.write("data.json", dataSet);
    std::string store = folder.path("store");

    Outcome import(std::string const& more = {}) const { return run("--data " + data + " --store " + store + more); }
    /// What the program gives itself when it starts as a new process.
    Outcome verify() const { return import(" --import-seconds 1 --held-milliseconds 2"); }
};

} // namespace

TEST_F(CompatCatalogue, ImportsEveryTrapAndUpdatesWithoutDuplicates) {
    for (auto const* start : {"New catalogue", "Updating the catalogue"}) {
        auto const [status, text] = import();
        EXPECT_EQ(status, 0) << text;
        EXPECT_TRUE(contains(text, start)) << text;
        EXPECT_TRUE(contains(text, "catalogue: features=3 statements=9 browsers=3 releases=7 bytes=")) << text;
        EXPECT_TRUE(contains(text, "not in Safari: 1 features\n  api.Zebra\nMost")) << "≤101 may be older than 100\n" << text;
        EXPECT_TRUE(contains(text, "browsers\n  2022-08-23  Firefox 104\n  2022-06-01  Edge 12.16\nSupport")) << text;
        EXPECT_TRUE(contains(
            text,
            "Support of api > Zebra\n  Edge                  ≤12.1\n  Firefox               104\n  Safari                no\n"))
            << text;
    }
}

TEST_F(CompatCatalogue, AnUpdateChangesClearsAndDeletes) {
    ASSERT_EQ(import().status, 0);
    std::string changed = dataSet;
    replace(changed, R"("version_added": "104")", R"("version_added": true, "partial_implementation": true)"); // text to Boolean
    replace(changed, R"("safari": {"version_added": false}, )", ""); // a statement goes
    replace(changed, R"("≤12.1")", "null"); // text to nothing
    replace(changed, R"("tail": {)", R"("mane": {)"); // a feature goes, another comes
    replace(changed, R"("99": {"release_date": "2022-04-05")", R"("99": {"engine": "Gecko")"); // a date goes
    replace(changed, R"("12.1": {)", R"("10": {)");
    folder.write("data.json", changed);

    auto const [status, text] = import();
    EXPECT_EQ(status, 0) << text;
    EXPECT_TRUE(contains(text, "features=3 statements=8 browsers=3 releases=7 ")) << text;
    EXPECT_TRUE(contains(
        text, "Support of api > Zebra\n  Edge                  unknown\n  Firefox               yes, version unknown, partly\n"))
        << text;
}

TEST_F(CompatCatalogue, VerificationFindsWhatTheStoreLacks) {
    ASSERT_EQ(import().status, 0);
    EXPECT_EQ(verify().status, 0);
    std::string other = dataSet;
    replace(other, R"({"version_added": true})", R"([{"version_added": true}, {"version_added": "≤8"}])");
    folder.write("data.json", other);
    auto const [status, text] = verify();
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(contains(text, "Statement: 9 in the store, 10 in the data")) << text;
    EXPECT_TRUE(contains(text, "addedAtLatest")) << text;
    EXPECT_FALSE(contains(text, "catalogue: features")) << text;
}

TEST_F(CompatCatalogue, SaysWhatIsWrongAndFails) {
    struct {
        char const *what, *with, *complaint;
    } const rows[] = {
        {R"("browsers": {)", R"("browsers": [)", "Error"},
        {R"("browsers": {)", R"("browers": {)", "there are no browsers"},
        {R"({"version_added": true})", R"("mirror")", R"(api.Zebra.stripes support.safari: "mirror" is no statement)"},
        {R"("safari": {"version_added": true})", R"("opera": {"version_added": true})",
         "support.opera: there is no such browser"},
        {R"("≤101")", "101", "api.Zebra.tail support.firefox: version_added is 101"},
        {R"("tail": {)", R"("head": 7, "tail": {)", "api.Zebra.head: an object is expected here"},
    };
    for (auto const& row : rows) {
        std::string damaged = dataSet;
        replace(damaged, row.what, row.with);
        folder.write("data.json", damaged);
        auto const [status, text] = import();
        EXPECT_EQ(status, 1) << row.with << "\n" << text;
        EXPECT_TRUE(contains(text, "compat-catalogue: ") && contains(text, row.complaint)) << row.with << "\n" << text;
    }
    EXPECT_EQ(run("--data " + folder.path("missing.json") + " --store " + store).status, 1);
    for (auto const* arguments : {"", "--data", "--data a", "--store b --data", "--data a --store b --more c"})
        EXPECT_EQ(run(arguments).status, 2) << arguments;
    EXPECT_EQ(run("--data " + data + " --store " + data).status, 1) << "a file in place of the folder";
}
