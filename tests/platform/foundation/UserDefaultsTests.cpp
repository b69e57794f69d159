// Preferences and their files. What needs a process of its own runs in one of the roles at the end.
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"

#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <future>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class UserDefaults : public testing::Test {
protected:
    /// The store of a suite; a second name for one file's content shows what was written, not what is in memory.
    Ref<NSUserDefaults> suite(std::string const& name = "suite") const { return NSUserDefaults::initWithSuiteName(name); }
    Ref<NSUserDefaults> reread() {
        auto const copy = fmt::format("copy{}", ++copies_);
        fs::create_directory(folder_.path(copy));
        fs::copy_file(folder_.path(file), folder_.path(copy + "/defaults.toml"));
        return suite(copy);
    }
    pid_t start(std::string const& role, std::string const& argument = {}) const {
        auto const filter = "--gtest_filter=UserDefaultsRole.DISABLED_" + role;
        tests::Environment const value("TESSARIN_ROLE_ARGUMENT", argument);
        std::vector<char const*> arguments{"tests", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1",
                                           nullptr};
        pid_t child = 0;
        EXPECT_EQ(::posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, const_cast<char**>(arguments.data()), environ), 0);
        return child;
    }
    static int end(pid_t child) {
        int status = 0;
        ::waitpid(child, &status, 0);
        return status;
    }

    static constexpr char const* file = "suite/defaults.toml";
    tests::TemporaryFolder folder_;

private:
    tests::Environment const home_{"XDG_CONFIG_HOME", folder_.path()};
    int copies_ = 0;
};

/// Kind and bits, so that 1 is not 1.0 and 0.0 not -0.0.
std::string exactly(Value const& value) {
    auto text = fmt::format("{}:", static_cast<int>(value.kind()));
    auto const bits = [](double number) { return fmt::format("{:a}", number); };
    switch (value.kind()) {
    case Value::Kind::Float:
    case Value::Kind::Double: return text + bits(value.number());
    case Value::Kind::Date: return text + bits(value.dateSeconds());
    case Value::Kind::List:
        for (auto const& element : value.list()) text += exactly(element) + ";";
        return text;
    case Value::Kind::Dictionary:
        for (auto const& [key, element] : value.dictionary()) text += key.string() + "=" + exactly(element) + ";";
        return text;
    default: return text + value.description();
    }
}

TEST_F(UserDefaults, EveryValueAndKeyReadsBackExactly) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Value const tagLike(Dictionary{{"float", 0.5}}),
        nested(List{1, Value(List{1.0, 1.0f, Value(List{})}), Value(Dictionary{{"b", 1}, {"a", tagLike}})});
    Value deep = 1;
    for (int level = 1; level < 100; ++level) deep = level % 2 ? Value(Dictionary{{"float", deep}}) : Value(List{deep});
    std::string every;
    for (int code = 0; code < 128; ++code) every += static_cast<char>(code);
    std::vector<Dictionary::Entry> entries{
        {"true", true}, {"zero", 0}, {"least", INT64_MIN}, {"most", INT64_MAX}, {"one point", 1.0}, {"-0.0", -0.0},
        {"-0.0f", -0.0f}, {"nan", std::nan("")}, {"inf", infinity}, {"-inf", -infinity}, {"tiny", 5e-324},
        {"huge", 1.7976931348623157e308}, {"0.1", 0.1}, {"0.1f", 0.1f}, {"inff", static_cast<float>(infinity)},
        {"leastf", std::numeric_limits<float>::denorm_min()}, {"hugef", std::numeric_limits<float>::max()},
        {"", "the empty key"}, {"a.b", "dots"}, {"[x]", "#"}, {"\"quo'ted\\\"", "a \"quoted\\\" text"},
        {"line\nbreak\r\n\t", "\r\n\n\t"}, {"größe 日本 🎈", "größe 日本 🎈\u0085\u2028"}, {every, every}, {"bytes", "\xFF\xC3"},
        {"data", Value::data(std::vector<std::byte>(300, std::byte{0xFE}))},
        {"no data", Value::data(std::vector<std::byte>{})}, {"uuid", NSUUID::UUID()}, {"url", NSURL::fileURLWithPath("/a b")},
        {"decimal", Decimal::fromText("0.10000000000000000000000001").value()}, {"nested", nested},
        {"empty", Value(Dictionary{})}, {"deep", deep}, {"tag", tagLike}, {"tags", Value(Dictionary{{"dictionary", tagLike}})},
        {"data text", Value(Dictionary{{"data", "AAAA"}})}, {"distant", NSDate::distantPast()},
        {"never", Value::date(infinity)}, {"early", Value::date(1e-9)}};
    std::mt19937_64 random(7);
    for (int at = 0; at < 300; ++at) {
        double bits = 0;
        auto const any = random();
        std::memcpy(&bits, &any, sizeof bits);
        if (std::isnan(bits)) continue;
        entries.push_back({fmt::format("double{}", at), bits});
        entries.push_back({fmt::format("float{}", at), static_cast<float>(bits)});
        entries.push_back({fmt::format("date{}", at), Value::date(static_cast<double>(any) / 0x1p64 * 2e12 - 1e12)});
        entries.push_back({fmt::format("now{}", at), Value::date(7e8 + static_cast<double>(any) / 0x1p64 * 2e8)});
    }
    auto const store = suite();
    for (auto const& [key, value] : entries) store->setObject(value, key);
    ASSERT_TRUE(store->synchronize());
    auto const read = reread();
    for (auto const& [key, value] : entries) EXPECT_EQ(exactly(read->objectForKey(key)), exactly(value)) << key;
    EXPECT_EQ(read->dictionaryRepresentation().size(), entries.size());

    auto const judge = fmt::format(
        "python3 -c 'import tomllib; t = tomllib.load(open(\"{}\", \"rb\")); assert len(t) == {} and t[\"a.b\"] == \"dots\" "
        "and t[\"least\"] == -2**63 and t[\"0.1f\"] == {{\"float\": 0.1}} and t[\"now0\"].year in range(2023, 2030)'",
        folder_.path(file), entries.size());
    EXPECT_EQ(std::system(judge.c_str()), 0) << "another reader of TOML sees something else";
}

