// Opens a store, which the first run makes, and counts its notes.
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "benchmarks/start/programs/Libraries.h"

int main(int argc, char** argv) {
    return runOrCountLibraries(argc, argv, [](char const* file) {
        using namespace Tessarin;
        auto const coordinator =
            make<NSPersistentStoreCoordinator>(ModelBuilder().entity("Note").attribute("text", NSAttributeType::String).build());
        Ref<NSError> error;
        if (!coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file), {}, error)) return 1;
        auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        context->setPersistentStoreCoordinator(coordinator);
        int status = 1;
        context->performBlockAndWait(
            [&] { status = context->countForFetchRequest(*make<NSFetchRequest>("Note"), error) == 0 ? 0 : 1; });
        return status;
    });
}
