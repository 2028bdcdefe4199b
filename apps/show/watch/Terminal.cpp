#include "apps/show/watch/Terminal.h"

#include <ncurses.h>
#include <sys/ioctl.h>
#include <termcap.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <utility>

#include "apps/program/Ending.h"

namespace Show {

namespace {

void put( int row, const std::string& text ) {
   mvaddnstr( row, 0, text.c_str(), std::max( 0, COLS ) );
}

// Is the terminal known, and can its cursor be moved? newterm() leaks memory for an
// unknown terminal, and writes blanks to one without cursor movement.
bool isUsable() {
   const char* type = std::getenv( "TERM" );
   char move[] = "cm";
   return type != nullptr && tgetent( nullptr, type ) == 1 &&
          tgetstr( move, nullptr ) != nullptr;
}

}

Terminal::Terminal() {
   std::setlocale( LC_ALL, "" );
   if ( isUsable() ) screen_ = newterm( nullptr, stdout, stdin );
   if ( screen_ == nullptr )
      throw Programs::WrongUsage(
         "cannot use this terminal: set TERM, or watch with "
         "--json-lines" );
   set_term( screen_ );
   cbreak();
   noecho();
   nodelay( stdscr, true );
   keypad( stdscr, true );
   curs_set( 0 );
   mark_ = A_REVERSE;
   if ( std::getenv( "NO_COLOR" ) == nullptr && has_colors() ) {
      start_color();
      use_default_colors();
      init_pair( 1, COLOR_GREEN, -1 );
      mark_ = COLOR_PAIR( 1 ) | A_BOLD;
   }
}

Terminal::~Terminal() {
   endwin();
   delscreen( screen_ );
}

int Terminal::rows() const {
   return LINES;
}

size_t Terminal::columns() const {
   return static_cast<size_t>( std::max( 1, COLS ) );
}

void Terminal::begin() {
   winsize size{};
   if ( ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 && size.ws_row > 0 &&
        is_term_resized( size.ws_row, size.ws_col ) )
      resizeterm( size.ws_row, size.ws_col );
   erase();
   row_ = 0;
}

void Terminal::line( const std::string& text, bool marked ) {
   if ( full() ) return;
   if ( marked ) attron( mark_ );
   put( row_++, text );
   if ( marked ) attroff( mark_ );
}

void Terminal::end( const std::string& footer ) {
   attron( A_REVERSE );
   put( LINES - 1, footer );
   attroff( A_REVERSE );
   refresh();
}

Terminal::Key Terminal::key() {
   constexpr std::pair<int, Key> kKeys[] = {
      { ERR, none },      { 'q', quit },         { KEY_UP, up },
      { KEY_DOWN, down }, { KEY_PPAGE, pageUp }, { KEY_NPAGE, pageDown },
      { ' ', pageDown },  { KEY_HOME, top },     { KEY_END, bottom } };
   const int pressed = getch();
   for ( const auto& [code, key] : kKeys )
      if ( code == pressed ) return key;
   if ( pressed == ( 'L' & 0x1f ) ) clearok( curscr, true );
   return other;
}

}
