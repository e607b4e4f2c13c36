// What a program's file says of how it is linked, as far as recording it depends on that.
#pragma once

#include <string>

namespace vesk::tool {

// The file that a shell would run by this name. Throws Failure if there is none that may be run.
std::string find_program(const std::string& name);

// Throws Failure if no call of the program could be recorded: nothing can be preloaded into it, or the 380 functions
// are its own. A script is good: what it runs is looked at by nobody.
void refuse_unrecordable(const std::string& path);

}  // namespace vesk::tool
