// What a router's joins upstream take: 10,000 (S,G) of as many groups, joined through one
// neighbour, which is a router as well, for an hour of injected time.
//
//    messages    a refresh period, and their bytes
//    processor   of the sender's and the receiver's work for a refresh
//    kept        the fewest routes that the neighbour had joined at the end of any second
//
// Prints one line a figure. `bench_upstream <routes>`.

#include <fmt/format.h>

#include <cstdlib>
#include <deque>
#include <filesystem>

#include "packet/Encode.h"
#include "platform/loop/TestClock.h"
#include "router/VrfRouter.h"

namespace Router {
namespace {

constexpr double kPeriod = 60.0, kHour = 3600.0;  // s

Vantu::IpGenAddr address( const std::string& text ) {
   return Vantu::IpGenAddr( Mox::StringView( text ) );
}

double processorTime() {
   timespec t;
   clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &t );
   return static_cast<double>( t.tv_sec ) + 1e-9 * static_cast<double>( t.tv_nsec );
}

// A router with "up", where its next hop is, and "down".
class Site {
 public:
   Site( Mox::TestClock& clock, const std::string& root, unsigned place,
         unsigned routes )
      : clock_( clock ), manager_( clock, nullptr, root ), up_( place ) {
      config_.name = L3::VrfName( "bench" );
      for ( const char* name : { "up", "down" } ) {
         InterfaceConfig& interface = config_.interfaces.emplace_back();
         interface.name = Vantu::IntfId( name );
         const auto own = this->own( name == std::string_view( "up" ) );
         interface.addresses = { { own, Vantu::IpGenPrefix( own, 24 ) } };
      }
      config_.rpfRoutes.push_back(
         { Vantu::IpGenPrefix( "0.0.0.0/0" ), Vantu::IntfId( "up" ),
           address( fmt::format( "10.0.{}.2", place ) ) } );
      const Speech speech{ [this]( const Outgoing& message ) {
                             sent.push_back( message );
                             return true;
                          },
                           [] { return 0.5; } };
      router_ = std::make_unique<VrfRouter>(
         manager_, clock, Vantu::AddressFamily::ipv4, config_, counters_,
         VrfRouterOptions{ {}, routes, 2 * routes, nullptr, speech } );
      while ( !router_->ready() ) clock_.runPass();
      router_->adopt();
      turn();
   }
   void turn() {
      manager_.dispatch();
      router_->handleTurnEnd();
   }
   void receive( const char* intf, const Outgoing& from,
                 const std::vector<uint8_t>& bytes ) {
      IpPacket packet{ from.source, from.destination, pimProtocol, 1, bytes };
      Message message;
      if ( decodeMessage( packet, message ) != notDropped ) std::abort();
      router_->receive( Vantu::IntfId( intf ), packet, message );
   }
   // Its address on the link up, or down.
   Vantu::IpGenAddr own( bool up ) const {
      return address( up ? fmt::format( "10.0.{}.1", up_ )
                         : fmt::format( "10.0.{}.2", up_ + 1 ) );
   }
   size_t joined() const {
      size_t count = 0;
      for ( const auto& route : router_->model().route() )
         count += route.upJoinState() == Routing::Pim::SparseMode::upJoined;
      return count;
   }

   std::deque<Outgoing> sent;

