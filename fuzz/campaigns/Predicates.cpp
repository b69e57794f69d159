#include "fuzz/campaigns/Predicates.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"

#include <cctype>
#include <limits>

namespace Tessarin::campaigns {
namespace {

Ref<NSManagedObjectModel> model() {
    using Type = NSAttributeType;
    return ModelBuilder()
        .entity("Animal")
        .attribute("name", Type::String, {.fullText = true})
        .attribute("age", Type::Integer32)
        .attribute("weight", Type::Double)
        .attribute("tame", Type::Boolean)
        .attribute("born", Type::Date)
        .attribute("cost", Type::Decimal)
        .attribute("note", Type::String, {.transient = true})
        .toOne("keeper", "Keeper", {.inverse = "animals"})
        .toMany("friends", "Animal", {.inverse = "friends"})
        .entity("Dog", {.parent = "Animal"})
        .attribute("breed", Type::String)
        .entity("Keeper")
        .attribute("name", Type::String)
        .toOne("boss", "Keeper", {.inverse = "staff"})
        .toMany("staff", "Keeper", {.inverse = "boss"})
        .toMany("animals", "Animal", {.inverse = "keeper"})
        .build();
}

/// Formats as somebody might write them, and some that nobody would.
class Writer {
public:
    explicit Writer(Trial& trial) : trial_(trial) {}

    std::string format() {
        arguments.clear();
        auto text = condition(0);
        if (!trial_.chance(0.3)) return text;
        for (auto changes = trial_.random(3) + 1; changes > 0 && !text.empty(); --changes) {
            auto const at = trial_.random(text.size());
            if (trial_.chance(0.3))
                text.resize(at);
            else if (trial_.chance(0.5))
                text.erase(at, trial_.random(4));
            else
                text.insert(at, pick({"[", "]", "(", ")", "{", ",", ".", "@", "#", "$", "%", "'", "\"", "-", "inf", "\\",
                                      "==", " NOT ", "\xC2"}));
        }
        return text;
    }
    List arguments;

private:
    char const* pick(std::initializer_list<char const*> some) { return some.begin()[trial_.random(some.size())]; }

    std::string condition(int depth) {
        if (depth < 4 && trial_.chance(0.35))
            return "(" + condition(depth + 1) + pick({" AND ", " OR ", " && ", " || "}) + condition(depth + 1) + ")";
        if (depth < 4 && trial_.chance(0.15)) return "NOT (" + condition(depth + 1) + ")";
        return std::string(pick({"", "", "", "ANY ", "ALL ", "NONE "})) + side() + " " +
               pick({"==", "!=", "<", "<=", ">", ">=", "IN", "CONTAINS", "BEGINSWITH", "ENDSWITH", "LIKE", "MATCHES", "BETWEEN",
                     "==[c]", "CONTAINS[cd]", "FINDS"}) +
               " " + side();
    }
    std::string side() { return trial_.chance(0.55) ? path() : constant(); }
    std::string path() {
        std::string text = pick({"name", "age", "weight", "tame", "born", "cost", "note", "keeper", "friends", "breed", "SELF",
                                 "self", "nosuch", "$V"});
        if (text != "keeper" && text != "friends" && text != "SELF" && !trial_.chance(0.05)) return text;
        for (auto more = trial_.random(3); more > 0; --more)
            text += std::string(".") + pick({"name", "boss", "animals", "staff", "keeper", "friends", "age", "@count", "@sum.age",
                                             "@max.weight", "breed", "wrong"});
        return text;
    }
    std::string constant() {
        if (trial_.chance(0.4))
            return pick({"nil", "YES", "1", "-2", "0.5", "inf", "-inf", "'A1'", "''", "{1, 2}", "{'A1', nil}", "{0, inf}", "'A*'", "{name, breed}",
                         "'.'", "9223372036854775807"});
        arguments.push_back(argument());
        return "%@";
    }
    Value argument() {
        using Limits = std::numeric_limits<double>;
        switch (trial_.random(9)) {
        case 0: return Limits::quiet_NaN();
        case 1: return trial_.chance(0.5) ? Limits::infinity() : -Limits::infinity();
        case 2: return static_cast<std::int64_t>(trial_.random(5)) - 2;
        case 3: return static_cast<double>(trial_.random(9)) / 4;
        case 4: return "A" + std::to_string(trial_.random(5));
        case 5: return Value::date(static_cast<double>(trial_.random(4)));
        case 6: return List{Limits::quiet_NaN(), 1, "A1", Value()};
        case 7: return *Decimal::fromText("0.25");
        default: return {};
        }
    }

