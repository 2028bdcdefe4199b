// The agent is killed again and again, at any moment of its start, its reload and
// its work, while readers check all notifications.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <optional>
#include <thread>

#include "export/Status.h"
#include "platform/loop/TestClock.h"
#include "platform/mount/EntityManager.h"
#include "published/Status.h"
#include "tests/apps/process/Site.h"
#include "tests/apps/process/storm/Capture.h"

namespace Agent::Storm {
namespace {

using Clock = std::chrono::steady_clock;
using Timers = std::map<RouteIntfKey, Published::Downstream>;

// The tables' clock.
double now() {
   return std::chrono::duration<double>( Clock::now().time_since_epoch() ).count();
}

// The content of both families' tables.
struct Content {
   std::map<RouteKey, Sm::Brane::Route> routes;
   std::map<RouteIntfKey, Sm::Brane::Intf> intfs;

   // Without the states that a kill leaves half done: an interface without its
   // route, and a route that was about to go with its last interface. Also without
   // the forwarding engine's pending results of joins: of routes that come and go
   // the `forward` of their interfaces, and of all routes the upstream state, whose
   // change alone is not written.
   Content settled() const {
      Content out;
      for ( const auto& [key, record] : intfs ) {
         auto route = routes.find( key.routeKey );
         if ( route == routes.end() ) continue;
         out.routes.emplace( route->first, settled( route->second ) );
         out.intfs.emplace( key, settled( record ) );
      }
      return out;
   }
   static Sm::Brane::Route settled( Sm::Brane::Route route ) {
      route.upJoinState = Sm::upNotJoined;
      return route;
   }
   static Sm::Brane::Intf settled( Sm::Brane::Intf intf ) {
      if ( !isStanding( intf.key.routeKey ) ) intf.forward = false;
      return intf;
   }
   // With the one write that a kill may have stopped between the store that makes
   // it permanent and the one that shows it to readers: `next` contains it.
   Content withTheLastWriteOf( const Content& next ) const {
      Content out = *this;
      const Content taken = next.settled();
      for ( const auto& [key, record] : taken.routes ) {
         auto own = routes.find( key );
         if ( own != routes.end() &&
              textOf( settled( own->second ) ) == textOf( record ) )
            continue;
         out.routes[key] = record;
         return out;
      }
      for ( const auto& [key, record] : taken.intfs ) {
         auto own = intfs.find( key );
         if ( own != intfs.end() && settled( own->second ) == record ) continue;
         out.intfs[key] = record;
         return out;
      }
      return out;
   }
   std::set<std::string> texts( AddressFamily family ) const {
      std::set<std::string> out;
      for ( const auto& [key, record] : routes )
         if ( key.group.family() == family ) out.insert( textOf( record ) );
      for ( const auto& [key, record] : intfs ) {
         if ( key.routeKey.group.family() == family )
            out.insert( valueToStrep( record ) );
      }
      return out;
   }
   // When its join ends according to the last message.
   double joinEndOf( const RouteIntfKey& key ) const {
      auto found = intfs.find( key );
      const unsigned holdtime = holdtimeOf( numberOf( key.routeKey ) );
      if ( found == intfs.end() || holdtime == 0xffff ||
           found->second.joinState == Sm::Intf::noInfo )
         return std::numeric_limits<double>::infinity();
      return found->second.lastJoinReceived + holdtime;
   }
   // When the interface stops forwarding according to the messages. The timers are
   // no older than the states.
   double endOf( const RouteIntfKey& key, const Timers& timers ) const {
      double end = joinEndOf( key );
      if ( auto kept = timers.find( key ); kept != timers.end() ) {
         const Published::Downstream& timer = kept->second;
         if ( timer.prunePendingUntil != 0.0 )
            end = std::min( end, timer.prunePendingUntil );
         if ( timer.rptHoldtime != 0.0 )
            end = std::min( end, timer.rptPendingUntil );
      }
      const RouteIntfKey shared = sharedOf( key );
      return shared == key ? end : std::min( end, endOf( shared, timers ) );
   }
   static RouteIntfKey sharedOf( const RouteIntfKey& key ) {
      const Vantu::IpGenAddr& group = key.routeKey.group;
      return { { Vantu::IpGenAddr::unspecified( group.family() ), group },
               key.intfId };
   }
   bool joined( const RouteIntfKey& key ) const {
      auto found = intfs.find( key );
      return routes.count( key.routeKey ) != 0 && found != intfs.end() &&
             found->second.joinState != Sm::Intf::noInfo;
   }
   // Traffic of a source without a route follows the group's.
   bool forwards( const RouteIntfKey& key ) const {
      auto found =
         intfs.find( routes.count( key.routeKey ) != 0 ? key : sharedOf( key ) );
      return found != intfs.end() && found->second.forward;
   }
   size_t routesOf( AddressFamily family ) const {
      size_t count = 0;
      for ( const auto& [key, record] : routes )
         count += key.group.family() == family;
      return count;
   }
};

// The records that only one of the two contains.
std::string difference( const Content& before, const Content& after,
                        AddressFamily family ) {
   std::set<std::string> former = before.texts( family );
   std::set<std::string> latter = after.texts( family );
   std::string out;
   for ( const std::string& text : former )
      if ( latter.erase( text ) == 0 ) out += "- " + text + '\n';
   for ( const std::string& text : latter ) out += "+ " + text + '\n';
   return out;
}

// The tables as this process reads them, without a model.
class RawTables {
 public:
   explicit RawTables( const std::string& root )
      : manager_( clock_, nullptr, root ) {
      for ( AddressFamily family : families ) {
         tables_.push_back( Sm::Brane::Status::mountInDependencyOrder(
            manager_,
            Sm::Brane::Status::mountPath( family, L3::VrfName( "default" ) ),
            ::Brane::tableReader, nullptr ) );
         agent_.push_back( Published::FamilyStatus::mount(
            manager_,
            Published::FamilyStatus::mountPath( family, L3::VrfName( "default" ) ),
            ::Brane::tableReader ) );
      }
   }
   Timers timers() const {
      Timers out;
      for ( const auto& tables : agent_ ) {
         tables->downstream().visit( nullptr, [&]( const auto& record ) {
            out.emplace( record.key, record );
            return true;
         } );
      }
      return out;
   }
   // The number of changes in the tables.
   uint64_t changes() const {
      uint64_t sum = 0;
      for ( const auto& tables : tables_ ) {
         sum += tables->route().reader()->sequence() +
                tables->routeIntf().reader()->sequence();
      }
      return sum;
   }
   uint32_t capacity() const { return tables_[0]->route().reader()->capacity(); }
   // All records, verified and checked by the rule.
   Content content() const {
      Content out;
      for ( const auto& tables : tables_ ) {
         tables->route().visit( nullptr, [&]( const Sm::Brane::Route& record ) {
            EXPECT_TRUE( keepsRule( record ) ) << record;
            EXPECT_TRUE( out.routes.emplace( record.key, record ).second );
            return true;
         } );
         tables->routeIntf().visit( nullptr, [&]( const Sm::Brane::Intf& record ) {
            EXPECT_TRUE( keepsRule( record ) ) << record;
            EXPECT_TRUE( out.intfs.emplace( record.key, record ).second );
            return true;
         } );
         EXPECT_EQ( tables->route().reader()->counters().damaged, 0U );
         EXPECT_EQ( tables->routeIntf().reader()->counters().damaged, 0U );
      }
      return out;
   }

