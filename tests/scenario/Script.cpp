#include "tests/scenario/Script.h"

#include <cctype>
#include <fstream>

#include "tests/scenario/Words.h"

namespace Scenario {
namespace {

std::string trimmed( const std::string& text ) {
   const size_t first = text.find_first_not_of( " \t" );
   if ( first == std::string::npos ) return "";
   return text.substr( first, text.find_last_not_of( " \t" ) - first + 1 );
}

std::vector<std::string> split( const std::string& text, char separator ) {
   std::vector<std::string> out;
   size_t from = 0;
   for ( size_t at = 0; at <= text.size(); ++at ) {
      if ( at != text.size() && text[at] != separator ) continue;
      const std::string part = trimmed( text.substr( from, at - from ) );
      if ( !part.empty() ) out.push_back( part );
      from = at + 1;
   }
   return out;
}

// A comment begins with a hash, at the line's start or behind a blank.
std::string withoutComment( const std::string& line ) {
   for ( size_t at = 0; at < line.size(); ++at ) {
      if ( line[at] == '#' && ( at == 0 || line[at - 1] == ' ' ) )
         return line.substr( 0, at );
   }
   return line;
}

class ScriptReader {
 public:
   explicit ScriptReader( const std::string& path ) : in_( path ) {
      out_.path = path;
      if ( !in_ ) throw ScriptError( path + ": cannot be read" );
   }

   Script read() {
      for ( std::string line; std::getline( in_, line ); ) {
         ++number_;
         try {
            take( withoutComment( line ) );
         } catch ( const ScriptError& error ) {
            throw ScriptError( out_.path + ':' + std::to_string( number_ ) + ": " +
                               error.what() );
         }
      }
      return std::move( out_ );
   }

 private:
   void take( const std::string& line ) {
      const bool indented = line.rfind( "  ", 0 ) == 0;
      if ( inConfig_ && indented ) {
         out_.config += line + '\n';
         return;
      }
      const std::string text = trimmed( line );
      if ( text.empty() ) return;
      inConfig_ = false;
      if ( indented ) return takeExpected( text );
      Words words( text );
      const std::string first = words.next();
      if ( first == "config" && words.atEnd() ) {
         inConfig_ = true;
      } else if ( first == "speaks" && words.atEnd() ) {
         out_.speaks = true;
      } else if ( first == "name" ) {
         const std::string name = words.next();
         out_.names[name] = words.next();
      } else if ( first == "variant" ) {
         takeVariant( text, words.next() );
      } else if ( first == "family" ) {
         const std::string family = words.next();
         if ( family != "ipv4" && family != "ipv6" )
            throw ScriptError( "no family: " + family );
         out_.ipv6 = family == "ipv6";
      } else if ( first == "define" ) {
         const std::string word = words.next();
         out_.defined[word.substr( 0, word.find( ':' ) )] =
            split( text.substr( text.find( ':' ) + 1 ), ';' );
      } else if ( first == "watch" ) {
         watched_ = split( text.substr( first.size() ), ',' );
      } else if ( first == "before" ) {
         preamble_ = split( text.substr( first.size() ), ';' );
      } else if ( first == "scenario" || first == "cases" ) {
         cases_ = first == "cases";
         title_ = trimmed( text.substr( first.size() ) );
         if ( !cases_ ) addStory();
      } else {
         takeStatements( text );
      }
   }

   void addStory() {
      out_.stories.push_back( { title_, watched_, preamble_, {}, cases_ } );
   }

   // variant NAME: text of the configuration => its replacement
   void takeVariant( const std::string& text, const std::string& name ) {
      const size_t colon = text.find( ": " );
      const size_t arrow = text.find( "=>" );
      if ( colon == std::string::npos || arrow == std::string::npos )
         throw ScriptError( "variant NAME: TEXT => TEXT" );
      out_.variants[name.substr( 0, name.find( ':' ) )] = {
         trimmed( text.substr( colon + 2, arrow - colon - 2 ) ),
         trimmed( text.substr( arrow + 2 ) ) };
   }

   void takeStatements( const std::string& text ) {
      if ( title_.empty() ) throw ScriptError( "not understood: " + text );
      const size_t arrow = text.find( "=>" );
      Line line;
      line.number = number_;
      line.statements = split( text.substr( 0, arrow ), ';' );
      if ( arrow != std::string::npos )
         line.expected = split( text.substr( arrow + 2 ), ';' );
      if ( cases_ ) addStory();
      out_.stories.back().lines.push_back( std::move( line ) );
   }

   // The expectations continue on this line.
   void takeExpected( std::string text ) {
      if ( out_.stories.empty() || out_.stories.back().lines.empty() )
         throw ScriptError( "nothing has happened yet that this could follow" );
      if ( text.rfind( "=>", 0 ) == 0 ) text.erase( 0, 2 );
      auto& expected = out_.stories.back().lines.back().expected;
      for ( std::string& each : split( text, ';' ) )
         expected.push_back( std::move( each ) );
   }

   std::ifstream in_;
   Script out_;
   int number_ = 0;
   bool inConfig_ = false;
   bool cases_ = false;
   std::vector<std::string> watched_;
   std::vector<std::string> preamble_;
   std::string title_;
};

}

std::string testName( const std::string& title ) {
   std::string out;
   bool begins = true;
   for ( char c : title ) {
      const auto letter = static_cast<unsigned char>( c );
      if ( std::isalnum( letter ) != 0 )
         out += static_cast<char>( begins ? std::toupper( letter ) : letter );
      begins = std::isalnum( letter ) == 0;
   }
   return out;
}

Script readScript( const std::string& path ) {
   return ScriptReader( path ).read();
}

}
