// Routers on a LAN through hours of trouble: messages get lost, routers restart with their
// tables or without, paths and DRs change, hosts and sources come and go. Left alone they
// must settle: a link has each packet once that somebody there wants, and no other; in the
// end nothing is left. PIMSM_LONG: a day.
//
//    sources -- 0 -- core -- 1, 2, 3 -- lan -- 4 -- edge
//
// Router 0 is the RP, too. 1 to 3 reach it by the core or by each other, 4 by one of them.
// Hosts are on the lan and the edge.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "apps/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "published/MfibStatus.h"
#include "tests/router/Events.h"
#include "tests/scenario/SentText.h"
#include "tests/scenario/View.h"
#include "tests/support/Seed.h"
#include "tests/support/TempRoot.h"

namespace Router {
namespace {

using Routing::Pim::RouteKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

enum Link : unsigned { sourceLink, core, lan, edge };
const IntfId kNames[] = { IntfId( "source" ), IntfId( "core" ), IntfId( "lan" ),
                          IntfId( "edge" ) };
constexpr unsigned kRouters = 5, kLeaf = 4, kNobody = 99;
const std::set<Link> kLinksOf[kRouters] = { { sourceLink, core },
                                            { core, lan },
                                            { core, lan },
                                            { core, lan },
                                            { lan, edge } };

struct Node {
   std::unique_ptr<VrfRouter> router = nullptr;  // null: down
   VrfConfig config = {};
   std::array<unsigned, 3> via = {
      0, 0, 0 };  // to the RP and the sources; 0: by the core
   unsigned drPriority = 1, metric = 20;
   Mox::Ptr<Published::MfibStatus> kernel = nullptr;
   std::optional<Test::States> states =
      {};                              // at the last look; none since its start
   std::set<std::string> events = {};  // since then
};

struct Host {
   Link link;
   uint8_t version;                             // of IGMP; MLD's is one less
   std::map<IpGenAddr, IpGenAddr> wanted = {};  // by group a source, or all
};

class Network {
 public:
   Network( Vantu::AddressFamily family, unsigned seed )
      : family_( family ), random_( seed ) {
      for ( unsigned i : { 1, 2 } )
         sources_.push_back( address( sourceLink, 50 + i, false ) );
      groups_ = { IpGenAddr( ipv4_ ? "233.252.0.1" : "ff0e::1" ),
                  IpGenAddr( ipv4_ ? "233.252.0.2" : "ff0e::2" ),
                  IpGenAddr( ipv4_ ? "232.0.0.1" : "ff3e::1" ) };
      nodes_[kLeaf].via = { 1, 1, 1 };
      for ( unsigned i = 0; i < kRouters; ++i ) {
         const L3::VrfName name( fmt::format( "R{}", i ) );
         nodes_[i].kernel = Published::MfibStatus::mount(
            kernelSide_, Published::MfibStatus::mountPath( family_, name ),
            Brane::tableWriter, 100 );
         start( i );
      }
      in( 1.0, [this] { second(); } );
   }

   double now() const { return clock_.now(); }
   unsigned oneOf( unsigned count ) { return unsigned( random_() % count ); }
   double within( double most ) {
      return most * std::uniform_real_distribution<>()( random_ );
   }

   void runFor( double seconds ) {
      const double end = now() + seconds;
      while ( true ) {
         const double next =
            std::min( clock_.nextWakeup(), agenda_.begin()->first );
         if ( next > end ) return clock_.runUntil( end );
         clock_.runUntil( std::max( next, now() ) );
         while ( agenda_.begin()->first <= now() )
            agenda_.extract( agenda_.begin() ).mapped()();
         kernelSide_.dispatch();
         manager_.dispatch();
         for ( Node& node : nodes_ )
            if ( node.router != nullptr ) node.router->handleTurnEnd();
      }
   }

