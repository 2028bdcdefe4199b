// The terminal during `watch`: pictures, row by row, and keys.
#pragma once

#include <string>

// From ncurses, whose macros stay out of this header.
struct screen;

namespace Show {

class Terminal {
 public:
   enum Key { none, other, quit, up, down, pageUp, pageDown, top, bottom };

   // Throws WrongUsage for a terminal that cannot place text.
   Terminal();
   // Restores the terminal.
   ~Terminal();
   Terminal( const Terminal& ) = delete;
   Terminal& operator=( const Terminal& ) = delete;

   // The size of the present picture.
   int rows() const;
   size_t columns() const;

   // Starts an empty picture of the terminal's present size.
   void begin();
   // Writes the next row, cut if it is too long; ignored when the picture is full.
   void line( const std::string& text, bool marked );
   // True when only the footer's row is left.
   bool full() const { return row_ >= rows() - 1; }
   void end( const std::string& footer );

   // The next key pressed; `none` without another one. ^L makes the next picture
   // redraw the whole terminal.
   Key key();

 private:
   screen* screen_ = nullptr;
   unsigned mark_ = 0;
   int row_ = 0;
};

}