 private:
   Mox::TestClock clock_;
   Corvex::EntityManager manager_;
   std::vector<Mox::Ptr<Sm::Brane::Status>> tables_;
   std::vector<Mox::Ptr<Published::FamilyStatus>> agent_;
};

class Storm : public testing::Test {
 protected:
   static constexpr unsigned messages = 4000;  // of a link, after the first joins

   Storm() {
      std::cout << "PIMSM_SEED=" << seed << std::endl;
      config( 1000, 10000 );
      feed( false );
   }

   void feed( bool timed ) {
      read.clear();
      for ( unsigned interface : { 1, 2 } ) {
         std::string name = fmt::format( "eth{}", interface );
         read.push_back( "--read" );
         read.push_back(
            name + '=' +
            writeFile( site.root() + '/' + name + ".pcap",
                       Link( interface, messages, seed, timed ).file() ) );
      }
   }

   void config( unsigned maxRoutes, unsigned maxRouteIntfs ) {
      site.write( "agent.yaml", configText( maxRoutes, maxRouteIntfs ) );
   }
   // An agent that only reloads, and one that also replays.
   Program::Arguments quiet() const {
      return { PIMSM_AGENT, "--config", site.root() + "/agent.yaml", "--root",
               site.root() };
   }
   Program::Arguments busy() const {
      Program::Arguments out = quiet();
      out.insert( out.end(), read.begin(), read.end() );
      return out;
   }

