// Random messages, times and kills: every change of a router's states has its event,
// but for what changed over a kill.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/scenario/World.h"
#include "tests/support/Seed.h"

namespace Scenario {
namespace {

using namespace Routing::Pim::SparseMode;

// Each state by what it is of, and the events that may announce it.
using States = std::map<std::string, std::string>;

States statesOf( const World& world ) {
   States out;
   for ( const Route& route : world.router().model().route() ) {
      const std::string key = world.names().of( route.key() );
      out[key + " route"] = "there";
      out[key + " rpf"] = valueToStrep( route.rpf() );
      out[key + " onS"] = route.spTree() ? "source" : "";
      out[key + " source"] = route.katExpired() ? "" : "sends";
      for ( const Intf& intf : route.routeIntf() ) {
         const std::string at = std::string( intf.intfId().name() ) + ' ' + key;
         out[at + " join"] = intf.joinState() == Intf::noInfo
                                ? ""
                                : valueToStrep( intf.joinState() );
         out[at + " rptPrune"] = intf.rptState() == Intf::rptNoInfo ? "" : "pruned";
         out[at + " member"] = intf.localReceiverInclude()   ? "in"
                               : intf.localReceiverExclude() ? "out"
                                                             : "";
         out[at + " assert"] = intf.assertInfo().assertState == assertNoInfo
                                  ? ""
                                  : valueToStrep( intf.assertInfo().assertState ) +
                                       valueToStrep( intf.assertWinner() );
         out[at + " forward"] = intf.forward() ? "yes" : "";
      }
   }
   return out;
}

bool isOfRecord( const std::string& state ) {
   return state.substr( 0, 3 ) == "eth";
}

bool anyOf( const std::set<std::string>& events, const std::string& prefix ) {
   const auto found = events.lower_bound( prefix );
   return found != events.end() && found->substr( 0, prefix.size() ) == prefix;
}

// What was changed without an event of that name, such as "eth1 A join".
std::set<std::string> untold( const States& before, const States& after,
                              const std::set<std::string>& events ) {
   std::set<std::string> out;
   const auto valueIn = []( const States& states, const std::string& of ) {
      const auto found = states.find( of );
      return found == states.end() ? "" : found->second;
   };
   States all = before;
   all.insert( after.begin(), after.end() );
   for ( const auto& [of, ignored] : all ) {
      if ( valueIn( before, of ) == valueIn( after, of ) ) continue;
      // A route's other values come and go with it, and a record's forwarding.
      const std::string key = of.substr( 0, of.rfind( ' ' ) );
      const bool gone = after.count( of ) == 0;
      const bool ofRoute = !isOfRecord( of ) && of != key + " route";
      const bool came = before.count( key + " route" ) == 0;
      if ( ( ofRoute && ( gone || came ) && of != key + " source" ) ||
           ( gone && of == key + " forward" ) || ( gone && of == key + " source" ) )
         continue;
      // What went and came again between two looks is told as that.
      const std::string again =
         of == key + " forward" ? key + ' ' : key + " routeGone";
      if ( !anyOf( events, of ) && !anyOf( events, again ) )
         out.insert( of + ": " + valueIn( before, of ) + " -> " +
                     valueIn( after, of ) );
   }
   return out;
}

TEST( Events, EveryChangeHasOne ) {
   Script script;
   script.speaks = true;
   script.config = R"(
  maxRoutes: 40
  maxRouteIntfs: 200
  interfaces:
  - {name: eth0, hello-interval: 18000, addresses: [10.1.0.1/24]}
  - {name: eth1, hello-interval: 18000, addresses: [192.0.2.1/24]}
  - {name: eth2, hello-interval: 18000, addresses: [203.0.113.1/24]}
  rpf-routes:
  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 10.1.0.9}
  - {prefix: 10.8.0.0/16, interface: eth2, neighbor: 203.0.113.9}
  rps: [{address: 198.51.100.1}]
)";
   script.variants["moved"] = {
      "0.0.0.0/0, interface: eth0, neighbor: 10.1.0.9",
      "0.0.0.0/0, interface: eth2, neighbor: 203.0.113.9" };
   script.names = { { "A", "(10.8.0.7,233.252.0.1)" },
                    { "B", "(192.0.2.7,233.252.0.1)" },
                    { "*", "(*,233.252.0.1)" },
                    { "C", "(10.9.0.7,232.1.1.1)" },
                    { "G", "233.252.0.1" } };
   const std::vector<std::string> kSenders[] = { { "10.1.0.9", "10.1.0.8" },
                                                 { "192.0.2.8", "192.0.2.9" },
                                                 { "203.0.113.9", "203.0.113.8" } };
   std::mt19937 random( Mox::Test::seedOf() );
   const auto one = [&]( const auto& from ) {
      return from[random() % std::size( from )];
   };
   // R: some route; the sender comes last.
   const char* const kSaid[] = { "hello hold 105",
                                 "hello generation 9 hold 105",
                                 "hello hold 0",
                                 "join R hold 30",
                                 "join R hold 210",
                                 "prune R",
                                 "join *, prune A rpt",
                                 "prune A rpt",
                                 "is-ex G",
                                 "is-in G 10.8.0.7",
                                 "to-in G",
                                 "is-in 232.1.1.1 10.9.0.7",
                                 "to-ex G 10.8.0.7",
                                 "assert R 10/10",
                                 "assert R infinite",
                                 "assert * rpt 0/0" };
   const char* const kRoutes[] = { "A", "B", "*", "C" };
   size_t kills = 0, told = 0;
   World world( script );
   world.act( "use eth1 from 192.0.2.8" );
   States before = statesOf( world );
   for ( int step = 0; step < 4000; ++step ) {
      std::string statement;
      const unsigned link = random() % 3;
      const unsigned what = random() % 20;
      if ( what < 14 ) {
         std::string said = one( kSaid );
         if ( const size_t at = said.find( 'R' ); at != std::string::npos )
            said.replace( at, 1, one( kRoutes ) );
         statement =
            fmt::format( "eth{}: {} from {}", link, said, one( kSenders[link] ) );
      } else if ( what < 16 ) {
         statement =
            fmt::format( "kernel {} {} on eth{}", random() % 2 ? "packet" : "wrong",
                         one( kRoutes ), link );
      } else if ( what == 16 ) {
         statement = random() % 2 ? "config moved" : "config";
      } else if ( what == 17 && step % 2 == 0 ) {
         statement = "restart";
         ++kills;
      }
      std::set<std::string> events;
      const auto look = [&] {
         for ( const auto& [time, event] : world.takeEvents() )
            events.insert( event );
      };
      try {
         if ( statement.empty() ) {
            world.runUntil( world.now() + static_cast<double>( random() % 40 ),
                            look );
         } else {
            world.act( statement );
            // Forwarding follows within a turn.
            world.runUntil( world.now() + 0.01, look );
         }
      } catch ( const std::exception& error ) {
         FAIL() << statement << ": " << error.what();
      }
      look();
      told += events.size();
      const States after = statesOf( world );
      if ( statement != "restart" ) {
         const auto missing = untold( before, after, events );
         ASSERT_TRUE( missing.empty() )
            << step << ": " << statement << ": " << *missing.begin();
      }
      before = after;
   }
   EXPECT_GT( kills, 50u );
   EXPECT_GT( told, 1000u );
}

}
}
