#include "engine/JoinPruneEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "apps/config/ConfigReader.h"
#include "tests/engine/ScriptRun.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

// Short names, in messages as in states.
const std::pair<std::string, std::string> kNames[] = { { "*", "198.51.100.1" },
                                                       { "G1", "233.252.0.1" },
                                                       { "G2", "233.252.0.2" },
                                                       { "S1", "192.0.2.7" },
                                                       { "S2", "192.0.2.8" } };

Vantu::IpGenAddr address( const std::string& word ) {
   for ( const auto& [name, text] : kNames ) {
      if ( word == name ) return addr( text );
   }
   return addr( word );
}
std::string nameOf( const Vantu::IpGenAddr& address ) {
   if ( address.isUnspecified() ) return "*";
   for ( const auto& [name, text] : kNames ) {
      if ( address == addr( text ) ) return name;
   }
   return valueToStrep( address );
}

// "+*", "-S1=R", "S1/31": the RP has its flags, lengths are whole where nothing is said.
EncodedSource encoded( std::string word ) {
   auto cut = [&]( char mark, std::string otherwise ) {
      size_t at = word.find( mark );
      if ( at == std::string::npos ) return otherwise;
      std::string out = word.substr( at + 1 );
      word.erase( at );
      return out;
   };
   std::string flags = cut( '=', word == "*" ? "WR" : "" );
   std::string length = cut( '/', "" );
   EncodedSource out;
   out.address = address( word );
   out.maskLength = Vantu::addressBits( out.address.family() );
   if ( !length.empty() ) out.maskLength = std::stoi( length );
   out.wildcard = flags.find( 'W' ) != std::string::npos;
   out.rpt = flags.find( 'R' ) != std::string::npos;
   return out;
}

// eth0 upstream with the way to everything, eth1 and eth2 downstream; one RP, for
// 233.0.0.0/8 only.
const char* const kConfig =
   "vrfs:\n"
   "- name: default\n"
   "  interfaces:\n"
   "  - {name: eth0}\n"
   "  - {name: eth1, addresses: [203.0.113.1/24]}\n"
   "  - {name: eth2}\n"
   "  rpf-routes:\n"
   "  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 192.0.2.254, preference: "
   "110, metric: 20}\n"
   "  rps: [{address: 198.51.100.1, groups: [233.0.0.0/8]}]\n";

struct Router {
   // "eth2 @50 G1 +S1 -S2=R G2 +*": groups, each with its joins and prunes. On eth1 and
   // for ever, of G1, where nothing else is said.
   void receive( const ScriptWords& words ) {
      PimJoinPrune message;
      message.holdtime = 0xffff;
      const char* intf = "eth1";
      for ( const std::string& word : words ) {
         if ( word == "eth2" ) {
            intf = "eth2";
         } else if ( word[0] == '@' ) {
            message.holdtime = std::stoi( word.substr( 1 ) );
         } else if ( word[0] == '+' || word[0] == '-' ) {
            if ( message.groups.empty() )
               message.groups.push_back( { address( "G1" ), 32, {}, {} } );
            JoinPruneGroup& group = message.groups.back();
            ( word[0] == '+' ? group.joins : group.prunes )
               .push_back( encoded( word.substr( 1 ) ) );
         } else {
            EncodedSource group = encoded( word );
            message.groups.push_back( { group.address, group.maskLength, {}, {} } );
         }
      }
      engine.receive( intfId( intf ), neighbors, message );
   }
   void act( const ScriptWords& words ) {
      if ( words[0] != "others" ) return receive( words );
      // Prunes wait 3 s for them to override.
      PimHello hello;
      hello.holdtime = 0xffff;
      for ( const char* other : { "203.0.113.2", "203.0.113.3" } )
         neighbors.receiveHello( addr( other ), hello );
   }
   std::string play( const std::string& script ) {
      return playScript( clock, script, *this );
   }
   // "* in; S1 in? eth2 out; S1 G2 out?": joined, pruned from the shared tree, and whether
   // a prune is pending. eth1 and G1 go without saying.
   std::string state() const {
      std::set<std::string> lines;
      for ( const Route& route : std::as_const( *model ).route() ) {
         std::string intfs;
         for ( const char* name : { "eth1", "eth2" } )
            if ( const Intf* intf = route.routeIntf( intfId( name ) ) )
               intfs += wordsOf( *intf );
         std::string key = nameOf( route.key().source );
         if ( route.key().group != address( "G1" ) )
            key += ' ' + nameOf( route.key().group );
         lines.insert( key + intfs );
      }
      return lines.empty() ? "-" : fmt::format( "{}", fmt::join( lines, "; " ) );
   }
   static std::string wordsOf( const Intf& intf ) {
      static const std::map<Intf::JoinState, const char*> kJoin = {
         { Intf::noInfo, "" },
         { Intf::joined, " in" },
         { Intf::prunePending, " in?" } };
      static const std::map<Intf::RptState, const char*> kPrune = {
         { Intf::rptNoInfo, "" },
         { Intf::rptPruned, " out" },
         { Intf::rptPrunePending, " out?" } };
      std::string out =
         std::string( kJoin.at( intf.joinState() ) ) + kPrune.at( intf.rptState() );
      if ( intf.intfId() != intfId( "eth1" ) ) return " eth2" + out;
      return out.empty() ? " bare" : out;
   }
   // It must be there.
   const Route& route( const std::string& source, const std::string& group ) const {
      Vantu::IpGenAddr of =
         source == "*" ? anySource( address( group ) ) : address( source );
      const Route* found =
         std::as_const( *model ).route( { of, address( group ) } );
      if ( found == nullptr ) throw std::runtime_error( "no route" );
      return *found;
   }