   std::vector<std::string> routeTables() const {
      std::vector<std::string> out;
      for ( AddressFamily family : families ) {
         out.push_back(
            site.root() + '/' +
            Sm::Brane::Status::mountPath( family, L3::VrfName( "default" ) ) +
            "/route" );
      }
      return out;
   }

   unsigned pick( unsigned limit ) { return random() % limit; }

   void kill( Program& program ) {
      program.signal( SIGKILL );
      ASSERT_EQ( program.wait(), -SIGKILL ) << program.err();
      ++kills;
   }
   // Kills after some changes or, now and then, at any moment from the start on.
   void killSomewhere( Program& agent, uint64_t changesOfALife ) {
      if ( pick( 3 ) == 0 ) {
         for ( unsigned turns = pick( 60000 ); turns > 0; --turns )
            std::this_thread::yield();
         return kill( agent );
      }
      uint64_t until = tables->changes() + random() % changesOfALife;
      auto end = Clock::now() + Program::deadline;
      while ( tables->changes() < until && Clock::now() < end )
         std::this_thread::yield();
      kill( agent );
   }

   void startReaders() {
      for ( auto& reader : readers ) restart( reader );
   }
   void restart( std::optional<Program>& reader ) {
      reader.emplace( Program::Arguments{ PIMSM_CHECKING_READER, site.root() } );
      ASSERT_TRUE( reader->until(
         [&] { return reader->out().find( "ready\n" ) != std::string::npos; } ) )
         << reader->err();
   }
   // The reader's next answer.
   std::string ask( Program& reader ) {
      size_t before = reader.out().size();
      reader.signal( SIGUSR1 );
      EXPECT_TRUE( reader.until( [&] {
         return reader.out().size() > before && reader.out().back() == '\n';
      } ) )
         << reader.err();
      return reader.out().substr( before );
   }
   void expectReadersShow( const Content& content ) {
      std::string wanted = digestOf( content.texts( AddressFamily::ipv4 ) ) + ' ' +
                           digestOf( content.texts( AddressFamily::ipv6 ) ) + ';';
      for ( auto& reader : readers ) {
         std::string says;
         auto end = Clock::now() + Program::deadline;
         do {
            says = ask( *reader );
         } while ( says.rfind( wanted, 0 ) != 0 && Clock::now() < end );
         EXPECT_EQ( says.rfind( wanted, 0 ), 0U ) << says << "not " << wanted;
         EXPECT_NE( says.find( "; lost 0 broken 0 " ), std::string::npos ) << says;
      }
   }