   void trouble() {
      const IpGenAddr source = sources_[oneOf( 2 )], group = groups_[oneOf( 3 )];
      const unsigned what = oneOf( 6 );
      if ( what == 0 ) return restart( oneOf( kRouters ) );
      if ( what == 1 ) return reroute( 1 + oneOf( kRouters - 1 ) );
      if ( what == 2 ) loss_ = within( 0.4 );
      if ( what == 3 &&
           ( oneOf( 3 ) != 0 || sending_.erase( { source, group } ) == 0 ) )
         sending_.insert( { source, group } );
      if ( what <= 3 ) return;
      Host& host = hosts_[oneOf( 4 )];
      const bool one =
         group == groups_.back() || ( host.version == 3 && oneOf( 2 ) == 0 );
      if ( oneOf( 2 ) == 0 ) return want( host, group, std::nullopt );
      if ( !one ) want( host, group, IpGenAddr::unspecified( family_ ) );
      if ( one && host.version == 3 ) want( host, group, source );
   }
   void leaveAlone() { loss_ = 0.0; }
   void leaveAll() {
      for ( Host& host : hosts_ )
         for ( const IpGenAddr& group : groups_ ) want( host, group, std::nullopt );
      sending_.clear();
   }

   // What is wrong on the links in this second.
   std::string wrongPackets() {
      std::string out;
      for ( const RouteKey& flow : sending_ ) {
         std::set<Link> wanted;
         for ( const Host& host : hosts_ ) {
            const auto found = host.wanted.find( flow.group );
            const bool here =
               found != host.wanted.end() &&
               ( found->second.isUnspecified() || found->second == flow.source );
            if ( here ) wanted.merge( std::set<Link>{ core, lan, host.link } );
         }
         for ( Link link : { core, lan, edge } )
            if ( copies_[{ flow, link }] != wanted.count( link ) )
               out += fmt::format( "{} of {} on {}\n", copies_[{ flow, link }],
                                   names_.of( flow ), kNames[link].name() );
      }
      return out;
   }
   // The changes since the last look that had no event.
   std::string untold() {
      std::string out;
      for ( Node& node : nodes_ ) {
         const auto events = std::exchange( node.events, {} );
         if ( node.router == nullptr ) continue;
         Test::States now = Test::statesOf( *node.router, names_ );
         if ( node.states )
            for ( const auto& each : Test::untold( *node.states, now, events ) )
               out += fmt::format( "{}: {}\n", &node - nodes_, each );
         node.states = std::move( now );
      }
      return out;
   }
   std::string leftover() const {
      std::string out;
      for ( const Node& node : nodes_ )
         for ( const auto& route : node.router->model().route() )
            out += names_.of( route.key() ) + " is left\n";
      return out;
   }
   // What happened in the last while, and what the routers hold now.
   std::string story() const {
      std::string out = fmt::format( "{}{} s\n", story_, now() );
      for ( unsigned i = 0; i < kRouters; ++i ) {
         for ( const char* name :
               { "routes", "downstream", "members", "asserts", "upstream" } )
            for ( const auto& [what, how] : Scenario::viewOf( name ).facts(
                     *nodes_[i].router, counters_, names_ ) )
               out += fmt::format( "{}: {} {}\n", i, what, how );
      }
      return out;
   }

 private:
   std::string text( unsigned link, unsigned number, bool local = true ) const {
      if ( ipv4_ ) return fmt::format( "10.0.{}.{}", link, number + 1 );
      return fmt::format( "{}::{}:{}", local ? "fe80" : "2001:db8", link,
                          number + 1 );
   }
   IpGenAddr address( unsigned link, unsigned number, bool local = true ) const {
      return IpGenAddr( text( link, number, local ) );
   }
   void in( double seconds, std::function<void()> what ) {
      agenda_.emplace( now() + seconds, std::move( what ) );
   }
   void note( const std::string& what ) {
      constexpr size_t kMost = 100000;
      story_ += fmt::format( "{:.3f} {}\n", now(), what );
      if ( story_.size() > kMost ) story_.erase( 0, kMost / 2 );
   }

   // ---- routers

