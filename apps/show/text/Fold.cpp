#include "apps/show/text/Fold.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>

namespace Show {

namespace {

constexpr size_t kLeastWidth = 20;
constexpr size_t kIndent = 6;  // of continuation lines without a column
constexpr const char* kBlanks = " \t";

bool isBlank( char c ) {
   return c == ' ' || c == '\t';
}

bool beginsWord( std::string_view line, size_t at ) {
   return at > 0 && !isBlank( line[at] ) && isBlank( line[at - 1] );
}

bool beginsColumn( std::string_view line, size_t at ) {
   return beginsWord( line, at ) && at > 1 && isBlank( line[at - 2] );
}

size_t hangOf( std::string_view line, size_t width ) {
   const size_t indent = line.find_first_not_of( kBlanks );
   for ( size_t at = std::min( width / 2, line.size() - 1 ); at > indent; --at )
      if ( beginsColumn( line, at ) ) return at;
   return std::min( indent + kIndent, width / 2 );
}

// Is the place inside a route, "(S, G)" or "(S, G, rpt)", that fits into so many columns?
bool inRoute( std::string_view line, size_t at, size_t columns ) {
   constexpr size_t kMostCommas = 2;
   const size_t open = line.rfind( '(', at - 1 ), close = line.find( ')', at );
   if ( open == line.npos || close == line.npos || close - open >= columns )
      return false;
   const std::string_view text = line.substr( open + 1, close - open - 1 );
   size_t commas = 0;
   for ( size_t i = 0; i < text.size(); ++i ) {
      if ( text[i] == '(' || text[i] == ')' ) return false;
      if ( isBlank( text[i] ) && ( i == 0 || text[i - 1] != ',' ) ) return false;
      commas += text[i] == ',';
   }
   return commas <= kMostCommas;
}

// The start of the next line. Candidates are the words beyond `after` before which
// the line fits into `room`: the last one at a good place is taken, otherwise the
// last one outside of a route, otherwise the last of all. If the line fits before none,
// the first word is taken. The line's end is no candidate. The next line has room for
// `nextRoom`.
size_t nextLine( std::string_view line, size_t after, size_t room,
                 size_t nextRoom ) {
   size_t good = line.size(), any = line.size(), last = line.size();
   int depth = 0;
   for ( size_t at = 1; at < line.size(); ++at ) {
      depth += line[at - 1] == '(' ? 1 : line[at - 1] == ')' ? -1 : 0;
      if ( at <= after || !beginsWord( line, at ) ) continue;
      const size_t end = line.find_last_not_of( kBlanks, at - 1 ) + 1;
      if ( end > room && last != line.size() ) break;
      last = at;
      if ( inRoute( line, at, nextRoom ) ) continue;
      any = at;
      if ( end > room ) break;
      if ( beginsColumn( line, at ) || line[at - 1] == '\t' ||
           ( line[end - 1] == ',' && depth == 0 ) )
         good = at;
   }
   return good != line.size() ? good : any != line.size() ? any : last;
}

void appendLine( std::string& out, std::string_view line ) {
   line = line.substr( 0, line.find_last_not_of( kBlanks ) + 1 );
   out += line;
   std::replace( out.end() - static_cast<std::ptrdiff_t>( line.size() ), out.end(),
                 '\t', ' ' );
   out += '\n';
}

void foldLine( std::string& out, std::string_view line, size_t width ) {
   if ( line.size() <= width ) return appendLine( out, line );
   const size_t hang = hangOf( line, width );
   size_t indent = 0, after = hang;
   while ( indent + line.size() > width ) {
      const size_t next = nextLine( line, after, width - indent, width - hang );
      if ( next == line.size() ) break;
      appendLine( out.append( indent, ' ' ), line.substr( 0, next ) );
      line.remove_prefix( next );
      indent = hang;
      after = 0;
   }
   appendLine( out.append( indent, ' ' ), line );
}

}

size_t outputWidth() {
   size_t width = 0;
   if ( const char* columns = std::getenv( "COLUMNS" ) ) {
      const std::string_view text( columns );
      std::from_chars( text.data(), text.data() + text.size(), width );
   }
   winsize size{};
   if ( width == 0 && ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 )
      width = size.ws_col;
   return width == 0 ? noFold : std::max( width, kLeastWidth );
}

std::string folded( std::string_view text, size_t width ) {
   std::string out;
   while ( !text.empty() ) {
      const size_t end = std::min( text.find( '\n' ), text.size() );
      foldLine( out, text.substr( 0, end ), width );
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
   return out;
}

}