    Trial& trial_;
};

/// A context over a store, for this thread alone.
Ref<NSManagedObjectContext> opened(char const* type, std::string const& file) {
    auto const coordinator = make<NSPersistentStoreCoordinator>(model());
    Ref<NSError> error;
    coordinator->addPersistentStoreWithType(type, {}, NSURL::fileURLWithPath(file), {}, error);
    require(!error, "a new store is refused: {}", error ? error->description() : "");
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    return context;
}

void fill(NSManagedObjectContext& context, std::uint64_t seed) {
    std::mt19937_64 engine(seed);
    auto const random = [&](std::uint64_t bound) { return engine() % bound; };
    std::vector<Ref<NSManagedObject>> keepers, animals;
    for (int at = 0; at < 5; ++at) {
        auto const keeper = keepers.emplace_back(context.insertNewObject("Keeper"));
        keeper->setValueForKey("A" + std::to_string(at), "name");
        if (at > 1) keeper->setValueForKey(keepers[random(static_cast<std::uint64_t>(at))], "boss");
    }
    for (int at = 0; at < 30; ++at) {
        auto const animal = animals.emplace_back(context.insertNewObject(random(3) == 0 ? "Dog" : "Animal"));
        if (random(4)) animal->setValueForKey("A" + std::to_string(random(5)), "name");
        if (random(4)) animal->setValueForKey(static_cast<std::int64_t>(random(5)) - 2, "age");
        if (random(4))
            animal->setValueForKey(random(8) ? static_cast<double>(random(9)) / 4 : std::numeric_limits<double>::infinity(),
                                   "weight");
        if (random(2)) animal->setValueForKey(random(2) == 0, "tame");
        if (random(2)) animal->setValueForKey(Value::date(static_cast<double>(random(4))), "born");
        if (random(2)) animal->setValueForKey(static_cast<double>(random(4)) / 4, "cost");
        if (random(3)) animal->setValueForKey(keepers[random(keepers.size())], "keeper");
        for (auto links = random(4); links > 0; --links)
            animal->mutableSetValueForKey("friends").addObject(animals[random(animals.size())]);
        if (animal->entity().name() == "Dog" && random(2)) animal->setValueForKey("A1", "breed");
    }
    Ref<NSError> error;
    require(context.save(error), "a save is refused: {}", error ? error->description() : "");
}

/// The keys of what is found, or the error's text; the count has to agree.
std::string answer(NSManagedObjectContext& context, NSFetchRequest const& request) {
    Ref<NSError> error;
    auto const objects = context.executeFetchRequest(request, error);
    if (error) return error->localizedDescription();
    std::string keys;
    for (auto const& object : objects) keys += std::to_string(object->recordKey()) + " ";
    auto const count = context.countForFetchRequest(request, error);
    require(!error && count == static_cast<std::int64_t>(objects.size()), "{} found, {} counted", objects.size(), count);
    return keys;
}

/// Bounds that are read from the members of an unordered relationship, and lists that are compared with them: which member comes
/// first is nobody's promise.
bool hasBoundsWithoutOrder(NSPredicate const& predicate) {
    auto const text = predicate.predicateFormat();
    auto const names = [&](char const* key) { return text.find(key) != text.npos; };
    if (!names("friends") && !names("staff") && !names("animals")) return false;
    for (auto const* comparison : {"} <", "} >", "} =", "} !=", "< {", "> {", "= {"})
        if (names(comparison)) return true;
    for (auto at = text.find("BETWEEN "); at != text.npos; at = text.find("BETWEEN ", at + 8))
        if (at + 8 < text.size() && std::isalpha(static_cast<unsigned char>(text[at + 8]))) return true;
    return false;
}

} // namespace

void tryPredicates(Trial& trial, Tally& tally) {
    auto const memory = opened("InMemory", "/nowhere"), file = opened("SQLite", trial.folder() + "/zoo.db");
    auto const seed = trial.random(1'000'000);
    for (auto const& context : {memory, file}) fill(*context, seed);
    Writer writer(trial);
    auto const request = make<NSFetchRequest>("Animal");
    for (int round = 0; round < 200; ++round) {
        auto const format = writer.format();
        Ref<NSError> error;
        auto const predicate = NSPredicate::parse(format, writer.arguments, &error);
        require(!predicate == (error != nullptr), "\"{}\" is refused without a reason", format);
        tally.add(predicate ? "formats read" : "formats refused");
        if (!predicate || hasBoundsWithoutOrder(*predicate)) continue;
        request->setPredicate(predicate);
        for (auto const& context : {memory, file}) context->reset();
        auto const inMemory = answer(*memory, *request), inFile = answer(*file, *request);
        require(inMemory == inFile, "\"{}\" ({}): in memory \"{}\", in the file \"{}\"", format, predicate->predicateFormat(),
                inMemory, inFile);
        tally.add(inMemory.empty() ? "nothing found" : inMemory.back() == ' ' ? "records found" : "requests refused");
    }
}

void judgePredicates(Tally const& tally) {
    for (auto const* what : {"formats read", "formats refused", "nothing found", "records found", "requests refused"})
        require(tally.of(what) > 0, "there were no {}", what);
}

} // namespace Tessarin::campaigns