   VrfConfig config( unsigned number ) const {
      const Node& node = nodes_[number];
      std::string out = fmt::format(
         "vrfs:\n- name: R{}\n  rps: [{{address: '{}'}}]\n  interfaces:\n", number,
         text( sourceLink, 0, false ) );
      for ( Link link : kLinksOf[number] )
         out += fmt::format(
            "  - {{name: {0}, dr-priority: {1}, addresses: ['{2}/{4}', "
            "'{3}/{4}']}}\n",
            kNames[link].name(), node.drPriority, text( link, number ),
            text( link, number + ( ipv4_ ? 100 : 0 ), false ), ipv4_ ? 24 : 112 );
      if ( number != 0 ) out += "  rpf-routes:\n";
      for ( unsigned i = 0; number != 0 && i < node.via.size(); ++i ) {
         const Link link = node.via[i] == 0 ? core : lan;
         out += fmt::format(
            "  - {{prefix: '{}/{}', interface: {}, neighbor: '{}', preference: "
            "110, metric: {}}}\n",
            text( sourceLink, i == 0 ? 0 : 50 + i, false ), ipv4_ ? 32 : 128,
            kNames[link].name(), text( link, node.via[i] ), node.metric );
      }
      return Agent::parseConfig( out, "test" ).vrfs[0];
   }

   void start( unsigned number ) {
      Node& node = nodes_[number];
      const auto send = [this, number]( const Outgoing& message ) {
         say( number, message );
         return true;
      };
      node.config = config( number );
      node.router = std::make_unique<VrfRouter>(
         manager_, clock_, family_, node.config, counters_,
         VrfRouterOptions{ {},
                           100,
                           100,
                           nullptr,
                           { send, [this] { return within( 1.0 ); } },
                           [this, &node]( const Published::Event& event ) {
                              node.events.insert(
                                 Scenario::eventText( event, names_ ) );
                           } } );
      node.states.reset();
      while ( !node.router->ready() ) clock_.runPass();
      node.router->adopt();
   }

   // With its tables, or without, which may be by intent.
   void restart( unsigned number ) {
      Node& node = nodes_[number];
      if ( node.router == nullptr ) return;
      const unsigned kind = oneOf( 3 );
      const double pause = oneOf( 2 ) == 0 ? 0.01 : within( 20.0 );
      note( fmt::format( "{} stops ({}) for {:.3f} s", number, kind, pause ) );
      if ( kind == 2 ) node.router->sayGoodbye();
      if ( kind != 0 ) node.router->retire();
      node.router.reset();
      in( pause, [this, number] { start( number ); } );
   }

   // Never in a circle: who is reached by the lan reaches others by the core.
   void reroute( unsigned number ) {
      Node& node = nodes_[number];
      for ( unsigned i = 0; i < node.via.size(); ++i ) {
         const unsigned next = 1 + oneOf( 3 );
         const bool used =
            std::any_of( nodes_ + 1, nodes_ + kLeaf,
                         [&]( auto& other ) { return other.via[i] == number; } );
         const bool direct = number != kLeaf &&
                             ( next == number || used || nodes_[next].via[i] != 0 );
         if ( oneOf( 2 ) == 0 ) node.via[i] = direct ? 0 : next;
      }
      node.drPriority = 1 + oneOf( 3 );
      node.metric = 10 + oneOf( 2 );
      note( fmt::format( "{} goes by {}, {}, {}; metric {}, dr {}", number,
                         node.via[0], node.via[1], node.via[2], node.metric,
                         node.drPriority ) );
      if ( node.router != nullptr )
         node.router->configIs( node.config = config( number ) );
   }

   // ---- messages

