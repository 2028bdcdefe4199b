#include "tests/netns/Overheard.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "tests/scenario/Script.h"

namespace Netns {
namespace {

using Fields = std::vector<std::string>;

Fields split( const std::string& text, char separator ) {
   Fields out( 1 );
   for ( char c : text ) {
      if ( c == separator ) {
         out.emplace_back();
      } else {
         out.back() += c;
      }
   }
   return out;
}

std::vector<Fields> rows( const Decoder& decoder, const std::string& filter,
                          const Fields& fields ) {
   std::vector<Fields> out;
   for ( const std::string& line :
         split( decoder.packets( filter, fields, "frame.time_epoch" ), '\n' ) ) {
      if ( !line.empty() ) out.push_back( split( line, ' ' ) );
   }
   return out;
}

double timeOf( const Fields& row ) {
   return std::stod( row.back() );
}

double newIds( const Decoder& decoder, double since ) {
   std::map<std::string, std::string> last;
   int changed = 0;
   for ( const Fields& row :
         rows( decoder, "pim.generation_id",
               { "eth.src", "eth.type", "pim.generation_id" } ) ) {
      std::string& before = last[row.at( 0 ) + row.at( 1 )];
      if ( timeOf( row ) >= since && !before.empty() && before != row.at( 2 ) )
         ++changed;
      before = row.at( 2 );
   }
   return changed;
}

}

double overheard( const Decoder& decoder, double since,
                  const std::string& figure ) {
   if ( figure == "new-ids" ) return newIds( decoder, since );
   static const std::map<std::string, std::string> kFilters = {
      { "prunes", "pim.numprunes > 0 and not pim.numjoins > 0" },
      { "joins", "pim.numjoins > 0" },
      { "asserts", "pim.type == 5" },
      { "hellos", "pim.type == 0" },
      { "queries", "(igmp.type == 0x11 or icmpv6.type == 130)" } };
   const auto filter = kFilters.find( figure );
   if ( filter == kFilters.end() )
      throw Scenario::ScriptError( "no figure: " + figure );
   return static_cast<double>(
      rows(
         decoder,
         fmt::format( "frame.time_epoch >= {:.6f} and {}", since, filter->second ),
         {} )
         .size() );
}

}