   Mox::TestClock clock;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model =
      Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   VrfConfig config = Agent::parseConfig( kConfig, "test" ).vrfs[0];
   Topology topology{ config };
   Routes routes{ model, clock, topology, nullptr };
   RouterCounters counters;
   Neighbors neighbors{ clock, addr( "203.0.113.1" ), 1 };
   JoinPruneEngine engine{ routes, clock, topology, nullptr, counters };
};

// RFC 7761, figures 1 to 3, state by event; what a timer does later shows which timers
// the event set.
const ScriptRow kFigures[] = {
   { "0 @210 +S1", "0 S1 in, 210 -" },
   { "0 -S1, 1 +S1=R", "" },
   { "0 @0 +S1", "0 S1 in, 0 -" },
   { "0 @210 +S1, 100 @210 +S1", "0 S1 in, 310 -" },
   { "0 @210 +S1, 100 @50 +S1", "0 S1 in, 210 -" },
   { "0 +S1, 100 @210 +S1", "0 S1 in" },
   { "0 @210 +S1, 100 +S1", "0 S1 in" },
   { "0 @210 +S1, 10 -S1", "0 S1 in, 10 -" },
   { "0 +S1, 1 -S1, 2 @5 +S1", "0 S1 in, 1 -, 2 S1 in, 7 -" },
   { "0 others, 0 @210 +S1, 10 -S1, 12 -S1", "0 S1 in, 10 S1 in?, 13 -" },
   { "0 others, 0 @11 +S1, 10 -S1", "0 S1 in, 10 S1 in?, 11 -" },
   { "0 others, 0 @210 +S1, 10 -S1, 12 @210 +S1",
     "0 S1 in, 10 S1 in?, 12 S1 in, 222 -" },
   { "0 others, 0 @210 +S1, 10 -S1, 12 @5 +S1",
     "0 S1 in, 10 S1 in?, 12 S1 in, 210 -" },
   { "0 others, 0 +S1, 10 -S1, 11 +S1, 12 -S1",
     "0 S1 in, 10 S1 in?, 11 S1 in, 12 S1 in?, 15 -" },

   { "0 @210 -S1=R", "0 S1 out, 210 -" },
   { "0 @0 -S1=R", "0 S1 out, 0 -" },
   { "0 @210 -S1=R, 9 @210 -S1=R", "0 S1 out, 219 -" },
   { "0 @210 -S1=R, 9 @50 -S1=R", "0 S1 out, 210 -" },
   { "0 -S1=R, 1 +S1=R, 2 @5 -S1=R", "0 S1 out, 1 -, 2 S1 out, 7 -" },
   { "0 -S1=R, 9 +*", "0 S1 out, 9 * in" },
   { "0 -S1=R, 9 +* +S1=R", "0 S1 out, 9 * in" },
   { "0 @210 -S1=R, 9 @210 +* -S1=R", "0 S1 out, 9 * in; S1 out, 219 -" },
   { "0 @210 -S1=R, 9 @50 +* -S1=R", "0 S1 out, 9 * in; S1 out, 59 S1 out, 210 -" },
   { "0 others, 0 @210 -S1=R, 1 @300 -S1=R", "0 S1 out?, 3 S1 out, 210 -" },
   { "0 others, 0 @2 -S1=R", "0 S1 out?, 2 -" },
   { "0 others, 0 -S1=R, 1 +*", "0 S1 out?, 1 * in" },
   { "0 others, 0 -S1=R, 1 +* +S1=R", "0 S1 out?, 1 * in" },
   { "0 others, 0 @210 -S1=R, 1 @210 +* -S1=R",
     "0 S1 out?, 1 * in; S1 out?, 3 * in; S1 out, 211 -" },
   { "0 others, 0 @210 -S1=R, 1 @50 +* -S1=R",
     "0 S1 out?, 1 * in; S1 out?, 3 * in; S1 out, 51 S1 out, 210 -" },
   { "0 others, 0 -S1=R, 1 +S1=R, 2 @10 -S1=R",
     "0 S1 out?, 1 -, 2 S1 out?, 5 S1 out, 12 -" },
};

