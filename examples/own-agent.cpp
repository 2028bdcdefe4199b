// An agent of one's own for IPv4: receives PIM and IGMP on raw sockets, uses the
// host's unicast routes, and leaves the protocol to libPimsmRouter. pimsm-mfib
// forwards by its tables, pimsm-show explains them. Needs CAP_NET_RAW.
//
// It sends nothing. Without hellos no neighbour knows it: none sends it joins, and
// the others on a shared link elect their DR without it. Without joins of its own
// it gets only the traffic that somebody else on the upstream link has asked for.
// An agent in service adds both, and queries; packet/Encode.h writes them.
// usage: own-agent DIRECTORY_OF_THE_TABLES RP INTERFACE...
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/socket.h>

#include <bit>
#include <csignal>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iostream>
#include <system_error>

#include <pimsm/platform/loop/SignalWatcher.h>
#include <pimsm/published/Publisher.h>
#include <pimsm/router/VrfRouter.h>

using Mox::Loop;
using Vantu::IntfId;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

void check( int result, const std::string& what ) {
   if ( result < 0 )
      throw std::system_error( errno, std::generic_category(), what );
}

// [routes]
// The host's route towards an address: the longest prefix, of equal ones the lowest
// metric. The numbers of /proc/net/route are in network byte order.
std::optional<Router::HostRoute> hostRoute( const IpGenAddr& address ) {
   std::optional<Router::HostRoute> best;
   std::ifstream routes( "/proc/net/route" );
   for ( std::string line; std::getline( routes, line ); ) {
      char name[IFNAMSIZ];
      in_addr prefix, gateway, mask;
      unsigned flags, metric;
      if ( std::sscanf( line.c_str(), "%15s %x %x %x %*s %*s %u %x", name,
                        &prefix.s_addr, &gateway.s_addr, &flags, &metric,
                        &mask.s_addr ) != 6 )
         continue;  // the header line
      const unsigned length = std::popcount( mask.s_addr );
      if ( !IpGenPrefix( IpGenAddr( prefix ), length ).contains( address ) )
         continue;
      if ( best &&
           std::pair( best->length, metric ) >= std::pair( length, best->metric ) )
         continue;
      if ( ( flags & RTF_REJECT ) != 0 ) name[0] = '\0';
      best = { length, IntfId( name ), IpGenAddr( gateway ), false, metric };
   }
   return best;
}
// [routes]

// [config]
// The interface with its present addresses.
Router::InterfaceConfig interfaceConfig( const std::string& name ) {
   Router::InterfaceConfig out;
   out.name = IntfId( name );
   ifaddrs* all = nullptr;
   check( getifaddrs( &all ), "getifaddrs" );
   for ( const ifaddrs* each = all; each != nullptr; each = each->ifa_next ) {
      if ( name != each->ifa_name || each->ifa_addr == nullptr ||
           each->ifa_addr->sa_family != AF_INET )
         continue;
      auto ipv4 = []( const sockaddr* address ) {
         return reinterpret_cast<const sockaddr_in*>( address )->sin_addr;
      };
      const IpGenAddr own( ipv4( each->ifa_addr ) );
      const unsigned length = std::popcount( ipv4( each->ifa_netmask ).s_addr );
      out.addresses.push_back( { own, IpGenPrefix( own, length ) } );
   }
   freeifaddrs( all );
   if ( out.addresses.empty() )
      throw std::runtime_error( name + " has no IPv4 address" );
   return out;
}
// [config]

// [socket]
// Receives one IP protocol's packets on an interface, those to the routers' group
// included.
class Ear {
 public:
   using Heard = std::function<void( Router::Bytes )>;

   Ear( Loop& loop, const std::string& interface, int protocol, const char* group,
        Heard heard )
      : socket_(
           socket( AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol ),
           "raw socket" ),
        heard_( std::move( heard ) ),
        watcher_( loop, socket_.value(), [this] { read(); } ) {
      ip_mreqn member{ { inet_addr( group ) }, {}, 0 };
      member.imr_ifindex = static_cast<int>( if_nametoindex( interface.c_str() ) );
      set( SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(), interface.size() );
      set( IPPROTO_IP, IP_ADD_MEMBERSHIP, &member, sizeof member );
      // Packets from before the binding may have come by another interface.
      while ( recv( socket_.value(), buffer_, sizeof buffer_, 0 ) > 0 ) continue;
   }