   void say( unsigned sender, Outgoing message ) {
      message = Scenario::throughTheWire( message );
      note( fmt::format( "{}: {}", sender,
                         Scenario::sentText( message, names_, [this]( auto& ) {
                            return address( sourceLink, 0, false );
                         } ) ) );
      in( 0.001, [this, sender, message] { arrive( sender, message ); } );
   }
   // Hosts answer a query with what they want by then.
   void arrive( unsigned sender, const Outgoing& message ) {
      const auto link =
         Link( std::find( kNames, std::end( kNames ), message.intfId ) - kNames );
      auto lost = [this] { return within( 1.0 ) < loss_; };
      for ( unsigned i = 0; i < kRouters; ++i ) {
         VrfRouter* router = nodes_[i].router.get();
         if ( i == sender || router == nullptr || kLinksOf[i].count( link ) == 0 ||
              lost() )
            continue;
         router->receive( message.intfId,
                          { message.source, message.destination, 0, 1, {}, true },
                          message.message );
      }
      const auto* membership = std::get_if<MembershipMessage>( &message.message );
      if ( membership == nullptr ||
           !std::holds_alternative<MembershipQuery>( *membership ) )
         return;
      const auto& query = std::get<MembershipQuery>( *membership );
      for ( Host& host : hosts_ ) {
         if ( host.link != link || lost() ) continue;
         for ( const IpGenAddr& group : groups_ ) {
            if ( !query.group.isUnspecified() && query.group != group ) continue;
            in( within( query.maxResponse ), [this, &host, group] {
               if ( host.wanted.count( group ) != 0 ) report( host, group, false );
            } );
         }
      }
   }

   void report( const Host& host, const IpGenAddr& group, bool change ) {
      MembershipRecord record{ change ? toInclude : isInclude, group, {} };
      const auto found = host.wanted.find( group );
      const bool any = found != host.wanted.end();
      if ( any && !found->second.isUnspecified() ) {
         record.sources = { found->second };
      } else if ( any ) {
         record.type = change && host.version == 3 ? toExclude : isExclude;
         // Of one who never sends.
         if ( host.version == 3 )
            record.sources = { address( sourceLink, 70, false ) };
      }
      const auto number = unsigned( &host - hosts_ );
      say( kNobody,
           { kNames[host.link], address( host.link, 60 + number ),
             IpGenAddr( ipv4_ ? "224.0.0.22" : "ff02::16" ),
             MembershipMessage( MembershipReport{ host.version, { record } } ) } );
   }

   // Nothing: the group is left.
   void want( Host& host, const IpGenAddr& group,
              std::optional<IpGenAddr> source ) {
      if ( host.wanted.erase( group ) == 0 && !source ) return;
      if ( source ) host.wanted[group] = *source;
      note( fmt::format( "host on {} wants {} of {}", kNames[host.link].name(),
                         source ? names_.of( *source ) : "nothing",
                         names_.of( group ) ) );
      report( host, group, true );
      in( within( 1.0 ), [this, &host, group] { report( host, group, true ); } );
   }

   // ---- the kernels' forwarding; that of a router that is down rests

   const Routing::Pim::SparseMode::Route* entry( const Node& node,
                                                 const RouteKey& flow ) const {
      if ( node.router == nullptr ) return nullptr;
      const auto& model = node.router->model();
      const auto* route = model.route( flow );
      if ( route == nullptr )
         route = model.route(
            RouteKey{ IpGenAddr::unspecified( family_ ), flow.group } );
      return route == nullptr || route->incomingIntf().empty() ? nullptr : route;
   }