// Entries, groups and interfaces that have to do with each other, or not.
const ScriptRow kMessages[] = {
   { "0 +* +S1, 1 -S2=R", "0 * in; S1 in, 1 * in; S1 in; S2 out" },
   // A (*,G) prune counts whatever RP it names.
   { "0 +*, 1 -198.51.100.2=WR", "0 * in, 1 -" },
   // A message that both joins and prunes the same thing: its joins come first.
   { "0 -S1 +S1", "" },
   // Its end is the end of the message, not of the group's entries.
   { "0 -S1=R -S2=R, 1 +* G2 +* G1 -S1=R",
     "0 S1 out; S2 out, 1 * G2 in; * in; S1 out" },
   // Of another group or interface; the record that was pruned inherits from the group.
   { "0 -S1=R -S2=R G2 -S1=R, 0 eth2 -S1=R, 1 +* -S2=R",
     "0 S1 G2 out; S1 out; S2 out, 0 S1 G2 out; S1 out eth2 out; S2 out, "
     "1 * in; S1 G2 out; S1 bare eth2 out; S2 out" },
   { "0 @100 +S1, 0 eth2 -S1, 0 eth2 @50 +S1",
     "0 S1 in, 0 S1 in eth2 in, 50 S1 in, 100 -" },
   { "0 @50 +S1, 0 @100 -S1=R", "0 S1 in, 0 S1 in out, 50 S1 out, 100 -" },
};

// Beside each refused entry stands a good one, which counts.
struct RefusedRow {
   const char* script;
   const char* history;
   const char* refused;
};
const RefusedRow kRefused[] = {
   { "0 S1 +S1 G1 +S1", "0 S1 in", "notMulticast 1" },
   { "0 224.0.0.251 +S1 224.0.1.0 +S1", "0 S1 224.0.1.0 in", "linkLocalGroup 1" },
   { "0 G1/24 +S1 G2 +S1/31 +S1 -S2/8", "0 S1 G2 in", "partialMask 3" },
   { "0 +0.0.0.0 -G2=R +S1", "0 S1 in", "badSource 2" },
   { "0 +*=W +S1", "0 S1 in", "badFlags 1" },
   // Nor does a refused (*,G) join touch what the sender prunes.
   { "0 -S1=R, 1 +198.51.100.2=WR", "0 S1 out", "rpMismatch 1" },
   { "0 ff0e::1 +2001:db8::1=WR ff02::1 +2001:db8::7 ff0e::2 +::", "0 * ff0e::1 in",
     "linkLocalGroup 1, badSource 1" },
};

TEST( JoinPrune, FollowsTheFiguresAndKeepsEntriesApart ) {
   for ( const auto& [script, history] : kFigures )
      EXPECT_EQ( Router().play( script ), history ) << script;
   for ( const auto& [script, history] : kMessages )
      EXPECT_EQ( Router().play( script ), history ) << script;
   for ( const RefusedRow& row : kRefused ) {
      Router router;
      EXPECT_EQ( router.play( row.script ), row.history ) << row.script;
      EXPECT_EQ( router.counters.text(), std::string( "refused: " ) + row.refused );
   }
}

