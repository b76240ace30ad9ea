#pragma once
// The commands of kesta-gentl. A command gets the loaded producer and its
// own arguments, prints to stdout (failures to stderr) and returns the
// process's exit status. Add one by writing its Run function in a file of
// its own and listing it in the table of main.cpp.
#include <string>
#include <vector>

#include "Producer.h"

namespace kesta::gentl {

using Arguments = std::vector<std::string>;

/// info: GCInitLib, every GCGetInfo answer by name, GCCloseLib.
int RunInfo(Producer& producer, const Arguments& arguments);

} // namespace kesta::gentl