 private:
   void set( int level, int option, const void* value, size_t size ) {
      check( setsockopt( socket_.value(), level, option, value,
                         static_cast<socklen_t>( size ) ),
             "raw socket" );
   }
   // Reads one packet a turn: others want the loop, too.
   void read() {
      const ssize_t size = recv( socket_.value(), buffer_, sizeof buffer_, 0 );
      if ( size > 0 ) heard_( { buffer_, static_cast<size_t>( size ) } );
   }

   Loop::Fd socket_;
   Heard heard_;
   Loop::FdWatcher watcher_;
   uint8_t buffer_[65536];
};
// [socket]

// [receive]
// Decodes an IP packet that arrived on the interface, and hands its message to the
// engines.
void receive( Router::VrfRouter& vrf, Router::RouterCounters& counters,
              IntfId intfId, Router::Bytes bytes ) {
   Router::IpPacket packet;
   Router::Message message;
   Router::DropReason dropped =
      decodeFrame( Router::LinkType::rawIp, bytes, packet );
   if ( dropped == Router::notDropped ) dropped = decodeMessage( packet, message );
   if ( dropped != Router::notDropped ) return counters.dropped( dropped );
   counters.received( message );
   vrf.receive( intfId, packet, message );
}
// [receive]

int main( int argc, char** argv ) try {
   if ( argc < 4 ) {
      std::cerr << "usage: own-agent DIRECTORY_OF_THE_TABLES RP INTERFACE...\n";
      return 2;
   }
   // [main]
   Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop, argv[1] );
   Router::RouterCounters counters;
   Published::CounterPublisher published(
      clock, Published::ProcessStatus::mount( manager, Brane::tableWriter ) );
   Router::VrfConfig config;
   config.name = L3::VrfName( "default" );
   config.rps.push_back( { IpGenAddr( argv[2] ), {} } );  // for all groups
   for ( int i = 3; i < argc; ++i )
      config.interfaces.push_back( interfaceConfig( argv[i] ) );
   Router::VrfRouter vrf( manager, clock, Vantu::AddressFamily::ipv4, config,
                          counters, { hostRoute, 1000, 10000 } );

   // The router keeps packets that arrive before the reload has ended.
   std::deque<Ear> ears;
   for ( const Router::InterfaceConfig& interface : config.interfaces ) {
      auto heard = [&, name = interface.name]( Router::Bytes bytes ) {
         receive( vrf, counters, name, bytes );
      };
      const std::string name( interface.name.name() );
      ears.emplace_back( loop, name, Router::pimProtocol, "224.0.0.13", heard );
      // Hosts send reports of version 3 to this group, older ones to the group in
      // question.
      ears.emplace_back( loop, name, Router::igmpProtocol, "224.0.0.22", heard );
   }

   // The kernel reports that its routes changed; the routes themselves are read
   // anew.
   Loop::Fd changes(
      socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE ),
      "netlink socket" );
   sockaddr_nl groups{ AF_NETLINK, 0, 0, RTMGRP_IPV4_ROUTE };
   check( bind( changes.value(), reinterpret_cast<sockaddr*>( &groups ),
                sizeof groups ),
          "netlink socket" );
   Loop::FdWatcher changed( loop, changes.value(), [&] {
      char ignored[8192];
      while ( recv( changes.value(), ignored, sizeof ignored, 0 ) > 0 ) continue;
      vrf.pathsChanged();
   } );

   Mox::SignalWatcher ends( loop, { SIGTERM, SIGINT },
                            [&]( int ) { loop.stop(); } );
   Loop::TurnEnd turnEnd( loop, [&] {
      if ( vrf.ready() && !vrf.adopted() ) vrf.adopt();
      vrf.handleTurnEnd();
      published.touch();
   } );
   loop.run();
   // [main]
} catch ( const std::exception& e ) {
   std::cerr << "own-agent: " << e.what() << '\n';
   return 1;
}
