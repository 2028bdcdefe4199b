// The terminal while it is ours: pictures, a row at a time, and keys.
#pragma once

#include <string>

// Of ncurses, whose macros stay out of here.
struct screen;

namespace Show {

class Terminal {
 public:
   enum Key { none, other, quit, up, down, pageUp, pageDown, top, bottom };

   // Throws WrongUsage for a terminal that cannot place text.
   Terminal();
   // Leaves it as it was.
   ~Terminal();
   Terminal( const Terminal& ) = delete;
   Terminal& operator=( const Terminal& ) = delete;

   // Of the present picture.
   int rows() const;
   size_t columns() const;

   // Starts an empty picture of the terminal's present size.
   void begin();
   // The next row, cut where it is too long; nothing where the picture is full.
   void line( const std::string& text, bool marked );
   // All but the footer's row.
   bool full() const { return row_ >= rows() - 1; }
   void end( const std::string& footer );

   // What was pressed next; `none` where nothing more was. ^L has the next picture drawn
   // anew, whatever the terminal shows.
   Key key();

 private:
   screen* screen_ = nullptr;
   unsigned mark_ = 0;
   int row_ = 0;
};

}
