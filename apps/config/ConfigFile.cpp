#include "apps/config/ConfigFile.h"

#include <set>

namespace Agent {

namespace {

using Blocks = ConfigFile::Blocks;

bool startsWith( std::string_view text, std::string_view start ) {
   return text.substr( 0, start.size() ) == start;
}

// The texts of the VRFs, each from its dash to the next one's; empty for a file that is
// not just "vrfs:" with a list of blocks. An anchor could tie one VRF to another.
Blocks blocksOf( std::string_view text ) {
   constexpr std::string_view kHead = "vrfs:\n";
   if ( text.find( '&' ) != text.npos ) return {};
   while ( startsWith( text, "#" ) || startsWith( text, "\n" ) )
      text.remove_prefix( std::min( text.find( '\n' ), text.size() - 1 ) + 1 );
   if ( !startsWith( text, kHead ) ) return {};
   text.remove_prefix( kHead.size() );
   const size_t indent = std::min( text.find_first_not_of( ' ' ), text.size() );
   const std::string dash = std::string( indent, ' ' ) + "- ";
   if ( !startsWith( text, dash ) ) return {};
   Blocks blocks;
   size_t begin = 0;
   for ( size_t at = 0; at < text.size(); ) {
      const std::string_view line = text.substr( at );
      const bool nested = startsWith( line, dash ) || startsWith( line, " " ) ||
                          startsWith( line, "#" ) || startsWith( line, "\n" );
      if ( !nested ) return {};
      if ( at > begin && startsWith( line, dash ) ) {
         blocks.push_back( text.substr( begin, at - begin ) );
         begin = at;
      }
      at += std::min( line.find( '\n' ), line.size() - 1 ) + 1;
   }
   blocks.push_back( text.substr( begin ) );
   return blocks;
}

// What must differ among the VRFs of a file.
bool conflict( const AgentConfig& config ) {
   std::set<std::string_view> names;
   std::set<std::string> interfaces, captures;
   std::set<uint32_t> tables;
   for ( const VrfConfig& vrf : config.vrfs ) {
      if ( !names.insert( vrf.name.name() ).second ) return true;
      if ( vrf.mrouteTable && !tables.insert( *vrf.mrouteTable ).second )
         return true;
      for ( const Router::InterfaceConfig& interface : vrf.interfaces ) {
         if ( !interfaces.emplace( interface.name.name() ).second ||
              !captures.insert( vrf.capture( interface.name ) ).second )
            return true;
      }
   }
   return false;
}

}

AgentConfig ConfigFile::read() {
   return read( configText( path_ ) );
}

// A fault is looked for in the whole text, which knows its line.
AgentConfig ConfigFile::read( const std::string& text ) {
   const Blocks blocks = blocksOf( text );
   if ( std::optional<AgentConfig> config = combined( blocks ) ) return *config;
   AgentConfig config = parseConfig( text, path_ );
   parsed_ = config.vrfs.size();
   if ( blocks.size() == parsed_ ) remember( blocks, config );
   return config;
}

void ConfigFile::remember( const Blocks& blocks, const AgentConfig& config ) {
   known_.clear();
   for ( size_t i = 0; i < blocks.size(); ++i )
      known_.emplace( blocks[i], config.vrfs[i] );
}

// Nothing if the blocks do not make a configuration, or no VRF is known. Alone, a block is
// what it is in the file, since nothing outside ties VRFs together.
std::optional<AgentConfig> ConfigFile::combined( const Blocks& blocks ) {
   if ( known_.empty() || blocks.empty() ) return std::nullopt;
   AgentConfig config;
   size_t parsed = 0;
   for ( const std::string_view block : blocks ) {
      const std::string text( block );
      auto known = known_.find( text );
      if ( known != known_.end() ) {
         config.vrfs.push_back( known->second );
         continue;
      }
      ++parsed;
      try {
         const AgentConfig alone = parseConfig( "vrfs:\n" + text, path_ );
         if ( alone.vrfs.size() != 1 ) return std::nullopt;
         config.vrfs.push_back( alone.vrfs[0] );
      } catch ( const ConfigError& ) {
         return std::nullopt;
      }
   }
   if ( conflict( config ) ) return std::nullopt;
   parsed_ = parsed;
   remember( blocks, config );
   return config;
}

}
