#include "apps/config/ConfigReader.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "apps/config/detail/VrfReader.h"

namespace Agent {
namespace {

// Finds the start of a second document. The parser's own function for several
// documents never returns on some broken texts.
class SecondDocument : private YAML::EventHandler {
 public:
   // The line of its first node; 0 without a second document.
   static int lineIn( const std::string& text ) {
      std::istringstream stream( text );
      YAML::Parser parser( stream );
      SecondDocument handler;
      if ( !parser.HandleNextDocument( handler ) ) return 0;
      handler.line_ = 0;
      parser.HandleNextDocument( handler );
      return handler.line_;
   }

 private:
   using Mark = YAML::Mark;
   using Tag = const std::string&;
   using Style = YAML::EmitterStyle::value;
   void met( const Mark& mark ) {
      if ( line_ == 0 ) line_ = mark.line + 1;
   }
   void OnDocumentStart( const Mark& ) override {}
   void OnDocumentEnd() override {}
   void OnNull( const Mark&, YAML::anchor_t ) override {}
   void OnAlias( const Mark& mark, YAML::anchor_t ) override { met( mark ); }
   void OnScalar( const Mark& mark, Tag, YAML::anchor_t, Tag ) override {
      met( mark );
   }
   void OnSequenceStart( const Mark& mark, Tag, YAML::anchor_t, Style ) override {
      met( mark );
   }
   void OnSequenceEnd() override {}
   void OnMapStart( const Mark& mark, Tag, YAML::anchor_t, Style ) override {
      met( mark );
   }
   void OnMapEnd() override {}

   int line_ = 0;
};

}

AgentConfig parseConfig( const std::string& text, const std::string& name ) {
   try {
      if ( int line = SecondDocument::lineIn( text ) ) {
         throw ConfigError( fmt::format( "{}:{}: a second document", name, line ) );
      }
      return readRoot( { YAML::Load( text ), &name } );
   } catch ( const YAML::Exception& e ) {
      throw ConfigError( fmt::format( "{}:{}: {}", name, e.mark.line + 1, e.msg ) );
   }
}

std::string configText( const std::string& path ) {
   std::ifstream file( path );
   std::string text;
   char buffer[4096];
   while ( file.read( buffer, sizeof buffer ) || file.gcount() > 0 ) {
      text.append( buffer, static_cast<size_t>( file.gcount() ) );
   }
   // At a regular end the stream has failed, but is not bad.
   if ( !file.is_open() || file.bad() ) {
      throw ConfigError( fmt::format( "{}: {}", path, std::strerror( errno ) ) );
   }
   return text;
}

AgentConfig readConfig( const std::string& path ) {
   return parseConfig( configText( path ), path );
}

}
