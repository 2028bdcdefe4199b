// What the agent's engines take: joins for 10,000 (S,G) on 60 interfaces, as frames.
//
//    packets    a second, from the frame to the record's state, in turns of 10 ms as the
//               agent takes them, forwarding and publishing between; the peer is the
//               same packets decoded only
//    published  from the last packet to the last write of the tables
//
// Once with a join a packet, once with 30. Prints one line a figure.
// `bench_agent <routes> <interfaces> <rounds>`.

#include <fmt/format.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "apps/agent/FamilyInstance.h"
#include "platform/loop/Loop.h"
#include "platform/loop/RealClock.h"
#include "published/EventLog.h"

namespace Agent {
namespace {

using Frame = std::vector<uint8_t>;

void append( Frame& out, std::initializer_list<unsigned> bytes ) {
   for ( unsigned byte : bytes ) out.push_back( static_cast<uint8_t>( byte ) );
}

void append( Frame& out, const Vantu::IpGenAddr& address ) {
   out.insert( out.end(), address.bytes().begin(), address.bytes().begin() + 4 );
}

void fillChecksum( Frame& frame, size_t message ) {
   uint64_t sum = 0;
   for ( size_t i = message; i < frame.size(); i += 2 )
      sum += static_cast<uint64_t>( frame[i] ) << 8 |
             ( i + 1 < frame.size() ? frame[i + 1] : 0U );
   while ( sum > 0xffff ) sum = ( sum & 0xffff ) + ( sum >> 16 );
   frame[message + 2] = static_cast<uint8_t>( ~sum >> 8 );
   frame[message + 3] = static_cast<uint8_t>( ~sum );
}

struct Site {
   unsigned routes = 10000;
   unsigned intfs = 60;
   unsigned rounds = 3;

