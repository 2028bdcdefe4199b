// Another program's answer to a text, within limits.
#pragma once

#include <string>

namespace Fleet {

// What the program, looked for in PATH, writes about `input`. It gets 5 s, 512 MB, no file
// to write, none of this process's files, and ends with its caller's thread. Throws
// NoLayout where it is missing or does not get done; a failure is an answer that is not
// whole. Blocks.
std::string childsAnswer( const std::string& program, const char* argument,
                          const std::string& input );

}
