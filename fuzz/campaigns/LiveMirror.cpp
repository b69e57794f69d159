#include "fuzz/campaigns/LiveMirror.h"

#include <algorithm>

namespace Tessarin::campaigns {

LiveMirror::LiveMirror(std::string name, Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options)
    : name_(std::move(name)), request_(make<NSFetchRequest>(request->entityName())), options_(options) {
    auto descriptors = request->sortDescriptors();
    if (!options.sectionKeyPath.empty() && (descriptors.empty() || descriptors.front()->key() != options.sectionKeyPath))
        descriptors.insert(descriptors.begin(), NSSortDescriptor::sortDescriptorWithKey(options.sectionKeyPath));
    request_->setPredicate(request->predicate());
    request_->setSortDescriptors(std::move(descriptors));
    request_->setFetchLimit(request->fetchLimit());
    list_ = make<LiveList>(std::move(context), std::move(request), std::move(options));
    for (auto const& each : list_->sections()) copy_.emplace_back(each.count);
    requireAgrees(); // fills the copy
    connection_ = list_->observe([this](LiveChanges const& changes) { apply(changes); });
}

std::string LiveMirror::text(NSManagedObject& object) const {
    auto text = fmt::format("{} {}", object.valueForKey("title").description(), object.valueForKey("year").description());
    for (auto const& path : options_.shownKeyPaths)
        text += " " + KeyPath(path).valueFrom(Value(object.self<NSManagedObject>())).description();
    return text;
}

std::vector<LiveMirror::Row>& LiveMirror::section(std::size_t at) {
    require(at < copy_.size(), "{}: a step in section {} of {}", name_, at, copy_.size());
    return copy_[at];
}

void LiveMirror::apply(LiveChange const& step) {
    using Kind = LiveChange::Kind;
    auto const at = [](std::vector<Row>& rows, std::size_t row) { return rows.begin() + static_cast<std::ptrdiff_t>(row); };
    auto const requireRows = [&](std::vector<Row> const& rows, std::size_t end) {
        require(end <= rows.size(), "{}: a step at row {} of {}", name_, end, rows.size());
    };
    switch (step.kind) {
    case Kind::InsertSection:
        require(step.section <= copy_.size(), "{}: section {} comes among {}", name_, step.section, copy_.size());
        copy_.insert(copy_.begin() + static_cast<std::ptrdiff_t>(step.section), std::vector<Row>());
        ++sectionSteps_;
        return;
    case Kind::RemoveSection:
        require(section(step.section).empty(), "{}: section {} goes with rows in it", name_, step.section);
        copy_.erase(copy_.begin() + static_cast<std::ptrdiff_t>(step.section));
        return;
    case Kind::Insert: {
        auto& rows = section(step.section);
        requireRows(rows, step.row);
        rows.insert(at(rows, step.row), step.count, Row());
        return;
    }
    case Kind::Remove: {
        auto& rows = section(step.section);
        requireRows(rows, step.row + step.count);
        rows.erase(at(rows, step.row), at(rows, step.row + step.count));
        return;
    }
    case Kind::Move: {
        auto& from = section(step.section);
        requireRows(from, step.row + 1);
        auto row = std::move(from[step.row]);
        from.erase(at(from, step.row));
        auto& to = section(step.toSection);
        requireRows(to, step.toRow);
        to.insert(at(to, step.toRow), std::move(row));
        ++moves_;
        return;
    }
    case Kind::Update: {
        auto& rows = section(step.section);
        requireRows(rows, step.row + step.count);
        for (std::size_t row = step.row; row < step.row + step.count; ++row) rows[row].text.clear();
    }
    }
}

void LiveMirror::apply(LiveChanges const& changes) try {
    ++tellings_;
    for (auto const& step : changes.steps()) apply(step);
} catch (Broken const& broken) { problems_.push_back(broken.what()); }

/// Whether an object's author, and that one's publisher, know of it: where they do not, nobody can tell it of them.
bool LiveMirror::endsAgree(NSManagedObject& object) {
    auto const leads = [](NSManagedObject& from, char const* link, char const* back) {
        auto const end = from.valueForKey(link).objectAs<NSManagedObject>();
        return !end || std::ranges::count(end->mutableSetValueForKey(back).allObjects(), &from, &Ref<NSManagedObject>::get) != 0;
    };
    auto const author = object.valueForKey("author").objectAs<NSManagedObject>();
    bool const agree = leads(object, "author", "books") && (!author || leads(*author, "publisher", "authors"));
    disagreements_ += agree ? 0 : 1;
    return agree;
}

/// Rows that the copy knows show what the list shows there; the others are looked at now.
void LiveMirror::requireAgrees() {
    auto const sections = list_->sections();
    require(copy_.size() == sections.size(), "{}: {} sections for {}", name_, copy_.size(), sections.size());
    for (std::size_t at = 0; at < sections.size(); ++at) {
        require(copy_[at].size() == sections[at].count, "{}: section {} has {} rows for {}", name_, at, copy_[at].size(),
                sections[at].count);
        for (std::size_t row = 0; row < copy_[at].size(); ++row) {
            auto const object = list_->object(at, row);
            auto& known = copy_[at][row];
            bool const isSame = known.key == 0 || known.key == object->recordKey() || known.key < 0; // which become others
            require(isSame, "{}: row {} of section {} is {} for {}", name_, row, at, known.key, object->recordKey());
            auto const now = text(*object);
            require(known.text.empty() || known.text == now || !endsAgree(*object), "{}: row {} shows \"{}\" for \"{}\"", name_, row,
                    known.text, now);
            known = {object->recordKey(), now};
        }
    }
}

void LiveMirror::check(std::string const& when, Tally& tally) try {
    list_->finish();
    require(problems_.empty(), "{}", problems_.empty() ? "" : problems_.front());
    requireAgrees();
    Ref<NSError> error;
    auto const fetched = list_->context()->executeFetchRequest(*request_, error);
    require(!error && !list_->error(), "{}: {}", name_, error ? error->localizedDescription() : "the list has an error");
    std::string here, there;
    auto const named = [this](NSManagedObject& object) { return fmt::format(" {} ({})", object.recordKey(), text(object)); };
    for (auto const& object : fetched) there += named(*object);
    for (std::size_t at = 0; at < list_->size(); ++at) here += named(*(*list_)[at]);
    require(here == there, "{}: the list has{}, a fetch{}", name_, here, there);
    tally.add("checks");
    tally.add("tellings", std::exchange(tellings_, 0));
    tally.add("moves", std::exchange(moves_, 0));
    tally.add("sections", std::exchange(sectionSteps_, 0));
    if (disagreements_ != 0) tally.add("links with one end", std::exchange(disagreements_, 0));
} catch (Broken const& broken) { throw Broken(when + ": " + broken.what()); }

} // namespace Tessarin::campaigns
