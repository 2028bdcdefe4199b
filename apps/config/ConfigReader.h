// Reads the configuration file; see doc/configuration.md for the format.
#pragma once

#include <string>
#include <vector>

#include "apps/config/AgentConfig.h"
#include "apps/program/Ending.h"

namespace Agent {

// The text is "file:line: what is wrong", or "file: ..." where it cannot be read.
class ConfigError : public Programs::WrongUsage {
 public:
   using WrongUsage::WrongUsage;
};

// Throws ConfigError on the first fault: unreadable, not YAML, an unknown or
// repeated key, a wrong value, a reference to nothing.
AgentConfig readConfig( const std::string& path );

// Every fault of a text, a line each in order of the text; none if it is valid. What
// follows from a fault alone is left out where that is certain. At most `maxFaults`.
constexpr size_t maxFaults = 100;
std::vector<std::string> configFaults( const std::string& text,
                                       const std::string& name );

// The file's text. Throws ConfigError.
std::string configText( const std::string& path );

// Parses a text; `name` stands for the file in errors.
AgentConfig parseConfig( const std::string& text, const std::string& name );

}
