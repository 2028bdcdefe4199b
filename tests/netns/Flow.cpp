#include "tests/netns/Flow.h"

#include <linux/if_ether.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <ostream>
#include <system_error>

namespace Netns {
namespace {

using Mox::Loop;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr int kHops = 8;
constexpr int kReceiveBuffer = 64 << 20;

int systemFamily( const IpGenAddr& address ) {
   return address.family() == AddressFamily::ipv4 ? AF_INET : AF_INET6;
}

// A sockaddr_in or sockaddr_in6, at the start of a storage of zeros.
sockaddr_storage socketAddress( const IpGenAddr& address, uint16_t port ) {
   sockaddr_storage out{};
   out.ss_family = static_cast<sa_family_t>( systemFamily( address ) );
   if ( address.family() == AddressFamily::ipv4 ) {
      auto& in = reinterpret_cast<sockaddr_in&>( out );
      in.sin_port = htons( port );
      std::memcpy( &in.sin_addr, address.bytes().data(), sizeof in.sin_addr );
   } else {
      auto& in = reinterpret_cast<sockaddr_in6&>( out );
      in.sin6_port = htons( port );
      std::memcpy( &in.sin6_addr, address.bytes().data(), sizeof in.sin6_addr );
   }
   return out;
}

socklen_t addressSize( const IpGenAddr& address ) {
   return address.family() == AddressFamily::ipv4 ? sizeof( sockaddr_in )
                                                  : sizeof( sockaddr_in6 );
}

template <class Value>
void set( int socket, int level, int option, const Value& value ) {
   if ( setsockopt( socket, level, option, &value, sizeof value ) != 0 )
      throw std::system_error( errno, std::generic_category(), "setsockopt" );
}

struct Packet {
   double sentAt;
   uint32_t number;
};

std::unique_ptr<Loop::Fd> udpSocket( const IpGenAddr& group ) {
   return std::make_unique<Loop::Fd>(
      socket( systemFamily( group ), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ),
      "UDP socket" );
}

}

double now() {
   return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch() )
      .count();
}

bool eventually( const std::function<bool()>& holds,
                 std::chrono::seconds deadline ) {
   auto end = std::chrono::steady_clock::now() + deadline;
   while ( !holds() ) {
      if ( std::chrono::steady_clock::now() >= end ) return false;
      poll( nullptr, 0, 3 );
   }
   return true;
}

Sender::Sender( const Namespace& host, const std::string& interface,
                const IpGenAddr& group, int rate ) {
   Namespace::Inside inside( host );
   socket_ = udpSocket( group );
   auto index = static_cast<int>( if_nametoindex( interface.c_str() ) );
   if ( group.family() == AddressFamily::ipv4 ) {
      ip_mreqn by{};
      by.imr_ifindex = index;
      set( socket_->value(), IPPROTO_IP, IP_MULTICAST_IF, by );
      set( socket_->value(), IPPROTO_IP, IP_MULTICAST_TTL, kHops );
   } else {
      set( socket_->value(), IPPROTO_IPV6, IPV6_MULTICAST_IF, index );
      set( socket_->value(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHops );
   }
   sockaddr_storage to = socketAddress( group, kFlowPort );
   if ( connect( socket_->value(), reinterpret_cast<sockaddr*>( &to ),
                 addressSize( group ) ) != 0 )
      throw std::system_error( errno, std::generic_category(), "connect" );
   thread_ = std::thread( [this, rate] { run( rate ); } );
}

void Sender::stop() {
   stopping_ = true;
   if ( thread_.joinable() ) thread_.join();
}

// Catches up on the packets that a busy machine delays.
void Sender::run( int rate ) {
   Loop::Fd timer( timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC ), "timer" );
   itimerspec period{};
   period.it_interval.tv_sec = rate == 1 ? 1 : 0;
   period.it_interval.tv_nsec = rate == 1 ? 0 : 1000000000L / rate;
   period.it_value = period.it_interval;
   timerfd_settime( timer.value(), 0, &period, nullptr );
   uint64_t due = 0;
   while ( !stopping_ && read( timer.value(), &due, sizeof due ) == sizeof due ) {
      for ( ; due > 0 && !stopping_; --due ) {
         const Packet packet{ now(), sent_ };
         if ( send( socket_->value(), &packet, sizeof packet, 0 ) ==
              static_cast<ssize_t>( sizeof packet ) )
            ++sent_;
      }
   }
}

