#include "benchmarks/store/Contender.h"

namespace Tessarin::benchmarks {

std::vector<std::unique_ptr<Contender>> makeContenders() {
    std::vector<std::unique_ptr<Contender>> contenders;
    for (auto* const make : {makeOurs, makeRaw, makeSQLiteCpp, makeQtSQL})
        if (auto contender = make()) contenders.push_back(std::move(contender));
    return contenders;
}

} // namespace Tessarin::benchmarks
