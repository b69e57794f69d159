// Links through every change of two relationships, A.x and B.y, compared with maps that do the same.
#include "fuzz/campaigns/Links.h"

#include "fuzz/campaigns/Shelf.h"

#include "Tessarin/platform/objectgraph/persistence/migration/MigrationPlan.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

namespace Tessarin::campaigns {
namespace {

using Numbers = std::vector<int>;
using Links = std::map<int, Numbers>; // in their order

enum class End { None, One, Many, Ordered };
struct Ends {
    End x, y;
    bool areInverse;
    std::string text() const {
        static constexpr char const* names[] = {"-", "1", "[]", "<>"};
        return std::string(names[int(x)]) + (areInverse ? " = " : " | ") + names[int(y)];
    }
};
constexpr std::array as{1, 2, 3}, bs{4, 5, 6};
using Owners = std::array<int, 3>;

Ref<NSManagedObjectModel> modelOf(Ends const& ends) {
    ModelBuilder builder;
    auto const add = [&](char const* entity, char const* name, char const* destination, char const* inverse, End end) {
        builder.entity(entity).attribute("number", NSAttributeType::Integer64);
        RelationshipOptions const options{.inverse = ends.areInverse ? inverse : "", .ordered = end == End::Ordered};
        if (end == End::One) builder.toOne(name, destination, options);
        if (end > End::One) builder.toMany(name, destination, options);
    };
    add("A", "x", "B", "y", ends.x);
    add("B", "y", "A", "x", ends.y);
    return builder.build();
}

Links swapped(Links const& links) {
    Links result;
    for (auto const& [owner, members] : links)
        for (auto const member : members) result[member].push_back(owner);
    return result;
}
/// Those of `first` in their order, then what only `second` has.
Links joined(Links first, Links const& second) {
    for (auto const& [owner, members] : second) {
        auto& all = first[owner];
        auto const known = static_cast<std::ptrdiff_t>(all.size());
        for (auto const member : members)
            if (std::ranges::find(all, member) == all.end()) all.push_back(member);
        std::ranges::sort(all.begin() + known, all.end());
    }
    return first;
}
Links byNumber(Links links) {
    for (auto& [owner, members] : links) std::ranges::sort(members);
    return links;
}
bool leadsToSeveral(Links const& links) {
    return std::ranges::any_of(links, [](auto const& each) { return each.second.size() > 1; });
}
std::string textOf(Links const& links) {
    std::string text;
    for (auto const& [owner, members] : links) text += fmt::format("{}: {}; ", owner, fmt::join(members, " "));
    return text;
}

class Change {
public:
    explicit Change(Trial& trial) : trial_(trial), file_(trial.folder() + "/links/links.db") {
        std::filesystem::create_directory(trial.folder() + "/links");
    }

    void run(Tally& tally) {
        auto const before = ends(), after = ends();
        try {
            Links x, y;
            fill(before, x, y);
            save(before, x, y);
            tally.add(migrate(before, after, x, y) ? "kept" : "refused");
        } catch (Broken const& broken) {
            throw Broken(before.text() + " to " + after.text() + ": " + broken.what());
        }
    }

private:
    Ends ends() {
        Ends const found{End(trial_.random(4)), End(trial_.random(4)), trial_.chance(0.5)};
        return found.x == End::None || found.y == End::None ? Ends{found.x, found.y, false} : found;
    }
    void shuffle(Numbers& numbers) {
        for (auto left = numbers.size(); left > 1; --left) std::swap(numbers[left - 1], numbers[trial_.random(left)]);
    }
    Links randomLinks(End end, Owners const& owners, Owners const& members) {
        Links links;
        for (auto const owner : owners) {
            Numbers all(members.begin(), members.end());
            shuffle(all);
            all.resize(end == End::None ? 0 : trial_.random(end == End::One ? 2 : 3));
            if (!all.empty()) links[owner] = end == End::Ordered ? all : byNumber({{0, all}})[0];
        }
        return links;
    }
    /// What two ends hold may be.
    void fill(Ends const& ends, Links& x, Links& y) {
        if (ends.areInverse && ends.x != End::One) {
            y = randomLinks(ends.y, bs, as);
            x = byNumber(swapped(y));
            if (ends.x == End::Ordered)
                for (auto& [owner, members] : x) shuffle(members);
            return;
        }
        x = randomLinks(ends.x, as, bs);
        if (!ends.areInverse) y = randomLinks(ends.y, bs, as);
        if (ends.areInverse && ends.y == End::One)
            std::erase_if(x, [&](auto const& each) { return swapped(x)[each.second[0]][0] != each.first; });
        if (ends.areInverse) y = byNumber(swapped(x));
        if (ends.areInverse && ends.y == End::Ordered)
            for (auto& [owner, members] : y) shuffle(members);
    }