Receiver::Receiver( const Namespace& host, const std::string& interface,
                    const IpGenAddr& group, const IpGenAddr& source ) {
   Namespace::Inside inside( host );
   socket_ = udpSocket( group );
   set( socket_->value(), SOL_SOCKET, SO_REUSEADDR, 1 );
   set( socket_->value(), SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer );
   sockaddr_storage at = socketAddress( group, kFlowPort );
   if ( bind( socket_->value(), reinterpret_cast<sockaddr*>( &at ),
              addressSize( group ) ) != 0 )
      throw std::system_error( errno, std::generic_category(), "bind" );
   int level = group.family() == AddressFamily::ipv4
                  ? static_cast<int>( IPPROTO_IP )
                  : static_cast<int>( IPPROTO_IPV6 );
   if ( source.isUnspecified() ) {
      group_req join{};
      join.gr_interface = if_nametoindex( interface.c_str() );
      join.gr_group = socketAddress( group, 0 );
      set( socket_->value(), level, MCAST_JOIN_GROUP, join );
   } else {
      group_source_req join{};
      join.gsr_interface = if_nametoindex( interface.c_str() );
      join.gsr_group = socketAddress( group, 0 );
      join.gsr_source = socketAddress( source, 0 );
      set( socket_->value(), level, MCAST_JOIN_SOURCE_GROUP, join );
   }
}

const std::vector<uint32_t>& Receiver::received() {
   Packet packet{};
   while ( recv( socket_->value(), &packet, sizeof packet, 0 ) ==
           static_cast<ssize_t>( sizeof packet ) ) {
      if ( packet.number < begin_ ) continue;
      received_.push_back( packet.number );
      sentAt_.push_back( packet.sentAt );
   }
   return received_;
}

void Receiver::forget() {
   for ( uint32_t number : received() ) begin_ = std::max( begin_, number + 1 );
   received_.clear();
   sentAt_.clear();
}

bool Receiver::reached( uint32_t number ) {
   const auto& all = received();
   return std::any_of( all.begin(), all.end(),
                       [&]( uint32_t each ) { return each >= number; } );
}

Receiver::Faults Receiver::faults() {
   std::vector<uint32_t> sorted = received();
   std::sort( sorted.begin(), sorted.end() );
   Faults faults;
   if ( !sorted.empty() ) faults.first = sorted.front();
   for ( size_t i = 1; i < sorted.size(); ++i ) {
      uint32_t step = sorted[i] - sorted[i - 1];
      if ( step == 0 ) {
         ++faults.doubled;
         continue;
      }
      faults.lost += step - 1;
      faults.longestGap = std::max( faults.longestGap, step - 1 );
   }
   return faults;
}

double Receiver::gap() {
   std::map<uint32_t, double> sent;
   for ( size_t at = 0; at < received().size(); ++at )
      sent[received_[at]] = sentAt_[at];
   double longest = 0;
   auto before = sent.begin();
   for ( auto at = sent.begin(); at != sent.end(); before = at++ ) {
      if ( at->first > before->first + 1 )
         longest = std::max( longest, at->second - before->second );
   }
   return longest;
}

double Receiver::first() {
   return received().empty() ? 0
                             : *std::min_element( sentAt_.begin(), sentAt_.end() );
}

std::map<IpGenAddr, double> lastHeard( const Namespace& host,
                                       const std::string& interface,
                                       const std::vector<IpGenAddr>& groups ) {
   Namespace::Inside inside( host );
   Loop::Fd socket(
      ::socket( AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons( ETH_P_ALL ) ),
      "packet socket" );
   sockaddr_ll at{};
   at.sll_family = AF_PACKET;
   at.sll_protocol = htons( ETH_P_ALL );
   at.sll_ifindex = static_cast<int>( if_nametoindex( interface.c_str() ) );
   if ( bind( socket.value(), reinterpret_cast<sockaddr*>( &at ), sizeof at ) != 0 )
      throw std::system_error( errno, std::generic_category(), "bind" );
   const double start = now();
   double last = start;
   std::map<IpGenAddr, double> out;
   for ( const IpGenAddr& group : groups ) out[group] = start;
   pollfd item{ socket.value(), POLLIN, 0 };
   while ( now() < std::min( last + 0.5, start + 20 ) ) {
      if ( poll( &item, 1, 100 ) <= 0 ) continue;
      uint8_t header[40] = {};
      recv( socket.value(), header, sizeof header, 0 );
      const bool ipv4 = header[0] >> 4 == 4;
      const auto found = out.find(
         IpGenAddr::fromBytes( ipv4 ? AddressFamily::ipv4 : AddressFamily::ipv6,
                               header + ( ipv4 ? 16 : 24 ) ) );
      if ( found != out.end() ) found->second = last = now();
   }
   return out;
}

std::ostream& operator<<( std::ostream& out, const Receiver::Faults& faults ) {
   return out << faults.lost << " lost, " << faults.longestGap << " in a row, "
              << faults.doubled << " doubled";
}

}