TEST_F(UserDefaults, ALinkInPlaceOfTheTemporaryFileIsNotWrittenThrough) {
    auto const victim = folder_.write("victim", "mine");
    auto const store = suite();
    fs::create_directory(folder_.path("suite"));
    fs::create_symlink(victim, folder_.path(file) + ".new");
    store->setInteger(1, "volume");
    ASSERT_TRUE(store->synchronize());
    EXPECT_EQ(folder_.read("victim"), "mine");
    EXPECT_EQ(folder_.read(file), "volume = 1\n");
    EXPECT_FALSE(fs::is_symlink(folder_.path(file)));
}

TEST_F(UserDefaults, WhatIsNotChangedStaysAsItWasWritten) {
    auto const elsewhere = folder_.write(
        "dotfiles/player.toml",
        "\xEF\xBB\xBF# Mine\nvolume = 0x0B # loud\n\n# gone with its key\nold.a = 1\nold.b = [ # all\n  \"]\",\n]\ntext = "
        "'''\n[no]\n'''''\n"
        "# the window\n[window.frame] # here\nwidth = 1_000\n# inside\n\"q.\\\"\" = 2026-01-01T00:00:00Z\n[other]\n x=1\n# end");
    fs::create_directory(folder_.path("suite"));
    fs::create_symlink(elsewhere, folder_.path(file));
    auto const store = suite();
    EXPECT_EQ(store->dictionaryForKey("window")->find("frame")->dictionary()["width"], Value(1000));
    EXPECT_EQ(store->stringForKey("text"), "[no]\n''");
    store->setInteger(12, "volume");
    store->setInteger(1000, "text"); // before the sections, in place of what stood there
    store->setObject("x", "a new one");
    store->removeObjectForKey("old");
    store->setObject(Value(Dictionary{{"x", 2}}), "other");
    ASSERT_TRUE(store->synchronize());
    EXPECT_TRUE(fs::is_symlink(folder_.path(file)));
    EXPECT_EQ(folder_.read(file),
              "# Mine\nvolume = 12 # loud\ntext = 1000\n\"a new one\" = \"x\"\nother = { x = 2 }\n"
              "# the window\n[window.frame] # here\nwidth = 1_000\n# inside\n\"q.\\\"\" = 2026-01-01T00:00:00Z\n# end");
}