    void save(Ends const& ends, Links const& x, Links const& y) const {
        Shelf const shelf(file_, modelOf(ends));
        onQueueOf(*shelf.root, [&] {
            std::map<int, Ref<NSManagedObject>> records;
            for (int number = 1; number <= 6; ++number) {
                records[number] = shelf.root->insertNewObject(number < 4 ? "A" : "B");
                records[number]->setValueForKey(number, "number");
            }
            auto const put = [&](Links const& links, char const* name, End end) {
                for (auto const& [owner, members] : links) {
                    Objects others;
                    for (auto const member : members) others.push_back(records[member]);
                    if (end == End::One) records[owner]->setValueForKey(others.front(), name);
                    if (end > End::One) records[owner]->mutableSetValueForKey(name).setObjects(others);
                }
            };
            put(x, "x", ends.x);
            put(y, "y", ends.y);
            saveOrThrow(*shelf.root);
            for (int number = 2; number <= 6; ++number)
                require(records[number]->recordKey() > records[number - 1]->recordKey(),
                        "keys are not in the order of insertion");
        });
    }
    static Links read(Shelf const& shelf, char const* entity, char const* name, End end) {
        Links links;
        onQueueOf(*shelf.root, [&] {
            for (auto const& record : fetched(*shelf.root, entity)) {
                Objects others;
                if (end > End::One) others = record->mutableSetValueForKey(name).allObjects();
                if (end == End::One && !record->valueForKey(name).isAbsent())
                    others.push_back(record->valueForKey(name).objectAs<NSManagedObject>());
                for (auto const& other : others)
                    links[static_cast<int>(integerOf(*record, "number"))].push_back(
                        static_cast<int>(integerOf(*other, "number")));
            }
        });
        return end == End::Ordered ? links : byNumber(links);
    }

    /// Whether the new model was accepted, as it has to be where the links do not contradict each other.
    bool migrate(Ends const& before, Ends const& after, Links const& x, Links const& y) const {
        auto newX = after.areInverse ? joined(x, swapped(y)) : x, newY = after.areInverse ? joined(y, swapped(x)) : y;
        if (before.x != End::Ordered || after.x != End::Ordered) newX = byNumber(newX);
        if (before.y != End::Ordered || after.y != End::Ordered) newY = byNumber(newY);
        bool const isContradiction =
            (after.x == End::One && leadsToSeveral(newX)) || (after.y == End::One && leadsToSeveral(newY));

        Ref<NSError> error;
        auto const plan = MigrationPlan::dryRun(NSURL::fileURLWithPath(file_), modelOf(after), error);
        require(plan.has_value() != isContradiction, "{}", plan ? plan->description() : error->localizedDescription());
        std::optional<Shelf> shelf;
        std::string reason;
        try {
            shelf.emplace(file_, modelOf(after));
        } catch (ErrorException const& refusal) { reason = refusal.error()->localizedDescription(); }
        require(plan.has_value() == shelf.has_value(), "planned and done differ: {}", reason);
        if (!plan) {
            require(error->localizedDescription() == reason, "it was to be refused as \"{}\", not \"{}\"",
                    error->localizedDescription(), reason);
            require(reason.find(" in the way, such as number ") != reason.npos, "no example: {}", reason);
            return false;
        }
        requireSame("x", read(*shelf, "A", "x", after.x), after.x == End::None ? Links() : newX);
        requireSame("y", read(*shelf, "B", "y", after.y), after.y == End::None ? Links() : newY);
        auto const requireTold = [&](char const* text, bool isExpected) {
            require((plan->description().find(text) != std::string::npos) == isExpected, "{}: {}", text, plan->description());
        };
        bool const hadTwoEnds = before.x != End::None && before.y != End::None;
        requireTold("A.x: goes", before.x != End::None && after.x == End::None);
        requireTold("A.x: has no inverse", before.areInverse && !after.areInverse && after.x != End::None);
        requireTold("is the inverse of", after.areInverse && !before.areInverse && hadTwoEnds);
        return true;
    }
    static void requireSame(char const* name, Links const& found, Links const& expected) {
        require(found == expected, "{} holds {}instead of {}", name, textOf(found), textOf(expected));
    }

    Trial& trial_;
    std::string const file_;
};

} // namespace

void tryLinks(Trial& trial, Tally& tally) { Change(trial).run(tally); }

void judgeLinks(Tally const& tally) {
    require(tally.of("refused") > 0 && tally.of("kept") > 0, "only one of both ever happened");
}

} // namespace Tessarin::campaigns
