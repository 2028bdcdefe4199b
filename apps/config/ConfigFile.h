// A configuration file that is read again and again: of the second time on, only VRFs
// whose text has changed are parsed. The result, and each error, is that of readConfig().
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "apps/config/ConfigReader.h"

namespace Agent {

class ConfigFile {
 public:
   using Blocks = std::vector<std::string_view>;

   explicit ConfigFile( std::string path ) : path_( std::move( path ) ) {}

   const std::string& path() const { return path_; }

   // Throws ConfigError; the next call starts from what was read before.
   AgentConfig read();
   // As read(), of a text in the file's place.
   AgentConfig read( const std::string& text );

   // VRFs of the last read() that were parsed.
   size_t parsed() const { return parsed_; }

 private:
   std::optional<AgentConfig> combined( const Blocks& blocks );
   void remember( const Blocks& blocks, const AgentConfig& config );

   std::string path_;
   std::unordered_map<std::string, VrfConfig> known_;  // by text
   size_t parsed_ = 0;
};

}
