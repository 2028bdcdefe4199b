// Rows in columns, each as wide as its longest cell.
#pragma once

#include <string>
#include <vector>

namespace Show {

class TextTable {
 public:
   struct Column {
      const char* name;
      bool right = false;  // a number: aligned to the right
   };

   explicit TextTable( std::vector<Column> columns );

   // REQUIRES: as many cells as columns.
   void add( std::vector<std::string> row );
   // A line below the last row, which does not count for the columns' widths.
   void note( std::string line );

   bool empty() const { return rows_.size() == 1; }
   // The heading and the rows, a line each; the last column is not filled up.
   std::string text() const;

 private:
   std::string line( const std::vector<std::string>& row ) const;

   struct Row {
      std::vector<std::string> cells;
      std::string notes;
   };

   std::vector<Column> columns_;
   std::vector<size_t> widths_;
   std::vector<Row> rows_;
};

}
