// Queues only: one item on a serial queue.
#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/start/programs/Libraries.h"

int main(int argc, char** argv) {
    return runOrCountLibraries(argc, argv, [](char const*) {
        int status = 1;
        Tessarin::dispatch_sync(Tessarin::dispatch_queue_create("start", Tessarin::DISPATCH_QUEUE_SERIAL), [&] { status = 0; });
        return status;
    });
}
