#include "apps/show/WatchScreen.h"

#include <fmt/format.h>
#include <ncurses.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <unordered_map>

#include "apps/show/MetricsReport.h"
#include "apps/show/RouteText.h"
#include "apps/show/Words.h"

// Their names collide with ours.
#undef timeout

namespace Show {

namespace {

using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

constexpr double kInterval = 0.5;   // s, between two pictures
constexpr double kHighlight = 3.0;  // s, that a change stays marked

// When what last changed, and how many changes there were.
class Recent : public Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   Recent( const Mirror& mirror, const Mox::Clock& clock )
      : mirror_( mirror ), tables_( mirror.tables ), clock_( clock ) {
      notifierIs( tables_.get() );
   }

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override {
      ++count_;
      routes_[key] = clock_.now();
   }
   void onRouteIntf( const RouteIntfKey& key ) override {
      ++count_;
      intfs_[key] = clock_.now();
   }

   bool changed( const RouteKey& key ) const { return routes_.contains( key ); }
   bool changed( const RouteIntfKey& key ) const { return intfs_.contains( key ); }

   // Forgets what is no longer marked; the changes a second since the last call.
   double rate( double now ) {
      const double past = now - kHighlight;
      std::erase_if( routes_, [&]( const auto& e ) { return e.second < past; } );
      std::erase_if( intfs_, [&]( const auto& e ) { return e.second < past; } );
      const double span = std::max( now - lastTime_, 1e-3 );
      const double rate = static_cast<double>( count_ - lastCount_ ) / span;
      lastTime_ = now;
      lastCount_ = count_;
      return rate;
   }
   const Mirror& mirror() const { return mirror_; }

 private:
   const Mirror& mirror_;
   Mox::Ptr<const Routing::Pim::SparseMode::Brane::Status> tables_;
   const Mox::Clock& clock_;
   std::unordered_map<RouteKey, double> routes_;
   std::unordered_map<RouteIntfKey, double> intfs_;
   uint64_t count_ = 0, lastCount_ = 0;
   double lastTime_ = 0.0;
};

// The terminal while it is ours.
class Terminal {
 public:
   Terminal() {
      std::setlocale( LC_ALL, "" );
      screen_ = newterm( nullptr, stdout, stdin );
      if ( screen_ == nullptr )
         throw OutputError(
            "cannot use this terminal: set TERM, or watch with "
            "--json-lines" );
      set_term( screen_ );
      cbreak();
      noecho();
      nodelay( stdscr, true );
      keypad( stdscr, true );
      curs_set( 0 );
      if ( std::getenv( "NO_COLOR" ) == nullptr && has_colors() ) {
         start_color();
         use_default_colors();
         init_pair( 1, COLOR_GREEN, -1 );
         mark_ = COLOR_PAIR( 1 ) | A_BOLD;
      }
   }
   ~Terminal() {
      endwin();
      delscreen( screen_ );
   }
   Terminal( const Terminal& ) = delete;
   Terminal& operator=( const Terminal& ) = delete;

   // Starts an empty picture of the terminal's present size.
   void begin() {
      winsize size{};
      if ( ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 && size.ws_row > 0 &&
           is_term_resized( size.ws_row, size.ws_col ) )
         resizeterm( size.ws_row, size.ws_col );
      erase();
      row_ = 0;
   }
   void end( const std::string& footer ) {
      attron( A_REVERSE );
      put( LINES - 1, footer );
      attroff( A_REVERSE );
      refresh();
   }
   bool full() const { return row_ >= LINES - 1; }
   void line( const std::string& text, bool marked ) {
      if ( full() ) return;
      if ( marked ) attron( mark_ );
      put( row_++, text );
      if ( marked ) attroff( mark_ );
   }

 private:
   static void put( int row, const std::string& text ) {
      std::string shown = text.substr( 0, text.find( '\n' ) );
      mvaddnstr( row, 0, shown.c_str(), std::max( 0, COLS ) );
   }

