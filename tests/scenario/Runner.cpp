#include "tests/scenario/Runner.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Scenario {
namespace {

// Seconds since the story began; "eth1 A joined".
using Change = std::pair<double, std::string>;

// The time of counts.
constexpr double kAtTheEnd = std::numeric_limits<double>::infinity();

double rounded( double time ) {
   return std::round( 100 * time ) / 100;
}

// A time is printed where it differs from the one before.
std::vector<std::string> texts( const std::vector<Change>& changes, double from ) {
   std::vector<std::string> out;
   for ( const auto& [time, what] : changes ) {
      const bool same = time == rounded( from ) || time == kAtTheEnd;
      out.push_back( same ? what : fmt::format( "{:g} s {}", time, what ) );
      from = time;
   }
   return out;
}

std::vector<Change> expectedChanges( const std::vector<std::string>& texts,
                                     double time ) {
   std::vector<Change> out;
   for ( const std::string& text : texts ) {
      const size_t unit = text.find( " s " );
      const bool timed = unit != std::string::npos &&
                         text.find_first_not_of( "0123456789." ) == unit;
      if ( timed ) time = std::stod( text );
      const bool count = text.rfind( "refused ", 0 ) == 0 ||
                         text.rfind( "dropped ", 0 ) == 0 ||
                         text.rfind( "counted ", 0 ) == 0;
      out.emplace_back( count ? kAtTheEnd : rounded( time ),
                        timed ? text.substr( unit + 3 ) : text );
   }
   return out;
}

class Run {
 public:
   Run( const Script& script, const Story& story )
      : script_( script ), story_( story ), world_( script ) {
      for ( const std::string& name : story.watched ) {
         if ( name == "events" ) {
            watchesEvents_ = true;
         } else if ( name == "sends" || name == "queries" ) {
            ( name == "sends" ? watchesSent_ : watchesQueries_ ) = true;
         } else {
            views_.push_back( { viewOf( name ), {} } );
         }
      }
   }

   Outcome outcome() {
      for ( const std::string& each : story_.preamble ) perform( each );
      changes_.clear();
      world_.takeSent();
      world_.takeEvents();
      world_.beginStory();
      for ( const Line& line : story_.lines ) {
         runLine( line );
         if ( !outcome_.missing.empty() ) break;
      }
      return std::move( outcome_ );
   }

 private:
   struct Seen {
      const View& view;
      Facts facts;
   };

   void runLine( const Line& line ) {
      const double from = world_.now();
      try {
         for ( const std::string& each : line.statements ) perform( each );
      } catch ( const std::exception& error ) {
         return fail( line, error.what() );
      }
      if ( !outcome_.missing.empty() ) return;
      const bool ends = story_.isCase && !script_.speaks;
      if ( ends ) waitToTheEnd( line );
      if ( ends && world_.over() && world_.runs() &&
           world_.router().model().route().size() != 0 )
         fail( line, "routes are left that nothing will ever end" );
      noteCounts();
      std::vector<Change> expected = expectedChanges( line.expected, from );
      std::vector<Change> came = std::exchange( changes_, {} );
      std::stable_sort( expected.begin(), expected.end() );
      std::stable_sort( came.begin(), came.end() );
      if ( came == expected ) return;
      fail( line, fmt::format( "expected  {}\ncame      {}",
                               fmt::join( texts( expected, from ), "; " ),
                               fmt::join( texts( came, from ), "; " ) ) );
   }

   void waitToTheEnd( const Line& line ) {
      wait( world_.now() + 1.37 );  // not at the moment of a change
      if ( world_.runs() && world_.router().adopted() )
         if ( const std::string route = world_.unpublished(); !route.empty() )
            fail( line, "the tables do not hold what the model does: " + route );
      // Longer than any hold time.
      wait( world_.now() + 100000 );
   }

   void perform( const std::string& statement ) {
      auto defined = script_.defined.find( statement );
      if ( defined != script_.defined.end() ) {
         for ( const std::string& each : defined->second ) perform( each );
         return;
      }
      if ( auto until = world_.pause( statement ) ) return wait( *until );
      const bool asks = statement.rfind( "why ", 0 ) == 0 ||
                        statement.rfind( "verdict ", 0 ) == 0 ||
                        statement.rfind( "chain ", 0 ) == 0;
      if ( statement == "check" ) {
         for ( std::string& finding : world_.check() )
            changes_.emplace_back( rounded( world_.now() ), std::move( finding ) );
      } else if ( asks ) {
         changes_.emplace_back( rounded( world_.now() ), world_.why( statement ) );
      } else if ( statement.rfind( "replay ", 0 ) != 0 ) {
         world_.act( statement );
      } else if ( !world_.replay( statement, [this] { look(); } ) ) {
         outcome_.missing = statement;
      }
      look();
   }

   void wait( double until ) {
      world_.runUntil( until, [this] { look(); } );
   }

   void look() {
      for ( const auto& [time, text] : world_.takeSent() ) {
         const bool query = text.find( " query " ) != std::string::npos;
         if ( query ? watchesQueries_ : watchesSent_ )
            changes_.emplace_back( rounded( time ), "sends " + text );
      }
      for ( const auto& [time, text] : world_.takeEvents() )
         if ( watchesEvents_ )
            changes_.emplace_back( rounded( time ), "event " + text );
      if ( !world_.runs() ) return;
      for ( Seen& seen : views_ ) {
         if ( seen.view.whenGone == nullptr ) continue;
         Facts facts =
            seen.view.facts( world_.router(), world_.counters(), world_.names() );
         for ( const auto& [subject, text] : seen.facts ) {
            if ( facts.count( subject ) == 0 ) note( subject, seen.view.whenGone );
         }
         for ( const auto& [subject, text] : facts ) {
            auto before = seen.facts.find( subject );
            if ( before == seen.facts.end() || before->second != text )
               note( subject, text );
         }
         seen.facts = std::move( facts );
      }
   }

   void noteCounts() {
      for ( Seen& seen : views_ ) {
         if ( seen.view.whenGone != nullptr ) continue;
         Facts counts =
            seen.view.facts( world_.router(), world_.counters(), world_.names() );
         for ( const auto& [subject, text] : counts ) {
            if ( seen.facts[subject] != text )
               changes_.emplace_back( kAtTheEnd, subject + ' ' + text );
         }
         seen.facts = std::move( counts );
      }
   }

   void note( const std::string& subject, const std::string& text ) {
      changes_.emplace_back( rounded( world_.now() ), subject + ' ' + text );
   }

   void fail( const Line& line, const std::string& what ) {
      outcome_.failures.push_back(
         fmt::format( "{}:{}: {}\n{}\n{}", script_.path, line.number, story_.title,
                      fmt::join( line.statements, "; " ), what ) );
   }

   const Script& script_;
   const Story& story_;
   World world_;
   std::vector<Seen> views_;
   bool watchesSent_ = false;
   bool watchesQueries_ = false;
   bool watchesEvents_ = false;
   std::vector<Change> changes_;
   Outcome outcome_;
};

}

Outcome run( const Script& script, const Story& story ) {
   return Run( script, story ).outcome();
}

}
