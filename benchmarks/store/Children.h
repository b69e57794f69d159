#pragma once
#include "benchmarks/store/Contender.h"

namespace Tessarin::benchmarks {

enum class ChildTask { OpenAndFind, Resident, BatchedFetch, SaveForOthers };

/// The row in a new process, which is this program with `--child TASK CONTENDER FILE`.
Reading measureInChild(ChildTask task, Contender const& contender, std::string const& file);
/// What that process does: prints the figure and the checksum.
int runChild(std::string const& task, std::string const& contender, std::string const& file);

} // namespace Tessarin::benchmarks
