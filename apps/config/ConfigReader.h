// Reads the configuration file; see doc/configuration.md for the format.
#pragma once

#include <string>

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

// The file's text. Throws ConfigError.
std::string configText( const std::string& path );

// Parses a text; `name` stands for the file in errors.
AgentConfig parseConfig( const std::string& text, const std::string& name );

}
