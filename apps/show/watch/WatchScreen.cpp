#include "apps/show/watch/WatchScreen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "apps/mirror/Rps.h"
#include "apps/program/Printable.h"
#include "apps/show/text/EventText.h"
#include "apps/show/text/Fold.h"
#include "apps/show/text/RouteText.h"
#include "apps/show/watch/Reasons.h"
#include "apps/show/watch/Terminal.h"

namespace Show {

namespace {

using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

constexpr double kInterval = 0.5;   // s, between two pictures
constexpr double kHighlight = 3.0;  // s; how long a change stays marked

// The latest changes: their times, their reasons, and their number.
class Recent : public Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   Recent( const Mirror& mirror, const Mox::Clock& clock )
      : mirror_( mirror ), tables_( mirror.tables ), clock_( clock ) {
      notifierIs( tables_.get() );
   }

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override { onRouteIntf( { key, {} } ); }
   void onRouteIntf( const RouteIntfKey& key ) override {
      ++count_;
      changes_[key] = { clock_.now(), {} };
   }

   // Of a route itself the interface is empty.
   bool changed( const RouteIntfKey& key ) const {
      return changes_.contains( key );
   }
   // Once found, the reason stays as long as the change is marked. Empty: none is known.
   std::string reason( const RouteIntfKey& key, Reasons& reasons ) {
      const auto found = changes_.find( key );
      if ( found == changes_.end() ) return "";
      std::string& text = found->second.reason;
      if ( !text.empty() ) return text;
      const Logged* why =
         reasons.of( mirror_, key.routeKey, key.intfId, clock_.now() );
      if ( why != nullptr ) text = Programs::printable( eventText( why->event ) );
      return text;
   }

   // Forgets changes that are no longer marked, and computes the rate since the
   // last call.
   void update( double now ) {
      const double past = now - kHighlight;
      std::erase_if( changes_,
                     [&]( const auto& each ) { return each.second.time < past; } );
      const double span = std::max( now - lastTime_, 1e-3 );
      rate_ = static_cast<double>( count_ - lastCount_ ) / span;
      lastTime_ = now;
      lastCount_ = count_;
   }
   // Changes per second.
   double rate() const { return rate_; }
   const Mirror& mirror() const { return mirror_; }

   // The present picture's routes, RPs, and column widths.
   size_t matching = 0;
   std::optional<Rps> rps;
   Columns columns;

 private:
   const Mirror& mirror_;
   Mox::Ptr<const Routing::Pim::SparseMode::Brane::Status> tables_;
   const Mox::Clock& clock_;
   struct Change {
      double time = 0.0;
      std::string reason;
   };
   std::unordered_map<RouteIntfKey, Change> changes_;
   uint64_t count_ = 0, lastCount_ = 0;
   double lastTime_ = 0.0, rate_ = 0.0;
};

class RouteScreen : public Mox::Clock::Notifiee {
 public:
   RouteScreen( Mirrors& mirrors, const RouteFilter& filter,
                const std::string& root )
      : Notifiee( &mirrors.clock() ),
        mirrors_( mirrors ),
        filter_( filter ),
        reasons_( root ),
        keys_( mirrors.loop(), STDIN_FILENO, [this] { readKeys(); } ) {
      wakeupTimeIs( clock()->now() );
   }

 private:
   void onTime() override {
      const double start = clock()->now();
      draw();
      // At most half of the time goes into pictures.
      const double cost = clock()->now() - start;
      wakeupTimeIs( clock()->now() + std::max( kInterval, cost ) );
   }

   void readKeys() {
      const int page = std::max( 1, terminal_.rows() - 3 );
      for ( auto key = terminal_.key(); key != Terminal::none;
            key = terminal_.key() ) {
         if ( key == Terminal::quit ) return mirrors_.loop().stop();
         if ( key == Terminal::up ) within_ -= 1;
         if ( key == Terminal::down ) within_ += 1;
         if ( key == Terminal::pageUp ) within_ -= page;
         if ( key == Terminal::pageDown ) within_ += page;
         if ( key == Terminal::top ) first_ = 0, within_ = 0;
         if ( key == Terminal::bottom ) first_ = kLast, within_ = 0;
      }
      wakeupTimeIs( clock()->now() );
   }

   struct Matching {
      Recent* recent;
      const Route* route;
   };
   struct Row {
      std::string text;
      bool marked;
   };

   void draw() {
      followVrfs();
      terminal_.begin();
      select();
      scroll();
      align();
      const Recent* headed = nullptr;
      for ( size_t i = first_; i < matching_.size() && !terminal_.full(); ++i ) {
         if ( std::exchange( headed, matching_[i].recent ) != matching_[i].recent )
            drawHeading( *headed, i != first_ );
         const std::vector<Row> rows = rowsOf( matching_[i] );
         // The route's first row stays visible above the rows that are not scrolled
         // away.
         terminal_.line( rows[0].text, rows[0].marked );
         for ( size_t k = 1 + ( i == first_ ? within_ : 0 ); k < rows.size(); ++k )
            terminal_.line( rows[k].text, rows[k].marked );
      }
      for ( const Recent* recent : without_ )
         drawHeading( *recent, headed != nullptr );
      terminal_.end( fmt::format(
         "q leaves, arrows move; route {} of {}; changes of the last {:.0f} s are "
         "marked",
         matching_.empty() ? 0 : first_ + 1, matching_.size(), kHighlight ) );
   }