TEST_F(UserDefaults, ReadingsOfOtherKinds) {
    struct Row {
        Value stored;
        std::optional<std::string> text;
        std::int64_t integer;
        double number;
        bool boolean;
    };
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Row const rows[] = {
        {{}, {}, 0, 0, false}, {true, "1", 1, 1, true}, {false, "0", 0, 0, false}, {-7, "-7", -7, -7, true},
        {1e300, "1e+300", INT64_MAX, 1e300, true}, {2.9f, "2.9", 2, 2.9f, true}, {-2.9, "-2.9", -2, -2.9, true},
        {0.4, "0.4", 0, 0.4, true}, {"", "", 0, 0, false}, {" 12 px", " 12 px", 12, 12, true},
        {"+1.5e3x", "+1.5e3x", 1, 1500, true},
        {"-99999999999999999999", "-99999999999999999999", INT64_MIN, -99999999999999999999.0, true},
        {"9e999", "9e999", 9, infinity, true}, {"-9e-999", "-9e-999", -9, -0.0, true}, {"inf", "inf", 0, 0, false},
        {".5", ".5", 0, 0.5, false}, {"yes", "yes", 0, 0, true}, {"True", "True", 0, 0, true}, {"no", "no", 0, 0, false},
        {"000", "000", 0, 0, false}, {"-01", "-01", -1, -1, true}, {NSDate::now(), {}, 0, 0, false},
        {Value(List{1}), {}, 0, 0, false}};
    auto const store = suite();
    for (auto const& row : rows) {
        SCOPED_TRACE(row.stored.description());
        store->setObject(row.stored, "key");
        EXPECT_EQ(store->stringForKey("key"), row.text);
        EXPECT_EQ(store->integerForKey("key"), row.integer);
        EXPECT_EQ(store->doubleForKey("key"), row.number);
        EXPECT_EQ(store->floatForKey("key"), static_cast<float>(row.number));
        EXPECT_EQ(store->boolForKey("key"), row.boolean);
    }
    store->setObject(Value(List{"a", 1}), "key");
    EXPECT_FALSE(store->stringArrayForKey("key"));
    NSUserDefaults::registerDefaults({{"registered", 5}, {"key", 1}});
    EXPECT_EQ(store->integerForKey("registered"), 5);
    EXPECT_TRUE(store->arrayForKey("key")) << "what is stored counts before what is registered";
    EXPECT_TRUE(store->synchronize());
    EXPECT_FALSE(fs::exists(folder_.path("registered")));
}

TEST_F(UserDefaults, NamesThatCannotBeFoldersAreRefused) {
    for (std::string const name : {"", ".", "..", "a..b", "a/b", "/"}) EXPECT_EQ(suite(name), nullptr) << name;
    EXPECT_EQ(suite(std::string(256, 'x')), nullptr);
    EXPECT_EQ(suite(fs::read_symlink("/proc/self/exe").filename()), nullptr) << "the application's own";
    EXPECT_EQ(suite("org.example.a b"), suite("org.example.a b"));
    EXPECT_DEATH(suite()->setObject(Value(List{Value(ValueSet{})}), "k"), "cannot keep a set");
    Value deep = 1;
    for (int level = 0; level < 100; ++level) deep = Value(List{deep});
    EXPECT_DEATH(suite()->setObject(deep, "k"), "cannot keep more than a hundred levels");
    EXPECT_DEATH(suite()->setInteger(1, "\xFF"), "not UTF-8");
}

