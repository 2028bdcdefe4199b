// The storm's router and its captures.
#pragma once

#include <fmt/format.h>

#include <random>

#include "tests/apps/process/storm/Rule.h"
#include "tests/packet/PacketBuilder.h"

namespace Agent::Storm {

using namespace Router;

inline std::string configText( unsigned maxRoutes, unsigned maxRouteIntfs ) {
   std::string out = fmt::format(
      "vrfs:\n- name: default\n  maxRoutes: {}\n  maxRouteIntfs: {}\n"
      "  interfaces:\n"
      "  - {{name: eth0, addresses: [192.0.2.129/25, \"2001:db8:e0::1/64\"]}}\n"
      "  - {{name: eth1, addresses: [192.0.2.1/25, \"fe80::1/64\"]}}\n"
      "  - {{name: eth2, addresses: [203.0.113.1/24, \"fe80::2/64\"]}}\n"
      "  rps:\n  - address: 198.18.0.1\n  - address: \"2001:db8:5::1\"\n"
      "  rpf-routes:\n",
      maxRoutes, maxRouteIntfs );
   for ( unsigned net = 0; net < 4; ++net ) {
      for ( bool ipv4 : { true, false } ) {
         out += fmt::format(
            "  - {{prefix: \"{}\", interface: eth0, neighbor: \"{}\", "
            "preference: 110, metric: {}}}\n",
            ipv4 ? fmt::format( "198.18.{}.0/24", net )
                 : fmt::format( "2001:db8:5:{}::/64", net ),
            neighborOf( ipv4, net ), 20 + net );
      }
   }
   return out;
}

// A link with one downstream router. It joins the standing routes, then joins and
// prunes the others at random, all for ever; or, if `timed`, with all hold times in
// the course of five minutes, while another router may override its prunes.
class Link {
 public:
   Link( unsigned interface, unsigned messages, unsigned seed, bool timed )
      : interface_( interface ), random_( seed ), timed_( timed ) {
      file_.hex( "a1b2c3d4 0002 0004 00000000 00000000 0000ffff" ).u32( 1 );
      for ( bool ipv4 : { true, false } ) {
         // Hosts that stay for ever.
         for ( unsigned host = 99; host > ( timed ? 97U : 98U ); --host )
            add( ipv4, 0, PacketBuilder().u16( 1 ).u16( 2 ).u16( 0xffff ), host );
         for ( unsigned at = 0; at < standing; ) {
            std::vector<unsigned> numbers;
            while ( at < standing && numbers.size() < 10 )
               numbers.push_back( at++ );
            joinPrune( ipv4, numbers );
         }
      }
      for ( unsigned i = 0; i < messages; ++i ) {
         std::vector<unsigned> numbers;
         while ( numbers.size() < 10 ) {
            unsigned number = standing + random_() % ( all - standing );
            if ( !timed || numbers.empty() ||
                 holdtimeOf( number ) == holdtimeOf( numbers.front() ) )
               numbers.push_back( number );
         }
         if ( timed ) time_ += 300'000'000 / messages;
         joinPrune( i % 2 == 0, numbers );
      }
   }

   const ByteVector& file() const { return file_; }

 private:
   void joinPrune( bool ipv4, const std::vector<unsigned>& numbers ) {
      PacketBuilder body, groups;
      unsigned count = 0;
      for ( unsigned number : numbers ) {
         if ( !isOn( number, interface_ ) ) continue;
         bool join = number < standing || random_() % 2 == 0;
         bool rpt = timed_ && number >= standing && isWildcard( number ) &&
                    random_() % 2 == 0;
         ++count;
         groups.group( groupOf( ipv4, number ).c_str() );
         groups.u16( join ).u16( !join + rpt );
         groups.source( sourceOf( ipv4, number ).c_str(),
                        isWildcard( number ) ? 7 : 4 );
         if ( rpt ) groups.source( sourceOf( ipv4, number + 1 ).c_str(), 5 );
      }
      const char* own = !ipv4 ? ( interface_ == 1 ? "fe80::1" : "fe80::2" )
                        : interface_ == 1 ? "192.0.2.1"
                                          : "203.0.113.1";
      const unsigned holdtime = timed_ ? holdtimeOf( numbers.front() ) : 0xffff;
      body.unicast( own ).u8( 0 ).u8( count ).u16( holdtime ).raw( groups );
      add( ipv4, 3, body );
   }

   void add( bool ipv4, unsigned type, const ByteVector& body,
             unsigned host = 99 ) {
      const std::string sender = ( !ipv4             ? "fe80::"
                                   : interface_ == 1 ? "192.0.2."
                                                     : "203.0.113." ) +
                                 std::to_string( host );
      const char* from = sender.c_str();
      const char* to = ipv4 ? "224.0.0.13" : "ff02::d";
      ByteVector pim = PacketBuilder().u8( 0x20 | type ).zeros( 3 ).raw( body );
      PacketBuilder summed;
      summed.raw( pim );
      if ( !ipv4 ) {
         summed.zeros( pim.size() % 2 ).addr( from ).addr( to );
         summed.u32( static_cast<uint32_t>( pim.size() ) ).u32( 103 );
      }
      unsigned sum = ~folded( summed ) & 0xffff;
      pim[2] = static_cast<uint8_t>( sum >> 8 );
      pim[3] = static_cast<uint8_t>( sum );
      PacketBuilder frame;
      frame.zeros( 12 );
      if ( ipv4 ) {
         frame.hex( "0800 45c0" ).u16( 20 + unsigned( pim.size() ) );
         frame.hex( "0000 0000 01 67 0000" );
      } else {
         frame.hex( "86dd 6c000000" ).u16( unsigned( pim.size() ) ).hex( "67 01" );
      }
      frame.addr( from ).addr( to ).raw( pim );
      auto size = static_cast<uint32_t>( frame.bytes().size() );
      file_.u32( 1000 + time_ / 1'000'000 ).u32( time_ % 1'000'000 );
      file_.u32( size ).u32( size ).raw( frame );
      ++time_;
   }

   static unsigned folded( const ByteVector& bytes ) {
      unsigned sum = 0;
      for ( size_t i = 0; i < bytes.size(); ++i )
         sum += bytes[i] << ( i % 2 ? 0 : 8 );
      while ( sum > 0xffff ) sum = ( sum >> 16 ) + ( sum & 0xffff );
      return sum;
   }

   unsigned interface_;
   std::mt19937 random_;
   bool timed_;
   uint32_t time_ = 0;  // us
   PacketBuilder file_;
};

}
