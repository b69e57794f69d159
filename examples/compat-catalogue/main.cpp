// A web-compatibility catalogue: imports a data set of 12 MB of JSON into an object store beside a free main queue, waits
// until everything is on disk, then runs itself again as a new process that checks the store and asks it questions.
#include "Import.h"
#include "MainQueueWatch.h"
#include "Questions.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Verification.h"
#include <chrono>
#include <cstdio>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

using namespace Tessarin;

namespace Catalogue {
namespace {

struct Arguments {
    std::string data;
    std::string store;
    // What the first process measured; only the second one is given these.
    std::string importSeconds;
    std::string heldMilliseconds;
    bool isVerification() const { return !importSeconds.empty(); }
};

std::optional<Arguments> parsed(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string_view const name = argv[i];
        if (name == "--data")
            arguments.data = argv[i + 1];
        else if (name == "--store")
            arguments.store = argv[i + 1];
        else if (name == "--import-seconds")
            arguments.importSeconds = argv[i + 1];
        else if (name == "--held-milliseconds")
            arguments.heldMilliseconds = argv[i + 1];
        else
            return {};
    }
    if (argc % 2 == 0 || arguments.data.empty() || arguments.store.empty()) return {};
    return arguments;
}

int fail(std::string const& problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "compat-catalogue: %s\n", problem.c_str());
    return 1;
}

/// The program itself as a new process: nothing that this one remembers can help it.
int verifyInNewProcess(Arguments const& arguments, double seconds, double held) {
    char importSeconds[32], heldMilliseconds[32];
    std::snprintf(importSeconds, sizeof importSeconds, "%.2f", seconds);
    std::snprintf(heldMilliseconds, sizeof heldMilliseconds, "%.2f", held);
    char const* const texts[] = {
        "compat-catalogue", "--data",      arguments.data.c_str(), "--store",        arguments.store.c_str(),
        "--import-seconds", importSeconds, "--held-milliseconds",  heldMilliseconds, nullptr};
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, const_cast<char* const*>(texts), environ) != 0 ||
        waitpid(child, &status, 0) != child)
        return fail("the verification did not run");
    return WIFEXITED(status) ? WEXITSTATUS(status) : fail("the verification crashed");
}

int import(Arguments const& arguments) {
    auto const start = std::chrono::steady_clock::now();
    if (!NSFileManager::defaultManager()->isReadableFileAtPath(arguments.data)) return fail("cannot read " + arguments.data);
    auto const store = CatalogueStore::open(arguments.store);
    print(std::string(store->isNew() ? "New catalogue in " : "Updating the catalogue in ") + store->storeURL().path());
    bool isDone = false;
    std::string problem;
    make<Import>(store, arguments.data, make<Progress>())->start([&](std::string why) {
        problem = std::move(why);
        isDone = true;
    });
    MainQueueWatch watch;
    watch.serveUntil(isDone);
    if (!problem.empty()) return fail(problem);
    std::chrono::duration<double> const seconds = std::chrono::steady_clock::now() - start;
    return verifyInNewProcess(arguments, seconds.count(), watch.longestMilliseconds());
}

int verify(Arguments const& arguments) {
    DataFile const data(arguments.data);
    auto const store = CatalogueStore::open(arguments.store);
    if (store->isNew()) return fail("there is no catalogue in " + arguments.store);
    auto const problems = differences(*store, data.census());
    for (auto const& problem : problems) fail(problem);
    if (!problems.empty()) return 1;
    printInFirefoxButNotInSafari(*store);
    printMostRecentBrowsers(*store);
    printSupportTable(*store);
    auto const& census = data.census();
    print("catalogue: features=" + std::to_string(census.features) + " statements=" + std::to_string(census.statements) +
          " browsers=" + std::to_string(census.browsers.size()) + " releases=" + std::to_string(census.releases) +
          " bytes=" + std::to_string(store->bytes()) + " import_s=" + arguments.importSeconds +
          " main_queue_held_ms=" + arguments.heldMilliseconds);
    return 0;
}

} // namespace
} // namespace Catalogue

int main(int argc, char** argv) {
    using namespace Catalogue;
    auto const arguments = parsed(argc, argv);
    if (!arguments) {
        std::fputs("usage: compat-catalogue --data FILE --store DIR\n", stderr);
        return 2;
    }
    registerModelClasses();
    try {
        return arguments->isVerification() ? verify(*arguments) : import(*arguments);
    } catch (std::exception const& failure) {
        return fail(failure.what());
    }
}
