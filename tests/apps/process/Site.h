// A router with tables of its own: its agents and readers.
#pragma once

#include <fstream>
#include <sstream>

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

// The lines of a text.
inline std::vector<std::string> linesOf( const std::string& text ) {
   std::vector<std::string> out;
   std::istringstream stream( text );
   for ( std::string line; std::getline( stream, line ); ) out.push_back( line );
   return out;
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
   Program::Arguments reader() const { return { PIMSM_READER, root() }; }
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
