#include "platform/trace/detail/TraceSettings.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <cstdio>
#include <optional>

#include "platform/base/Text.h"

namespace Mox {
namespace {

std::optional<unsigned> parseLevel( StringView text ) {
   if ( text.size() != 1 || text[0] < '0' || text[0] > '9' ) return {};
   return static_cast<unsigned>( text[0] - '0' );
}

// Parses "n" or "a-b" to one bit a level; 0 for anything else.
uint32_t parseLevels( StringView text ) {
   size_t dash = text.find( '-' );
   auto low = parseLevel( dash == StringView::npos ? "0" : text.substr( 0, dash ) );
   auto high =
      parseLevel( dash == StringView::npos ? text : text.substr( dash + 1 ) );
   if ( !low || !high || *low > *high ) return 0;
   return ( 2U << *high ) - ( 1U << *low );
}

StringView trimmed( StringView text ) {
   size_t first = text.find_first_not_of( ' ' );
   if ( first == StringView::npos ) return {};
   return text.substr( first, text.find_last_not_of( ' ' ) - first + 1 );
}

}

TraceSettings::TraceSettings( StringView text ) {
   while ( !text.empty() ) {
      size_t comma = std::min( text.find( ',' ), text.size() );
      StringView entry = trimmed( text.substr( 0, comma ) );
      if ( !entry.empty() ) add( entry );
      text.remove_prefix( std::min( comma + 1, text.size() ) );
   }
}

void TraceSettings::add( StringView entry ) {
   size_t slash = std::min( entry.rfind( '/' ), entry.size() );
   String pattern( entry.substr( 0, slash ) );
   uint32_t levels =
      slash == entry.size() ? 0 : parseLevels( entry.substr( slash + 1 ) );
   if ( pattern.empty() || levels == 0 ) {
      String warning = fmt::format(
         "trace settings: {} left out: expected <name>/<n> or <name>/<a>-<b> with "
         "levels 0 to 9\n",
         valueToStrep( String( entry ) ) );
      std::fputs( warning.c_str(), stderr );
      return;
   }
   entries_.push_back( { std::move( pattern ), levels } );
}

uint32_t TraceSettings::levels( const char* facility ) const {
   for ( const Entry& entry : entries_ ) {
      if ( fnmatch( entry.pattern.c_str(), facility, FNM_NOESCAPE ) == 0 ) {
         return entry.levels;
      }
   }
   return 0;
}

}
