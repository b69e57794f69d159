// All of the library is loaded: a model, but no store.
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "benchmarks/start/programs/Libraries.h"

int main(int argc, char** argv) {
    return runOrCountLibraries(argc, argv, [](char const*) {
        using namespace Tessarin;
        return ModelBuilder().entity("Note").attribute("text", NSAttributeType::String).build() ? 0 : 1;
    });
}
