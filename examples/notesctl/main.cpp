// Notes from a terminal, beside the window or without one:
//   notesctl [--folder PATH] list [WORDS] | add TITLE TEXT | edit TITLE TEXT | delete TITLE
#include "../notes/Notes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace Tessarin;
using namespace notes;
namespace {

/// A line for each note: title, text and tags, with tabulators between them.
int list(NSManagedObjectContext& context, std::string const& words) {
    auto query = context.fetch<Note>().sortedBy(Note::edited.descending());
    if (!words.empty()) query = query.search(words);
    for (auto const& note : query) {
        auto text = note->get(Note::text);
        std::ranges::replace(text, '\n', ' ');
        print(note->get(Note::title) + "\t" + text + "\t" + tagsText(*note));
    }
    return 0;
}

/// What the arguments ask for; 2 where they ask for nothing known.
int run(NSManagedObjectContext& context, std::vector<std::string> const& arguments) {
    auto const argument = [&](std::size_t at) { return at < arguments.size() ? arguments[at] : std::string(); };
    auto const command = argument(0), title = argument(1), text = argument(2);
    if (command == "list") return list(context, title);
    if (command == "add") return addNote(context, title, text), 0;
    auto const note = context.fetch<Note>().where(Note::title == title).first();
    if (command != "edit" && command != "delete") return 2;
    if (!note) return std::fprintf(stderr, "notesctl: there is no note \"%s\"\n", title.c_str()), 1;
    if (command == "delete") return context.deleteObject(*note), 0;
    note->set(Note::text, text);
    note->set(Note::edited, NSDate::now());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    auto const folder = folderFrom(arguments);
    if (folder) arguments.erase(arguments.begin(), arguments.begin() + 2);
    ManagedObjectStore::open(storeOptions(folder), [arguments](auto const& store, Ref<NSError> const& failure) {
        if (!store) std::fprintf(stderr, "notesctl: %s\n", failure->localizedDescription().c_str()), std::exit(1);
        auto& context = *store->mainThreadContext();
        auto const result = run(context, arguments);
        if (result == 2)
            std::fprintf(stderr,
                         "usage: notesctl [--folder PATH] list [WORDS] | add TITLE TEXT | edit TITLE TEXT | delete TITLE\n");
        Ref<NSError> error;
        if (!context.save(error)) std::fprintf(stderr, "notesctl: %s\n", error->localizedDescription().c_str());
        store->close(
            [result, hasFailed = bool(error)](Ref<NSError> const& unsaved) { std::exit(hasFailed || unsaved ? 1 : result); });
    });
    runMainLoop();
}
