// An empty program in C++, which has the libraries that any of them has.
#include "benchmarks/start/programs/Libraries.h"
#include <string>

int main(int argc, char** argv) {
    return runOrCountLibraries(argc, argv, [](char const* file) { return std::string(file).size() > 4096 ? 1 : 0; });
}