   Vantu::IpGenAddr own( unsigned intf ) const {
      return Vantu::IpGenAddr( fmt::format( "10.1.{}.1", intf ) );
   }
   Vantu::IntfId name( unsigned intf ) const {
      return Vantu::IntfId( fmt::format( "eth{}", intf ) );
   }
   VrfConfig config() const {
      VrfConfig out;
      out.name = L3::VrfName( "bench" );
      out.requireHello = false;
      out.maxRoutes = routes;
      out.maxRouteIntfs = routes * intfs;
      for ( unsigned i = 1; i <= intfs; ++i ) {
         InterfaceConfig& interface = out.interfaces.emplace_back();
         interface.name = name( i );
         interface.addresses = { { own( i ), Vantu::IpGenPrefix( own( i ), 24 ) } };
      }
      out.rpfRoutes.push_back( { Vantu::IpGenPrefix( "0.0.0.0/0" ),
                                 Vantu::IntfId( "eth1" ),
                                 Vantu::IpGenAddr( "10.1.1.2" ) } );
      return out;
   }
   // Joins of the routes from `first` on, sent by a neighbour on the interface.
   Frame frame( unsigned intf, unsigned first, unsigned count ) const {
      Frame out( 12 );
      append( out, { 8, 0, 0x45, 0, 0, 0, 0, 0, 0, 0, 1, 103, 0, 0 } );
      append( out, { 10, 1, intf, 2, 224, 0, 0, 13 } );
      const size_t message = out.size();
      append( out, { 0x23, 0, 0, 0, 1, 0 } );
      append( out, own( intf ) );
      append( out, { 0, count, 0, 210 } );
      for ( unsigned i = first; i < first + count; ++i ) {
         const unsigned low = i % 250 + 1, middle = i / 250 % 250, high = i / 62500;
         append( out, { 1, 0, 0, 32, 239, 1 + high, middle, low, 0, 1, 0, 0 } );
         append( out, { 1, 0, 4, 32, 198, 18 + high, middle, low } );
      }
      fillChecksum( out, message );
      const size_t length = out.size() - 14;
      out[16] = static_cast<uint8_t>( length >> 8 );
      out[17] = static_cast<uint8_t>( length );
      return out;
   }
};

double wall() {
   timespec t;
   clock_gettime( CLOCK_MONOTONIC, &t );
   return static_cast<double>( t.tv_sec ) + 1e-9 * static_cast<double>( t.tv_nsec );
}

struct Figures {
   double packets = 0.0;    // per second
   double decoded = 0.0;    // per second
   double published = 0.0;  // s after the last packet
   double slice = 0.0;      // s, the longest turn
   double bytes = 0.0;      // of the heap, an interface of a route
};

bool decode( const Frame& frame, IpPacket& packet, Message& message ) {
   return decodeFrame( LinkType::ethernet, frame, packet ) == notDropped &&
          decodeMessage( packet, message ) == notDropped;
}

Figures measure( const Site& site, unsigned joins, bool logs ) {
   struct Arrival {
      Vantu::IntfId intfId;
      Frame frame;
   };
   std::vector<Arrival> arrivals;
   for ( unsigned first = 0; first < site.routes; first += joins ) {
      unsigned count = std::min( joins, site.routes - first );
      for ( unsigned intf = 1; intf <= site.intfs; ++intf )
         arrivals.push_back(
            { site.name( intf ), site.frame( intf, first, count ) } );
   }
   Figures out;
   double began = wall();
   for ( const Arrival& arrival : arrivals ) {
      IpPacket packet;
      Message message;
      if ( !decode( arrival.frame, packet, message ) ) std::abort();
   }
   out.decoded = static_cast<double>( arrivals.size() ) / ( wall() - began );

   std::string root = "/dev/shm/bench-agent-" + std::to_string( getpid() );
   std::filesystem::create_directory( root );
   {
      Mox::Loop loop;
      Mox::RealClock real( loop );
      AgentClock clock( real );
      RouterCounters counters;
      Corvex::EntityManager manager( real, &loop, root );
      std::optional<Published::EventLog> log;
      Journal::Sink events;
      if ( logs ) {
         log.emplace( manager, Published::agentLog, clock );
         events = [&log]( const Published::Event& event ) { log->add( event ); };
      }
      FamilyInstance family( Vantu::AddressFamily::ipv4, site.config(), manager,
                             real, clock, counters, nullptr, nullptr, events );
      while ( !family.router().ready() ) loop.dispatch();
      family.router().adopt();
      Mox::Loop::TurnEnd turnEnd( loop, [&] {
         family.router().handleTurnEnd();
         if ( log ) log->flush();
      } );
      size_t next = 0;
      double last = 0.0;
      std::function<void()> take = [&] {
         double end = wall() + 0.01;
         while ( next < arrivals.size() && wall() < end ) {
            IpPacket packet;
            Message message;
            if ( !decode( arrivals[next].frame, packet, message ) ) std::abort();
            family.router().receive( arrivals[next].intfId, packet, message );
            ++next;
         }
         if ( next < arrivals.size() ) return loop.post( take );
         last = wall();
      };
      const size_t before = mallinfo2().uordblks;
      began = wall();
      loop.post( take );
      while ( last == 0.0 || !family.router().published() ) {
         double turn = wall();
         loop.dispatch();
         out.slice = std::max( out.slice, wall() - turn );
      }
      out.bytes = static_cast<double>( mallinfo2().uordblks - before ) /
                  ( site.routes * site.intfs );
      out.published = wall() - last;
      out.packets = static_cast<double>( arrivals.size() ) / ( last - began );
      if ( family.router().writer().tables()->routeIntf().size() !=
           site.routes * site.intfs )
         std::abort();
   }
   std::filesystem::remove_all( root );
   return out;
}

double median( std::vector<double> values ) {
   std::sort( values.begin(), values.end() );
   return values[values.size() / 2];
}

// With the event log and without it, in turns.
void report( const Site& site, unsigned joins ) {
   std::vector<double> packets, ratios, published, slices, bytes, costs;
   for ( unsigned round = 0; round < site.rounds; ++round ) {
      const Figures silent = measure( site, joins, false );
      const Figures figures = measure( site, joins, true );
      costs.push_back( ( 1 / figures.packets - 1 / silent.packets ) / joins * 1e9 );
      packets.push_back( figures.packets );
      ratios.push_back( figures.decoded / figures.packets );
      published.push_back( figures.published );
      slices.push_back( figures.slice );
      bytes.push_back( figures.bytes );
   }
   fmt::print(
      "{:>2} joins a packet: {:.0f} packets/s, {:.0f} joins/s, {:.1f} x "
      "decoding alone; published {:.2f} s after the last; longest turn "
      "{:.1f} ms; {:.0f} bytes an interface; the event log costs {:.0f} ns a "
      "join\n",
      joins, median( packets ), median( packets ) * joins, median( ratios ),
      median( published ), median( slices ) * 1e3, median( bytes ),
      median( costs ) );
}

}
}

int main( int argc, char** argv ) {
   Agent::Site site;
   if ( argc > 1 ) site.routes = static_cast<unsigned>( std::atoi( argv[1] ) );
   if ( argc > 2 ) site.intfs = static_cast<unsigned>( std::atoi( argv[2] ) );
   if ( argc > 3 ) site.rounds = static_cast<unsigned>( std::atoi( argv[3] ) );
   for ( unsigned joins : { 1U, 30U } ) Agent::report( site, joins );
}