 private:
   Mox::TestClock& clock_;
   Corvex::EntityManager manager_;
   unsigned up_;
   RouterCounters counters_;
   VrfConfig config_;
   std::unique_ptr<VrfRouter> router_;
};

PimJoinPrune joinsOf( const Vantu::IpGenAddr& to, unsigned first, unsigned count ) {
   PimJoinPrune message{ to, 0xffff, {} };
   for ( unsigned i = first; i < first + count; ++i ) {
      JoinPruneGroup group;
      group.address = address(
         fmt::format( "239.{}.{}.{}", i / 62500, i / 250 % 250, i % 250 ) );
      group.joins = { { .address = address( fmt::format(
                           "198.18.{}.{}", i / 250 % 250, i % 250 ) ) } };
      message.groups.push_back( group );
   }
   return message;
}

Outgoing pim( const Vantu::IpGenAddr& from, PimMessage message ) {
   return { {}, from, address( "224.0.0.13" ), std::move( message ) };
}

void deliver( Site& to, const char* intf, const Outgoing& message ) {
   to.receive( intf, message,
               encodePim( std::get<PimMessage>( message.message ), message.source,
                          message.destination ) );
}

int run( unsigned routes ) {
   Mox::TestClock clock;
   std::string root = "/dev/shm/pimsm-bench-XXXXXX";
   if ( mkdtemp( root.data() ) == nullptr ) return 1;
   Site low( clock, root + "/low", 1, routes ),
      high( clock, root + "/high", 0, routes );
   // Everybody who asks, and the next hop of the upper one, is a neighbour for ever.
   PimHello hello;
   hello.holdtime = 0xffff;
   const auto host = address( "10.0.2.1" ), top = address( "10.0.0.2" );
   deliver( low, "down", pim( host, pimMessage( hello ) ) );
   deliver( high, "up", pim( top, pimMessage( hello ) ) );
   size_t messages = 0, bytes = 0, kept = routes;
   double sender = 0.0, receiver = 0.0;
   auto pass = [&] {
      for ( ; !low.sent.empty(); low.sent.pop_front() ) {
         const Outgoing& message = low.sent.front();
         const auto* body = std::get_if<PimMessage>( &message.message );
         if ( message.intfId != Vantu::IntfId( "up" ) || body == nullptr ) continue;
         double began = processorTime();
         const auto packet =
            encodePim( *body, message.source, message.destination );
         sender += processorTime() - began;
         if ( std::holds_alternative<PimJoinPrune>( body->body ) ) {
            ++messages;
            bytes += packet.size() + 20;
         }
         began = processorTime();
         high.receive( "down", message, packet );
         high.turn();
         receiver += processorTime() - began;
      }
      for ( ; !high.sent.empty(); high.sent.pop_front() ) {
         const Outgoing& message = high.sent.front();
         const auto* body = std::get_if<PimMessage>( &message.message );
         if ( message.intfId == Vantu::IntfId( "down" ) && body != nullptr &&
              std::holds_alternative<PimHello>( body->body ) )
            deliver( low, "up", message );
      }
   };
   auto second = [&] {
      const double until = clock.now() + 1.0;
      while ( clock.nextWakeup() <= until ) {
         const double began = processorTime();
         clock.runUntil( clock.nextWakeup() );
         low.turn();
         sender += processorTime() - began;
         high.turn();
         pass();
      }
      clock.runUntil( until );
   };
   for ( int i = 0; i < 10; ++i ) second();  // hellos
   constexpr unsigned kGroups = 60;
   for ( unsigned first = 0; first < routes; first += kGroups )
      deliver( low, "down",
               pim( host, pimMessage(
                             joinsOf( low.own( false ), first,
                                      std::min( kGroups, routes - first ) ) ) ) );
   for ( int i = 0; i < 120; ++i ) second();
   messages = bytes = 0;
   sender = receiver = 0.0;
   for ( double over = 0.0; over < kHour; over += 1.0 ) {
      second();
      kept = std::min( kept, high.joined() );
   }
   const double refreshes = kHour / kPeriod;
   fmt::print( "{} (S,G) through one neighbour, an hour of injected time\n",
               routes );
   fmt::print( "messages a refresh    {:.1f}, {:.0f} bytes\n",
               static_cast<double>( messages ) / refreshes,
               static_cast<double>( bytes ) / refreshes );
   fmt::print( "sender a refresh      {:.2f} ms of processor\n",
               1e3 * sender / refreshes );
   fmt::print( "receiver a refresh    {:.2f} ms of processor\n",
               1e3 * receiver / refreshes );
   fmt::print( "kept at any time      {} of {}\n", kept, routes );
   std::filesystem::remove_all( root );
   return kept == routes ? 0 : 1;
}

}
}

int main( int argc, char** argv ) {
   return Router::run( argc > 1 ? static_cast<unsigned>( std::atoi( argv[1] ) )
                                : 10000 );
}
