#include "apps/show/reports/RegisterReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/show/text/Words.h"

namespace Show {

using Routing::Pim::SparseMode::AdvertisedSg;

namespace {

template <class Row>
std::string heading( const Mirror& mirror, const Selected<Row>& selected ) {
   std::string count = std::to_string( selected.rows.size() );
   if ( selected.rows.size() != selected.all )
      count += fmt::format( " of {}", selected.all );
   return headingText( mirror, count + " (S,G)" );
}

template <class Row>
size_t keyWidth( const Selected<Row>& selected ) {
   size_t width = 0;
   for ( const Row& row : selected.rows )
      width = std::max( width, keyText( row.key ).size() );
   return width;
}

// Two tables are not read at one moment: a key that moves may appear in both or in
// neither.
const char* registerWord( const RegisterRow& row ) {
   if ( row.registerOif == row.noRegisterOif ) return "changing";
   return row.registerOif ? "registers" : "does not register";
}

std::string originText( const RegisterRow& row ) {
   std::string text = row.drDiscovered ? "first hop" : "";
   if ( row.drDiscovered && row.anycastDiscovered ) text += ", ";
   return text + ( row.anycastDiscovered ? "anycast-RP" : "" );
}

}

std::string registersText( const Mirror& mirror, const Registers& selected ) {
   std::string text = heading( mirror, selected );
   size_t width = keyWidth( selected );
   for ( const RegisterRow& row : selected.rows ) {
      text +=
         lineText( fmt::format( "{:<{}}  {:<17}  {}", keyText( row.key ), width,
                                registerWord( row ), originText( row ) ) );
   }
   return text;
}

std::string advertisedText( const Mirror& mirror, const Advertised& selected ) {
   std::string text = heading( mirror, selected );
   size_t width = keyWidth( selected ), rpWidth = 0;
   for ( const AdvertisedSg& row : selected.rows )
      rpWidth = std::max( rpWidth, Vantu::valueToStrep( row.rp ).size() );
   for ( const AdvertisedSg& row : selected.rows ) {
      text += lineText(
         fmt::format( "{:<{}}  RP {:<{}}  {}", keyText( row.key ), width,
                      Vantu::valueToStrep( row.rp ), rpWidth,
                      row.anycastDiscovered ? "from an anycast-RP peer" : "" ) );
   }
   return text;
}

}
