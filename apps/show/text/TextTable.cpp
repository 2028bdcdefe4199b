#include "apps/show/text/TextTable.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/show/text/Words.h"

namespace Show {

TextTable::TextTable( std::vector<Column> columns )
   : columns_( std::move( columns ) ), widths_( columns_.size() ) {
   std::vector<std::string> heading;
   for ( const Column& column : columns_ ) heading.emplace_back( column.name );
   add( std::move( heading ) );
}

void TextTable::add( std::vector<std::string> row ) {
   for ( size_t i = 0; i < row.size(); ++i )
      widths_[i] = std::max( widths_[i], row[i].size() );
   rows_.push_back( { std::move( row ), "" } );
}

void TextTable::note( std::string line ) {
   rows_.back().notes += lineText( std::move( line ) );
}

std::string TextTable::line( const std::vector<std::string>& row ) const {
   std::string text;
   for ( size_t i = 0; i < row.size(); ++i ) {
      // Numbers beside each other stand closer.
      if ( i > 0 ) text += columns_[i].right && columns_[i - 1].right ? " " : "  ";
      text += columns_[i].right ? fmt::format( "{:>{}}", row[i], widths_[i] )
                                : fmt::format( "{:<{}}", row[i], widths_[i] );
   }
   return lineText( std::move( text ) );
}

std::string TextTable::text() const {
   std::string text;
   for ( const Row& row : rows_ ) text += line( row.cells ) + row.notes;
   return text;
}

}
