#pragma once
// What both windows and notesctl share: notes in notebooks, with tags, in one file.
#include <Tessarin/Tessarin.h>
#include <optional>
#include <string>
#include <vector>

namespace notes {

class Note;

class Notebook : public Tessarin::ManagedObject<Notebook> {
public:
    static inline Tessarin::Attribute<std::string> const name{"name"};
    static inline Tessarin::ToMany<Note> const notes{"notes"};
};
class Tag : public Tessarin::ManagedObject<Tag> {
public:
    static inline Tessarin::Attribute<std::string> const name{"name"};
    static inline Tessarin::ToMany<Note> const notes{"notes"};
};
class Note : public Tessarin::ManagedObject<Note> {
public:
    static inline Tessarin::Attribute<std::string> const title{"title"};
    static inline Tessarin::Attribute<std::string> const text{"text"};
    static inline Tessarin::Attribute<Tessarin::NSDate> const edited{"edited"};
    static inline Tessarin::ToOne<Notebook> const notebook{"notebook"};
    static inline Tessarin::ToMany<Tag> const tags{"tags"};
};

Tessarin::Ref<Tessarin::NSManagedObjectModel> const& model();
/// The store in that folder, else in the user's documents.
Tessarin::StoreOptions storeOptions(std::optional<std::string> const& folder);

/// The option "--folder PATH" of all three programs.
std::optional<std::string> folderFrom(std::vector<std::string> const& arguments);

/// A new note, edited now.
Tessarin::Ref<Note> addNote(Tessarin::NSManagedObjectContext& context, std::string_view title, std::string_view text,
                            Tessarin::Ref<Notebook> const& notebook = nullptr);
Tessarin::Ref<Notebook> notebookNamed(Tessarin::NSManagedObjectContext& context, std::string_view name);

/// "home, urgent": in the order of names.
std::string tagsText(Note& note);
/// Takes tags that there are, and makes those that there are not; one that nobody has any more stays.
void setTags(Note& note, std::string_view text);

/// "3 hours ago".
std::string age(Note& note);

} // namespace notes
