// Walks a store through every version of a model, with records in it, and tells what each step does.
//
//     migration-walk MODEL.xcdatamodeld [RECORDS]
//
// The store is made with the first version and filled; each later version opens it, which migrates it. Before that the plan is
// printed, afterwards it is checked that no record was lost and that what kept its name and type kept its values.
#include "Tessarin/Tessarin.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>

using namespace Tessarin;

namespace {

using Version = std::pair<std::string, Ref<NSManagedObjectModel>>;

/// As people number versions: "Model 10" comes after "Model 9", "v2.10" after "v2.9", "Model" before "Model 2".
std::vector<std::pair<long, std::string>> piecesOf(std::string const& name) {
    std::vector<std::pair<long, std::string>> pieces;
    for (std::size_t at = 0; at < name.size();) {
        bool const isNumber = std::isdigit(static_cast<unsigned char>(name[at])) != 0;
        auto end = at;
        while (end < name.size() && (std::isdigit(static_cast<unsigned char>(name[end])) != 0) == isNumber) ++end;
        auto text = name.substr(at, end - at);
        isNumber ? pieces.emplace_back(std::stol(text), "")
                 : pieces.emplace_back(-1, text.substr(0, text.find_last_not_of(' ') + 1));
        at = end;
    }
    return pieces;
}
bool isEarlier(std::string const& a, std::string const& b) { return piecesOf(a) < piecesOf(b); }

Value sample(NSAttributeDescription const& attribute, std::mt19937& random) {
    auto const number = static_cast<std::int64_t>(random() % 1000);
    switch (attribute.attributeType()) {
    case NSAttributeType::Boolean: return number % 2 == 0;
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64: return number;
    case NSAttributeType::Float:
    case NSAttributeType::Double: return number / 8.0;
    case NSAttributeType::Decimal: return Decimal::fromText(std::to_string(number) + ".25");
    case NSAttributeType::Date: return Value::date(number * 1000.0);
    case NSAttributeType::String: return "text " + std::to_string(random());
    case NSAttributeType::URI: return Value::url("https://example.org/" + std::to_string(number));
    case NSAttributeType::BinaryData: return Value::data(std::as_bytes(std::span("data")));
    case NSAttributeType::UUID: return Value::uuid({static_cast<std::uint8_t>(number), 1, 2});
    default: return {};
    }
}

/// What is known of the records: by entity and attribute the sum of the values' hashes, by entity their number.
struct Summary {
    std::map<std::string, std::size_t> counts;
    std::map<std::string, std::pair<NSAttributeType, std::size_t>> sums;
};

class Walk {
public:
    explicit Walk(std::string folder) : file_(NSURL::fileURLWithPath(folder + "/walk.db")) {}

    void fill(Ref<NSManagedObjectModel> const& model, std::size_t records) {
        open(model);
        std::mt19937 random{1};
        std::vector<Ref<NSManagedObject>> all;
        for (auto const& entity : model->entities())
            for (std::size_t at = 0; !entity->isAbstract() && at < records; ++at) {
                all.push_back(context_->insertNewObject(entity->name()));
                for (auto const* attribute : entity->attributes())
                    if (auto value = sample(*attribute, random); !value.isAbsent())
                        all.back()->setValueForKey(value, attribute->name());
            }
        for (auto const& object : all) link(*object, all, random);
        save(all);
        summary_ = summarized();
    }

    /// What went wrong; empty when nothing did.
    std::string step(Ref<NSManagedObjectModel> const& model) {
        close();
        Ref<NSError> error;
        auto const plan = MigrationPlan::dryRun(file_, model, error);
        print(plan ? plan->description() : "refused: " + error->localizedDescription() + "\n");
        if (!plan) return "";
        open(model);
        auto const before = std::exchange(summary_, summarized());
        for (auto const& [name, count] : before.counts)
            if (summary_.counts.contains(name) && summary_.counts[name] < count) return name + " lost records";
        for (auto const& [name, sum] : before.sums)
            if (summary_.sums.contains(name) && summary_.sums[name].first == sum.first &&
                summary_.sums[name].second != sum.second)
                return name + " changed its values";
        return "";
    }

private:
    void open(Ref<NSManagedObjectModel> const& model) {
        Ref<NSError> error;
        coordinator_ = make<NSPersistentStoreCoordinator>(model);
        if (!coordinator_->addPersistentStoreWithType(NSSQLiteStoreType, {}, file_, {}, error)) throw ErrorException(error);
        context_ = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        context_->setPersistentStoreCoordinator(coordinator_);
    }
    void close() {
        context_ = nullptr;
        coordinator_ = nullptr;
    }