   // Expects the same records, except for those that a kill leaves half done.
   void expectKept( const Content& left, const Content& now ) {
      const Content before = left.withTheLastWriteOf( now ).settled();
      for ( AddressFamily family : families ) {
         halfWritten += !difference( left.settled(), before, family ).empty();
         std::string differs = difference( before, now.settled(), family );
         EXPECT_TRUE( differs.empty() ) << differs.substr( 0, 4000 );
      }
   }
   // An agent reloads the tables: the tables, its model and the readers have the
   // same content.
   Content expectReloadKeeps( const Content& left ) {
      Program agent( quiet() );
      EXPECT_TRUE( agent.untilErr( "vrf default ipv6:" ) ) << agent.err();
      Content now = RawTables( site.root() ).content();
      expectKept( left, now );
      for ( AddressFamily family : families ) {
         std::string line =
            fmt::format( "vrf default {}: {} routes\n", valueToStrep( family ),
                         now.settled().routesOf( family ) );
         EXPECT_NE( agent.err().find( line ), std::string::npos )
            << agent.err() << "not " << line;
      }
      expectReadersShow( now );
      kill( agent );
      return now;
   }
   // Expects forwarding interfaces to forward until their time is up. Returns their
   // number.
   unsigned expectForwarding( const Content& left, const Timers& timers,
                              const Content& content, double at ) {
      unsigned forwarding = 0;
      for ( const auto& [key, intf] : left.intfs ) {
         // A record that a kill left half removed has no join any more.
         if ( !intf.forward || left.endOf( key, timers ) <= at ||
              !( left.joined( key ) || left.joined( Content::sharedOf( key ) ) ) )
            continue;
         EXPECT_TRUE( content.forwards( key ) ) << intf;
         ++forwarding;
      }
      return forwarding;
   }
   // Have all records gone whose time ran out before, or is pending?
   bool over( const Content& left, const Timers& timers ) const {
      for ( const auto& [key, timer] : tables->timers() ) {
         if ( timer.prunePendingUntil != 0.0 || timer.rptPendingUntil != 0.0 )
            return false;
         auto kept = timers.find( key );
         auto intf = left.intfs.find( key );
         if ( timer.joinHoldtime == 0.0 || kept == timers.end() ||
              intf == left.intfs.end() )
            continue;
         const double held = kept->second.joinHoldtime;
         if ( held != 0.0 && intf->second.lastJoinReceived + held < now() )
            return false;
      }
      return true;
   }
   void expectAllStand( const Content& content ) {
      for ( unsigned number = 0; number < standing; ++number ) {
         for ( bool ipv4 : { true, false } ) {
            RouteKey key = keyOf( ipv4, number );
            EXPECT_EQ( content.routes.count( key ), 1U ) << key;
            for ( unsigned i : { 1, 2 } ) {
               Vantu::IntfId intfId( fmt::format( "eth{}", i ) );
               EXPECT_EQ( content.intfs.count( { key, intfId } ),
                          isOn( number, i ) ? 1U : 0U )
                  << key << ' ' << intfId;
            }
         }
      }
   }

   // The first life, to its end: returns its published content and the number of
   // changes.
   uint64_t liveOnce() {
      Program agent( busy() );
      EXPECT_TRUE( agent.untilErr( "vrf default ipv6:" ) ) << agent.err();
      tables.emplace( site.root() );
      EXPECT_EQ( agent.err().find( "dropped" ), std::string::npos ) << agent.err();
      expectAllStand( tables->content() );
      kill( agent );
      return tables->changes();
   }