TEST( JoinPrune, FillsInWhatTheRouteIs ) {
   Router router;
   router.receive( { "@50", "G1", "+*", "+S1", "+203.0.113.77", "-S1=R",
                     "239.1.1.1", "+203.0.113.9=WR", "ff0e::1", "+2001:db8::7" } );
   const Route& wc = router.route( "*", "G1" );
   EXPECT_TRUE( wc.initialized() && wc.wildCard() && wc.rpTree() && !wc.spTree() );
   EXPECT_EQ( wc.creationTime(), router.clock.now() );
   EXPECT_EQ( wc.umh()->rp(), address( "*" ) );
   EXPECT_EQ( wc.rpf(), rpfBy( "eth0" ) );
   EXPECT_FALSE( wc.rpfAttached() );
   const Route& sg = router.route( "S1", "G1" );
   EXPECT_TRUE( sg.initialized() && sg.spTree() && !sg.rpTree() && !sg.wildCard() );
   EXPECT_EQ( sg.rpf(), rpfBy( "eth0" ) );
   const Intf& intf = *sg.routeIntf( intfId( "eth1" ) );
   EXPECT_TRUE( intf.initialized() );
   EXPECT_EQ( intf.lastJoinReceived(), router.clock.now() );
   EXPECT_EQ( intf.lastRptPruneReceived(), router.clock.now() );
   const Route& onLink = router.route( "203.0.113.77", "G1" );
   EXPECT_TRUE( onLink.rpfAttached() );
   EXPECT_EQ( onLink.rpf(), rpfBy( "eth1", "203.0.113.77", 0, 0 ) );
   const Route& learned = router.route( "*", "239.1.1.1" );
   EXPECT_EQ( learned.umh()->rp(), addr( "203.0.113.9" ) ) << "none is configured";
   EXPECT_EQ( router.route( "2001:db8::7", "ff0e::1" ).rpf(), Routing::Pim::Rpf() )
      << "no IPv6 route is configured";
   // A source tree no more where only the prune is left of it.
   router.receive( { "G1", "-S1=R" } );
   router.clock.runUntil( router.clock.now() + 50 );
   EXPECT_TRUE( router.route( "S1", "G1" ).rpTree() && !sg.spTree() );
}

// A prune whose pending time is not known counts for nothing, for nothing must stop
// forwarding by a restart. The configuration may have changed while no agent ran.
TEST( JoinPrune, TakesUpWhatWasReloaded ) {
   Router router;
   Vrf vrf( router.model );
   vrf.wc( "233.252.0.1" ).rpTree().intf( "eth1" ).joined();
   auto sg = vrf.sg( "192.0.2.7", "233.252.0.1" ).spTree();
   sg.intf( "eth1" ).prunePending()->lastJoinReceivedIs( 77 );
   sg.intf( "eth2" ).rptState( Intf::rptPruneTemp );
   auto pruned = vrf.sg( "192.0.2.8", "233.252.0.1" );
   pruned.intf( "eth1" ).rptState( Intf::rptPrunePendingTemp );
   pruned.intf( "eth2" ).rptState( Intf::rptPrunePending );
   pruned.intf( "eth2" )->lastRptPruneReceivedIs( router.clock.now() - 1 );
   // Learned from a join: the tables do not hold its RP, its path stays.
   vrf.wc( "239.1.1.1" ).rpTree().rpf( "eth2" ).intf( "eth1" ).joined();
   // A process that dies between two writes leaves records without state, and
   // nobody else would ever remove them.
   vrf.wc( "233.252.0.2" ).rpTree();
   vrf.sg( "192.0.2.7", "233.252.0.2" ).spTree().intf( "eth1" );
   vrf.sg( "192.0.2.8", "233.252.0.2" ).spTree().intf( "eth1" );
   vrf.sg( "192.0.2.8", "233.252.0.2" ).intf( "eth2" ).joined();
   router.routes.adopt();
   router.engine.adopt( [&]( const auto& key ) {
      Published::Downstream kept{ key };
      if ( key == Routing::Pim::RouteIntfKey{ pruned->key(), intfId( "eth2" ) } ) {
         kept.rptHoldtime = 51;
         kept.rptPendingUntil = router.clock.now() + 2;
      }
      return kept;
   } );
   EXPECT_EQ( router.state(),
              "* 239.1.1.1 in; * in; S1 in eth2 out; "
              "S2 G2 eth2 in; S2 bare eth2 out?" );
   EXPECT_EQ( sg.intf( "eth1" )->lastJoinReceived(), 77 ) << "none was received";
   EXPECT_EQ( router.route( "S1", "G1" ).rpf(), rpfBy( "eth0" ) );
   EXPECT_EQ( router.route( "*", "G1" ).umh()->rp(), address( "*" ) );
   EXPECT_EQ( router.route( "*", "239.1.1.1" ).rpf(), rpfBy( "eth2" ) );
   EXPECT_EQ( router.play( "100 @210 G1 +* -S2=R" ),
              "2 * 239.1.1.1 in; * in; S1 in eth2 out; S2 G2 eth2 in; "
              "S2 bare eth2 out, "
              "50 * 239.1.1.1 in; * in; S1 in eth2 out; S2 G2 eth2 in, "
              "100 * 239.1.1.1 in; * in; S1 in eth2 out; S2 G2 eth2 in; S2 out, "
              "210 * in; S2 out, 310 -" );
}

}
}
