#pragma once
#include "fuzz/campaigns/PlainDisk.h"

namespace Tessarin::campaigns {

/// The system's calls on the files beneath one folder, from anywhere in this process: they fail when FaultyFiles says so (its
/// layer being the system), and a model of the disk hears of them.
namespace PlainFiles {

/// From now on; what is there is on the disk.
void begin(std::string folder);
void end();
PlainDisk& disk();

} // namespace PlainFiles
} // namespace Tessarin::campaigns