   const unsigned seed = std::getenv( "PIMSM_SEED" )
                            ? unsigned( std::atoi( std::getenv( "PIMSM_SEED" ) ) )
                            : std::random_device()();
   std::mt19937 random{ seed };
   unsigned kills = 0, halfWritten = 0;
   Site site;
   Program::Arguments read;
   std::optional<RawTables> tables;
   std::optional<Program> readers[3];
};

TEST_F( Storm, LosesNothingHoweverOftenTheAgentIsKilled ) {
   const unsigned wanted = std::getenv( "PIMSM_LONG" ) ? 200 : 15;
   startReaders();
   uint64_t changes = liveOnce();
   unsigned readersKilled = 0, reloads = 0;
   while ( kills < wanted && !HasFailure() ) {
      SCOPED_TRACE( fmt::format( "kill {}", kills ) );
      if ( pick( 4 ) == 0 ) {
         std::optional<Program>& reader = readers[pick( 3 )];
         {
            Program agent( busy() );
            reader->signal( SIGKILL );
            EXPECT_EQ( reader->wait(), -SIGKILL );
            restart( reader );
            kill( agent );
         }
         ++readersKilled;
      }
      {
         Program agent( busy() );
         killSomewhere( agent, changes );
      }
      Content left = tables->content();
      expectAllStand( left );
      if ( pick( 2 ) == 0 ) {  // the agent that reloads is killed as well
         Program agent( quiet() );
         killSomewhere( agent, 20 );
         expectKept( left, tables->content() );
      }
      expectAllStand( expectReloadKeeps( left ) );
      ++reloads;
   }
   std::cout << kills << " agents killed, " << readersKilled << " readers, "
             << reloads << " reloads compared, " << halfWritten
             << " with a write half done, " << tables->changes()
             << " changes; the readers: " << std::endl;
   for ( auto& reader : readers ) std::cout << "   " << ask( *reader );
}

TEST_F( Storm, NoInterfaceStopsForwardingByAKill ) {
   const unsigned wanted = std::getenv( "PIMSM_LONG" ) ? 200 : 12;
   feed( true );
   uint64_t changes = liveOnce();
   unsigned forwarding = 0, pending = 0;
   while ( !HasFailure() ) {
      SCOPED_TRACE( fmt::format( "kill {}", kills ) );
      const Content left = tables->content();
      const Timers timers = tables->timers();
      for ( const auto& [key, timer] : timers ) {
         pending +=
            timer.prunePendingUntil > now() || timer.rptPendingUntil > now();
      }
      Program next( quiet() );
      ASSERT_TRUE( next.untilErr( "vrf default ipv6:" ) ) << next.err();
      // In the end expired records go, and no others.
      const bool last = kills + 2 >= wanted;
      auto end = Clock::now() + Program::deadline;
      while ( last && !over( left, timers ) && Clock::now() < end )
         std::this_thread::yield();
      EXPECT_LT( Clock::now(), end );
      const Content content = tables->content();
      forwarding += expectForwarding( left, timers, content, now() );
      expectAllStand( content );
      kill( next );
      if ( last ) break;
      Program agent( busy() );
      killSomewhere( agent, changes );
   }
   EXPECT_GT( pending, 0U );
   std::cout << kills << " agents killed, " << forwarding
             << " interfaces seen forwarding on, " << pending
             << " prunes pending\n";
}

TEST_F( Storm, KeepsEveryRouteWhenItsLimitsChange ) {
   startReaders();
   liveOnce();
   Content left = tables->content();
   for ( unsigned limit : { 5000, 10, 600 } ) {
      SCOPED_TRACE( limit );
      config( limit, limit * 10 );
      {
         Program agent( quiet() );  // anywhere in making the new tables
         for ( unsigned turns = pick( 60000 ); turns > 0; --turns )
            std::this_thread::yield();
         kill( agent );
      }
      expectAllStand( expectReloadKeeps( left ) );
      auto routes = static_cast<unsigned>( left.routesOf( AddressFamily::ipv4 ) );
      EXPECT_EQ( RawTables( site.root() ).capacity(), std::max( limit, routes ) );
   }
}

// Tables left by another version of the agent, and by a reboot.
TEST_F( Storm, KeepsRoutesOverAnUpgradeButNotOverAReboot ) {
   startReaders();
   liveOnce();
   Content left = tables->content();
   setenv( "MOX_TRACE", "Pimsm::Table/0", 1 );
   auto leave = []( const std::string& path, ::Brane::Layout layout,
                    const ::Brane::WriterOptions& options ) {
      ::Brane::TableWriter( path, layout, 1000, options );
   };
   ::Brane::Layout layout = Sm::Brane::RouteTable::makeLayout();
   for ( ::Brane::Field& field : layout.fields ) {
      if ( field.name == "mbrIif" ) field.name = "borderIif";
   }
   for ( const std::string& path : routeTables() ) leave( path, layout, {} );
   {
      Program agent( quiet() );
      EXPECT_TRUE( agent.untilErr( "attachConverted" ) ) << agent.err();
      kill( agent );
   }
   expectAllStand( expectReloadKeeps( left ) );
   ::Brane::WriterOptions former;
   former.bootId = "the boot before";
   for ( const std::string& path : routeTables() )
      leave( path, Sm::Brane::RouteTable::makeLayout(), former );
   Program agent( quiet() );
   EXPECT_TRUE( agent.untilErr( "attachOtherBoot" ) ) << agent.err();
   EXPECT_TRUE( agent.untilErr( "vrf default ipv6: 0 routes" ) ) << agent.err();
   EXPECT_NE( agent.err().find( former.bootId ), std::string::npos ) << agent.err();
   unsetenv( "MOX_TRACE" );
   EXPECT_TRUE( RawTables( site.root() ).content().routes.empty() );
}

}
}
