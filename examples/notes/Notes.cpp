#include "Notes.h"

#include <algorithm>

using namespace Tessarin;

namespace notes {

Ref<NSManagedObjectModel> const& model() {
    using Type = NSAttributeType;
    static auto const shared = [] {
        registerClass<Notebook>();
        registerClass<Tag>();
        registerClass<Note>();
        return ModelBuilder()
            .entity("Notebook", {.className = "notes.Notebook"})
            .attribute("name", Type::String, {.optional = false, .indexed = true})
            .toMany("notes", "Note", {.inverse = "notebook", .deleteRule = NSDeleteRule::Cascade})
            .entity("Tag", {.className = "notes.Tag"})
            .attribute("name", Type::String, {.optional = false})
            .unique({"name"})
            .toMany("notes", "Note", {.inverse = "tags"})
            .entity("Note", {.className = "notes.Note"})
            .attribute("title", Type::String, {.optional = false, .fullText = true})
            .attribute("text", Type::String, {.optional = false, .fullText = true})
            .attribute("edited", Type::Date, {.optional = false, .indexed = true})
            .toOne("notebook", "Notebook", {.inverse = "notes"})
            .toMany("tags", "Tag", {.inverse = "notes"})
            .index("ofNotebook", {{"notebook"}, {"edited", false}})
            .build();
    }();
    return shared;
}

StoreOptions storeOptions(std::optional<std::string> const& folder) {
    StoreOptions options{.model = model(), .filename = "Notes"};
    if (folder) options.directory = NSURL::fileURLWithPath(*folder);
    return options;
}

std::optional<std::string> folderFrom(std::vector<std::string> const& arguments) {
    auto const found = std::ranges::find(arguments, "--folder");
    return found == arguments.end() || found + 1 == arguments.end() ? std::nullopt : std::optional(found[1]);
}

Ref<Note> addNote(NSManagedObjectContext& context, std::string_view title, std::string_view text, Ref<Notebook> const& notebook) {
    auto note = context.insertObject<Note>();
    note->set(Note::title, title);
    note->set(Note::text, text);
    note->set(Note::edited, NSDate::now());
    note->set(Note::notebook, notebook);
    return note;
}

Ref<Notebook> notebookNamed(NSManagedObjectContext& context, std::string_view name) {
    if (auto present = context.fetch<Notebook>().where(Notebook::name == name).first()) return present;
    auto made = context.insertObject<Notebook>();
    made->set(Notebook::name, name);
    return made;
}

std::string tagsText(Note& note) {
    std::vector<std::string> names;
    for (auto const& tag : note.get(Note::tags)) names.push_back(tag->get(Tag::name));
    std::ranges::sort(names);
    std::string text;
    for (auto const& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

void setTags(Note& note, std::string_view text) {
    auto& context = *note.managedObjectContext();
    std::vector<Ref<Tag>> tags;
    while (!text.empty()) {
        auto const comma = std::min(text.find(','), text.size());
        auto const name = Text::trimming(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
        if (name.empty()) continue;
        auto tag = context.fetch<Tag>().where(Tag::name == name).first();
        if (!tag) {
            tag = context.insertObject<Tag>();
            tag->set(Tag::name, name);
        }
        tags.push_back(std::move(tag));
    }
    for (auto const& tag : note.get(Note::tags))
        if (std::ranges::find(tags, tag) == tags.end()) note.remove(Note::tags, tag);
    for (auto const& tag : tags) note.add(Note::tags, tag);
}

std::string age(Note& note) { return NSDate::relativeAgeString(-note.get(Note::edited).timeIntervalSinceNow()); }

} // namespace notes