   // A (*,G) entry is found by its interfaces only.
   void forward( unsigned number, Link link, const RouteKey& flow, unsigned ttl ) {
      const Node& node = nodes_[number];
      const auto* route = entry( node, flow );
      auto leaves = [&]( Link by ) {
         const auto* intf =
            route == nullptr ? nullptr : route->routeIntf( kNames[by] );
         return intf != nullptr && intf->forward();
      };
      const bool right = route != nullptr && route->incomingIntf() == kNames[link];
      if ( !right ) {
         const bool wrong =
            route != nullptr && ( !route->wildCard() || leaves( link ) );
         return node.kernel->upcallIs(
            { { flow, kNames[link] },
              wrong ? Published::wrongVifUpcall : Published::noCacheUpcall,
              1,
              now() } );
      }
      for ( const RouteKey& key : { flow, route->key() } ) {
         Published::MfibCache cache;
         node.kernel->cache().find( key, cache );
         node.kernel->cacheIs(
            { key, cache.packets + 1, cache.bytes + 100, 0, now() } );
      }
      for ( Link next : kLinksOf[number] )
         if ( next != link && leaves( next ) ) flood( next, number, flow, ttl );
   }
   void flood( Link link, unsigned sender, const RouteKey& flow, unsigned ttl ) {
      ++copies_[{ flow, link }];
      for ( unsigned i = 0; ttl > 0 && i < kRouters; ++i )
         if ( i != sender && kLinksOf[i].count( link ) != 0 )
            forward( i, link, flow, ttl - 1 );
   }

   // Each source sends a packet a second.
   void second() {
      copies_.clear();
      for ( const RouteKey& flow : sending_ ) flood( sourceLink, kNobody, flow, 8 );
      for ( const Node& node : nodes_ ) {
         for ( const RouteKey& key : node.kernel->cache().keys() )
            if ( entry( node, key ) == nullptr ) node.kernel->cacheDel( key );
      }
      in( 1.0, [this] { second(); } );
   }

   const Vantu::AddressFamily family_;
   const bool ipv4_ = family_ == Vantu::AddressFamily::ipv4;
   std::mt19937 random_;
   Mox::Test::TempRoot root_;
   Mox::TestClock clock_{ 100.0 };
   Corvex::EntityManager manager_{ clock_, nullptr, root_.path() };
   Corvex::EntityManager kernelSide_{ clock_, nullptr, root_.path() };
   RouterCounters counters_;
   std::multimap<double, std::function<void()>> agenda_;
   Node nodes_[kRouters];
   Host hosts_[4] = { { lan, 3 }, { lan, 3 }, { lan, 2 }, { edge, 3 } };
   std::vector<IpGenAddr> sources_, groups_;  // the last group is source-specific
   std::set<RouteKey> sending_;
   double loss_ = 0.0;
   std::map<std::pair<RouteKey, Link>, size_t> copies_;  // in this second
   const std::map<std::string, std::string> noNames_;
   const Scenario::Names names_{ noNames_ };
   std::string story_;
};

// Of what a lost message leaves, a host's silent leave lives longest: 260 s. A querier that
// is gone is replaced after 255 s, and its hosts answer within 10 s. Then a lost assert may
// end, 180 s after the last, and joins follow within a refresh: 60 s. In the end, 210 s of
// a source's keepalive follow a join's 210 s.
void run( Vantu::AddressFamily family ) {
   constexpr double kHour = 3600.0, kSettled = 265.0 + 180.0 + 60.0,
                    kOver = 210.0 + 210.0;
   const double end = std::getenv( "PIMSM_LONG" ) != nullptr
                         ? 24 * kHour
                         : kHour * Mox::Test::stepsOf( 40 ) / 10;
   Network network( family, Mox::Test::seedOf() );
   while ( network.now() < end ) {
      for ( unsigned left = 10 + network.oneOf( 40 ); left > 0; --left ) {
         network.runFor( network.within( 20.0 ) );
         ASSERT_EQ( network.untold(), "" ) << network.story();
         network.trouble();
      }
      network.leaveAlone();
      network.runFor( kSettled );
      for ( unsigned i = 0; i < 5; ++i ) {
         network.runFor( 1.0 );
         ASSERT_EQ( network.wrongPackets(), "" ) << network.story();
      }
      if ( network.oneOf( 2 ) == 0 ) continue;
      network.leaveAll();
      network.runFor( kOver );
      ASSERT_EQ( network.leftover(), "" ) << network.story();
   }
}

TEST( LanTest, SettlesIpv4 ) {
   run( Vantu::AddressFamily::ipv4 );
}
TEST( LanTest, SettlesIpv6 ) {
   run( Vantu::AddressFamily::ipv6 );
}

}
}
