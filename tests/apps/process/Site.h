// A router with tables of its own: its agents.
#pragma once

#include <fstream>

#include "tests/support/Program.h"
#include "tests/support/TempRoot.h"

namespace Agent {

using Mox::Test::Ended;
using Mox::Test::Program;

inline std::string demo( const char* name ) {
   return std::string( PIMSM_SOURCE_DIR "/examples/demo/" ) + name;
}

inline std::string bytesOf( const std::string& path ) {
   std::ifstream file( path, std::ios::binary );
   return { std::istreambuf_iterator<char>( file ), {} };
}

class Site {
 public:
   const std::string& root() const { return root_.path(); }

   // An agent with the demonstration's configuration.
   Program::Arguments agent( const Program::Arguments& more = {} ) const {
      return command( { PIMSM_AGENT, "--config", demo( "agent.yaml" ) }, more );
   }
   // As above, fed with both links' captures.
   Program::Arguments fedAgent( const Program::Arguments& more = {} ) const {
      Program::Arguments read = { "--read", "eth1=" + demo( "eth1.pcap" ), "--read",
                                  "eth2=" + demo( "eth2.pcap" ) };
      read.insert( read.end(), more.begin(), more.end() );
      return agent( read );
   }
   std::string write( const char* name, const std::string& bytes ) const {
      std::string path = root() + '/' + name;
      std::ofstream( path, std::ios::binary ) << bytes;
      return path;
   }

 private:
   Program::Arguments command( Program::Arguments out,
                               const Program::Arguments& more ) const {
      out.insert( out.end(), { "--root", root() } );
      out.insert( out.end(), more.begin(), more.end() );
      return out;
   }

   Mox::Test::TempRoot root_;
};

}