   // Follows VRFs as they come and go.
   void followVrfs() {
      for ( auto& recent : recent_ ) {
         const Mirror& mirror = recent->mirror();
         if ( !mirror.removed() ) continue;
         recent.reset();
         mirrors_.drop( mirror );
      }
      mirrors_.rescan();
      std::vector<std::unique_ptr<Recent>> all;
      for ( const auto& mirror : mirrors_.all() ) {
         auto found = std::find_if(
            recent_.begin(), recent_.end(), [&]( const auto& recent ) {
               return recent != nullptr && &recent->mirror() == mirror.get();
            } );
         all.push_back( found != recent_.end() ? std::move( *found )
                                               : std::make_unique<Recent>(
                                                    *mirror, mirrors_.clock() ) );
      }
      recent_ = std::move( all );
   }

   // Selects the routes to show, and the mirrors without any.
   void select() {
      matching_.clear();
      without_.clear();
      for ( const auto& recent : recent_ ) {
         recent->update( clock()->now() );
         const auto routes = selectRoutes( recent->mirror(), filter_ );
         if ( routes.empty() ) without_.push_back( recent.get() );
         for ( const Route* route : routes )
            matching_.push_back( { recent.get(), route } );
         recent->matching = routes.size();
         recent->rps.emplace( recent->mirror() );
      }
   }

   // Moves from the row that keys led to, to its route.
   void scroll() {
      if ( matching_.empty() ) {
         first_ = 0, within_ = 0;
         return;
      }
      first_ = std::min( first_, matching_.size() - 1 );
      auto rows = [this] {
         return static_cast<int>( rowsOf( matching_[first_] ).size() );
      };
      for ( ; within_ < 0 && first_ > 0; within_ += rows() ) --first_;
      within_ = std::max( 0, within_ );
      for ( int here = rows(); within_ >= here; here = rows() ) {
         if ( first_ + 1 == matching_.size() ) {
            within_ = here - 1;
         } else {
            within_ -= here;
            ++first_;
         }
      }
   }

   // Sets the columns of the rows that may be visible, for each mirror.
   void align() {
      const auto begin = matching_.begin() + static_cast<ptrdiff_t>( first_ );
      const auto end =
         begin + std::min<ptrdiff_t>( terminal_.rows(), matching_.end() - begin );
      for ( const auto& recent : recent_ ) {
         std::vector<const Route*> routes;
         for ( auto each = begin; each != end; ++each )
            if ( each->recent == recent.get() ) routes.push_back( each->route );
         recent->columns = columnsFor( routes, filter_ );
      }
   }

   void drawHeading( const Recent& recent, bool apart ) {
      if ( apart ) terminal_.line( "", false );
      std::string heading = routesHeading( recent.mirror(), recent.matching );
      heading.pop_back();
      for ( const std::string& row : rowsOf(
               fmt::format( "{}, {:.1f} changes/s", heading, recent.rate() ) ) )
         terminal_.line( row, false );
   }

   // The rows that the line takes.
   std::vector<std::string> rowsOf( const std::string& line ) const {
      std::istringstream text( folded( line, terminal_.columns() ) );
      std::vector<std::string> rows;
      for ( std::string row; std::getline( text, row ); ) rows.push_back( row );
      return rows;
   }

   std::vector<Row> rowsOf( const Matching& matching ) {
      const double now = clock()->now();
      const Route& route = *matching.route;
      Recent& recent = *matching.recent;
      std::vector<Row> rows;
      auto add = [&]( std::string line, const RouteIntfKey& key ) {
         const std::string reason = recent.reason( key, reasons_ );
         line.erase( line.find_last_not_of( '\n' ) + 1 );
         if ( !reason.empty() ) line += "  (" + reason + ')';
         for ( std::string& row : rowsOf( line ) )
            rows.push_back( { std::move( row ), recent.changed( key ) } );
      };
      add( routeLine( route, recent.columns, now, recent.rps->startsHere( route ) ),
           { route.key(), {} } );
      for ( const Intf* intf : selectIntfs( route, filter_ ) )
         add( intfLine( *intf, recent.columns, now ),
              { route.key(), intf->intfId() } );
      return rows;
   }

   static constexpr size_t kLast = std::numeric_limits<size_t>::max();

   Mirrors& mirrors_;
   RouteFilter filter_;
   Reasons reasons_;
   std::vector<std::unique_ptr<Recent>> recent_;
   Terminal terminal_;
   Mox::Loop::FdWatcher keys_;
   // The present picture's.
   std::vector<Matching> matching_;
   std::vector<const Recent*> without_;
   size_t first_ = 0;  // the route at the top
   int within_ = 0;    // its rows that are scrolled away
};

}

void watchOnScreen( Mirrors& mirrors, const RouteFilter& filter,
                    const std::string& root ) {
   RouteScreen screen( mirrors, filter, root );
   mirrors.loop().run();
}

}