   SCREEN* screen_ = nullptr;
   chtype mark_ = A_REVERSE;
   int row_ = 0;
};

class Screen : public Mox::Clock::Notifiee {
 public:
   Screen( Mirrors& mirrors, const RouteFilter& filter )
      : Notifiee( &mirrors.clock() ),
        mirrors_( mirrors ),
        filter_( filter ),
        keys_( mirrors.loop(), STDIN_FILENO, [this] { readKeys(); } ) {
      for ( const auto& mirror : mirrors.all() )
         recent_.push_back( std::make_unique<Recent>( *mirror, mirrors.clock() ) );
      wakeupTimeIs( clock()->now() );
   }

 private:
   void onTime() override {
      const double start = clock()->now();
      draw();
      // Never more than half of the time goes into pictures.
      const double cost = clock()->now() - start;
      wakeupTimeIs( clock()->now() + std::max( kInterval, cost ) );
   }

   void readKeys() {
      for ( int key = getch(); key != ERR; key = getch() ) {
         const size_t page = static_cast<size_t>( std::max( 1, LINES / 4 ) );
         if ( key == 'q' ) return mirrors_.loop().stop();
         if ( key == KEY_DOWN ) first_ += 1;
         if ( key == KEY_NPAGE || key == ' ' ) first_ += page;
         if ( key == KEY_UP ) first_ -= std::min<size_t>( first_, 1 );
         if ( key == KEY_PPAGE ) first_ -= std::min( first_, page );
         if ( key == KEY_HOME ) first_ = 0;
      }
      wakeupTimeIs( clock()->now() );
   }

   void draw() {
      terminal_.begin();
      size_t before = 0, total = 0;
      std::vector<std::vector<const Route*>> selected;
      for ( const auto& recent : recent_ ) {
         selected.push_back( selectRoutes( recent->mirror(), filter_ ) );
         total += selected.back().size();
      }
      first_ = std::min( first_, total == 0 ? 0 : total - 1 );
      for ( size_t i = 0; i < recent_.size(); ++i ) {
         const size_t skip =
            first_ > before ? std::min( first_ - before, selected[i].size() ) : 0;
         before += selected[i].size();
         drawMirror( *recent_[i], selected[i], skip );
      }
      terminal_.end( fmt::format(
         "q leaves, arrows move; route {} of {}; changes of the last {:.0f} s are "
         "marked",
         total == 0 ? 0 : first_ + 1, total, kHighlight ) );
   }

   void drawMirror( Recent& recent, const std::vector<const Route*>& routes,
                    size_t skip ) {
      const Mirror& mirror = recent.mirror();
      std::string heading = routesHeading( mirror, routes.size() );
      heading.pop_back();
      terminal_.line( fmt::format( "{}, {:.1f} changes/s", heading,
                                   recent.rate( clock()->now() ) ),
                      false );
      const double now = clock()->now();
      const size_t end =
         std::min( routes.size(), skip + static_cast<size_t>( LINES ) );
      size_t width = 0;
      for ( size_t i = skip; i < end; ++i )
         width = std::max( width, keyText( routes[i]->key() ).size() );
      for ( size_t i = skip; i < end && !terminal_.full(); ++i ) {
         const Route& route = *routes[i];
         terminal_.line( routeLine( route, width, now ),
                         recent.changed( route.key() ) );
         for ( const Intf* intf : selectIntfs( route, filter_ ) )
            terminal_.line( intfLine( *intf, kNameWidth, now ),
                            recent.changed( { route.key(), intf->intfId() } ) );
      }
      terminal_.line( "", false );
   }

   static constexpr size_t kNameWidth = 8;

   Mirrors& mirrors_;
   RouteFilter filter_;
   std::vector<std::unique_ptr<Recent>> recent_;
   Terminal terminal_;
   Mox::Loop::FdWatcher keys_;
   size_t first_ = 0;  // route at the top
};

}

void watchOnScreen( Mirrors& mirrors, const RouteFilter& filter ) {
   Screen screen( mirrors, filter );
   mirrors.loop().run();
}

}