TEST_F(UserDefaults, ChangesByOthersAreNoticedAndOwnOnesKept) {
    folder_.write(file, "mine = 1\ntheirs = 1\n");
    auto const store = suite();
    std::promise<List> keys;
    auto const token = NSNotificationCenter::defaultCenter()->addObserverForName(
        NSUserDefaultsDidChangeNotification, store, nullptr, [&, isFirst = true](auto const& note) mutable {
            auto const& changed = note->userInfo().dictionary()[NSUserDefaultsChangedKeys].list();
            if (!changed.empty() && std::exchange(isFirst, false)) keys.set_value(changed);
        });
    store->setInteger(2, "mine");
    folder_.write("edited", "mine = 3\ntheirs = 3\n");
    fs::rename(folder_.path("edited"), folder_.path(file)); // as editors do
    auto changed = keys.get_future();
    ASSERT_EQ(changed.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(store->integerForKey("theirs"), 3);
    EXPECT_EQ(store->integerForKey("mine"), 2);
    EXPECT_TRUE(tests::eventually([&] { return folder_.read(file) == "mine = 2\ntheirs = 3\n"; }))
        << "the write after a quiet second";
    std::ofstream(folder_.path(file), std::ios::app) << "in_place = true\n";
    EXPECT_TRUE(tests::eventually([&] { return store->boolForKey("in_place"); }));
    fs::remove(folder_.path(file));
    EXPECT_TRUE(tests::eventually([&] { return !store->hasValueForKey("mine"); }));
    NSNotificationCenter::defaultCenter()->removeObserver(*token);
    EXPECT_EQ(changed.get(), List{"theirs"});
}

TEST_F(UserDefaults, IllFormedFileIsKeptAndItsGoodLinesStay) {
    std::string const bad = "good = 1\nbad = = 2\nlist = [1,\n 2]\n";
    folder_.write(file, bad);
    folder_.write("suite/defaults.toml.broken", "an earlier one");
    auto const store = suite();
    Ref<NSError> error;
    EXPECT_FALSE(store->synchronize(error));
    EXPECT_EQ(error->domain(), NSFormatErrorDomain);
    EXPECT_EQ(error->code(), 2) << "the line";
    EXPECT_EQ(folder_.read(file), bad) << "nothing has to be written yet";
    store->setInteger(3, "new");
    EXPECT_TRUE(store->synchronize());
    EXPECT_EQ(folder_.read(file), "good = 1\nlist = [1,\n 2]\nnew = 3\n");
    EXPECT_EQ(folder_.read("suite/defaults.toml.broken"), "an earlier one");
    EXPECT_EQ(folder_.read("suite/defaults.toml.broken-2"), bad);
    EXPECT_EQ(store->integerForKey("good"), 1);
}

TEST_F(UserDefaults, FourThreadsLoseNothing) {
    std::vector<std::thread> threads;
    for (char const name : std::string_view("abcd"))
        threads.emplace_back([this, name] {
            for (int at = 0; at < 50; ++at) {
                auto const store = suite(); // often the only one that holds it
                store->setObject(fmt::format("{} {}, a text that is shared", name, at), fmt::format("{}{}", name, at));
                store->removeObjectForKey("all");
                store->setInteger(at, "all");
                EXPECT_TRUE(at % 16 != 0 || store->synchronize());
                EXPECT_EQ(store->stringForKey("a0").value_or("a 0").substr(0, 3), "a 0");
            }
        });
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(suite()->synchronize());
    auto const all = reread()->dictionaryRepresentation();
    for (char const name : std::string_view("abcd"))
        for (int at = 0; at < 50; ++at) EXPECT_TRUE(all.contains(fmt::format("{}{}", name, at)));
    EXPECT_TRUE(all.contains("all"));
}

TEST_F(UserDefaults, FourProcessesLoseNothing) {
    std::vector<pid_t> children;
    for (char const name : std::string_view("abcd")) children.push_back(start("WritesFifty", std::string{name}));
    for (auto const child : children) EXPECT_EQ(end(child), 0);
    auto const all = reread();
    for (char const name : std::string_view("abcd"))
        for (int at = 0; at < 50; ++at) EXPECT_EQ(all->integerForKey(fmt::format("{}{}", name, at)), at + 1) << name << at;
}

TEST_F(UserDefaults, FailuresLoseNothing) {
    for (std::string const role : {"ReadOnlyFolder", "SetsAndExits"}) EXPECT_EQ(end(start(role, folder_.path())), 0) << role;
    EXPECT_EQ(folder_.read(file), "late = 1\n") << "what was set last is written at exit";
}

// Roles of other processes -----------------------------------------------------------------------------------------------

class UserDefaultsRole : public testing::Test {
protected:
    std::string argument_ = std::getenv("TESSARIN_ROLE_ARGUMENT") ? std::getenv("TESSARIN_ROLE_ARGUMENT") : "";
    std::string const file_ = argument_ + "/suite/defaults.toml"; // where the argument is the folder
    Ref<NSUserDefaults> const store_ = NSUserDefaults::initWithSuiteName("suite");
    int errorOfSynchronize() {
        Ref<NSError> error;
        return store_->synchronize(error) ? 0 : static_cast<int>(error->code());
    }
};

TEST_F(UserDefaultsRole, DISABLED_WritesFifty) {
    for (int at = 0; at < 50; ++at) {
        store_->setInteger(at + 1, fmt::format("{}{}", argument_, at));
        Ref<NSError> error;
        EXPECT_TRUE(store_->synchronize(error)) << error->description();
    }
}

TEST_F(UserDefaultsRole, DISABLED_ReadOnlyFolder) {
    store_->setInteger(1, "old");
    ASSERT_EQ(errorOfSynchronize(), 0);
    auto const folder = fs::path(file_).parent_path();
    for (auto const& above : {fs::path(argument_).parent_path(), fs::path(argument_)})
        fs::permissions(above, fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
    fs::permissions(file_, fs::perms(0644));
    fs::permissions(folder, fs::perms(0555));
    ASSERT_EQ(::seteuid(::getuid() == 0 ? 65534 : ::getuid()), 0); // nothing is forbidden to root
    store_->setInteger(1, "kept");
    EXPECT_EQ(errorOfSynchronize(), EACCES);
    EXPECT_EQ(store_->integerForKey("kept"), 1);
    auto const other = NSUserDefaults::initWithSuiteName("other"); // whose folder cannot be made
    other->setInteger(1, "kept");
    Ref<NSError> error;
    EXPECT_FALSE(other->synchronize(error));
    EXPECT_EQ(error->code(), EACCES) << "the real reason";
    ASSERT_EQ(::seteuid(::getuid()), 0);
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(errorOfSynchronize(), 0);
    EXPECT_EQ(NSData::contentsOfFile(file_).text(), "old = 1\nkept = 1\n");
    for (auto const* key : {"old", "kept"}) store_->removeObjectForKey(key);
    EXPECT_EQ(errorOfSynchronize(), 0);
}

TEST_F(UserDefaultsRole, DISABLED_SetsAndExits) { store_->setInteger(1, "late"); }

} // namespace
} // namespace Tessarin