    /// Leads every relationship somewhere.
    static void link(NSManagedObject& object, std::vector<Ref<NSManagedObject>> const& all, std::mt19937& random) {
        for (auto const* relationship : object.entity().relationships()) {
            std::vector<Ref<NSManagedObject>> fitting;
            std::ranges::copy_if(all, std::back_inserter(fitting),
                                 [&](auto const& other) { return other->entity().isKindOf(relationship->destinationEntity()); });
            if (fitting.empty()) continue;
            auto const& other = fitting[random() % fitting.size()];
            if (relationship->isToMany())
                object.mutableSetValueForKey(relationship->name()).addObject(other);
            else
                object.setValueForKey(other, relationship->name());
        }
    }

    /// Objects that a bound or a count keeps from being saved go, until the rest can be.
    void save(std::vector<Ref<NSManagedObject>>& all) {
        Ref<NSError> error;
        while (!context_->save(error)) {
            std::vector<Ref<NSManagedObject>> bad;
            std::ranges::copy_if(all, std::back_inserter(bad),
                                 [](auto const& object) { return !object->isDeleted() && object->validateForSave(); });
            if (bad.empty()) throw ErrorException(error);
            for (auto const& object : bad) context_->deleteObject(*object);
        }
    }

    Summary summarized() {
        Summary summary;
        for (auto const& entity : coordinator_->managedObjectModel()->entities()) {
            auto const request = make<NSFetchRequest>(entity->name());
            request->setIncludesSubentities(false);
            Ref<NSError> error;
            auto const objects = context_->executeFetchRequest(*request, error);
            if (error) throw ErrorException(error);
            summary.counts[entity->name()] = objects.size();
            for (auto const* attribute : entity->attributes()) {
                auto& [type, sum] = summary.sums[entity->name() + "." + attribute->name()];
                type = attribute->attributeType();
                for (auto const& object : objects)
                    sum += std::hash<std::string>{}(object->valueForKey(attribute->name()).description());
            }
        }
        return summary;
    }

    NSURL file_;
    Ref<NSPersistentStoreCoordinator> coordinator_;
    Ref<NSManagedObjectContext> context_;
    Summary summary_;
};

int walk(std::string const& bundle, std::size_t records) {
    auto const found = NSManagedObjectModel::versionsOfURL(NSURL::fileURLWithPath(bundle));
    std::vector<Version> versions(found.begin(), found.end());
    std::ranges::sort(versions, [](auto const& a, auto const& b) { return isEarlier(a.first, b.first); });
    if (versions.empty()) {
        print("no model in " + bundle);
        return 1;
    }
    auto folder = (std::filesystem::temp_directory_path() / "migration-walk-XXXXXX").string();
    if (!::mkdtemp(folder.data())) return 1;
    int problems = 0;
    {
        Walk walk(folder);
        print("== " + versions[0].first + ": made and filled\n");
        walk.fill(versions[0].second, records);
        for (std::size_t at = 1; at < versions.size(); ++at) {
            print("== " + versions[at].first);
            if (auto const problem = walk.step(versions[at].second); !problem.empty()) print("PROBLEM: " + problem), ++problems;
        }
    }
    std::filesystem::remove_all(folder);
    print(std::to_string(versions.size()) + " versions, " + std::to_string(problems) + " problems");
    return problems == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        print("usage: migration-walk MODEL.xcdatamodeld [RECORDS]");
        return 2;
    }
    try {
        return walk(argv[1], argc > 2 ? std::stoul(argv[2]) : 20);
    } catch (std::exception const& failure) {
        print(std::string("migration-walk: ") + failure.what());
        return 1;
    }
}
