// The inputs of the protocol macros in one VRF, as plain data: a (*,G) and an (S,G)
// route of one group over up to three interfaces.
//
//     source                RP
//          \                /
//         192.0.2.254 / 192.0.2.253 (two possible next hops)
//                    |
//         "up", or any of the ports below, or none
//                    |
//               this router                 own path: (*,G) [120/30], (S,G) [110/20]
//          port 0   port 1   port 2
//            |
//        receivers and rivals; this router is 192.0.2.5 on port 0, 192.0.3.5 on ..
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <tuple>

namespace Routing::Pim::SparseMode::Test {

constexpr int kPorts = 3;
constexpr int kBorderPort = 2;

enum class Join : uint8_t { none, joined, prunePending };
enum class Rpt : uint8_t {
   none,
   pruned,
   prunePending,
   pruneTemp,
   prunePendingTemp
};
// The assert winner's metric relative to this router's own on the same tree.
// `higher` and `lower` differ from it in the address only, `worst` is the infinite
// metric. `nobody` beats it without an address, so there is no winner.
enum class Winner : uint8_t {
   none,
   me,
   better,
   worse,
   nobody,
   higher,
   lower,
   worst
};
// The PIM record of a port: DR or not, with an own address or not.
enum class Pim : uint8_t { dr, notDr, namelessNotDr, none, namelessDr };
// The incoming interface of a route. `reg` is the register interface, `bare` a next
// hop without an interface; `otherHop` is on `up`, too.
enum class Upstream : uint8_t {
   here,  // port 0
   up,
   none,
   noRecord,
   otherHop,
   reg,
   bare,
   port1
};
enum class WcState : uint8_t { record, noRoute, noRecord };

// RFC 7761, 4.6.3. Addresses are IPv4 as numbers, 0 for none.
struct Metric {
   bool rpt = true;
   uint32_t preference = 0x7fffffff;
   uint32_t metric = 0xffffffff;
   uint32_t address = 0;

   bool operator==( const Metric& ) const = default;
   bool beats( const Metric& o ) const {
      return std::make_tuple( rpt, preference, metric, ~address ) <
             std::make_tuple( o.rpt, o.preference, o.metric, ~o.address );
   }
};

// One record of a port: of its (*,G) or its (S,G) route.
struct Facts {
   bool record = false;
   Join join = Join::none;
   Rpt rpt = Rpt::none;
   bool include = false;
   bool exclude = false;
   Winner winner = Winner::none;
};

struct Port {
   Facts wc, sg;
   Pim pim = Pim::dr;
};

struct Upper {
   Upstream rpf = Upstream::up;
   Upstream frr = Upstream::noRecord;
   bool spt = false;
   bool upJoined = false;
   bool katExpired = false;
   bool attached = false;  // the end of the path is on the link
   bool border = false;    // comes in by a border router, on port 2
};

struct World {
   bool wcRoute = true;
   Upper wc, sg;
   std::array<Port, kPorts> ports;
   uint8_t received = 0;  // the metric in an assert message: kReceived
   uint8_t failover = 0;  // set of fast-failover interfaces, bit 3 a foreign one
};

// ---- the meaning of the values above

constexpr int kNowhere = -1, kUp = kPorts, kRegister = kPorts + 1;

struct Path {
   bool record = true;
   int port = kNowhere;
   uint32_t nextHop = 0;
   uint32_t preference = 0, metric = 0;

   bool none() const { return port == kNowhere && nextHop == 0; }
   bool sameNeighbor( const Path& other ) const {
      return port == other.port && nextHop == other.nextHop;
   }
};

constexpr uint32_t kHop = 0xc00002fe;  // 192.0.2.254

inline Path pathOf( Upstream upstream, bool wc ) {
   const uint32_t preference = wc ? 120 : 110, metric = wc ? 30 : 20;
   switch ( upstream ) {
      case Upstream::noRecord:
         return { false };
      case Upstream::none:
         return {};
      case Upstream::here:
         return { true, 0, kHop, preference, metric };
      case Upstream::port1:
         return { true, 1, kHop, preference, metric };
      case Upstream::up:
         return { true, kUp, kHop, preference, metric };
      case Upstream::otherHop:
         return { true, kUp, kHop - 1, preference, metric };
      case Upstream::reg:
         return { true, kRegister, kHop, preference, metric };
      case Upstream::bare:
         return { true, kNowhere, kHop, preference, metric };
   }
   return {};
}

inline uint32_t onPort( int port, uint8_t host ) {
   return 0xc0000200 + uint32_t( port ) * 256 + host;  // 192.0.<2 + port>.<host>
}
inline uint32_t ownAddress( int port, Pim pim ) {
   return pim == Pim::dr || pim == Pim::notDr ? onPort( port, 5 ) : 0;
}

// A metric relative to this router's own on the tree. The metric of `worse` loses
// by the first item and wins by the later ones; that of `better` is the other way
// round.
inline Metric metricBeside( Winner winner, bool wc, int port, Pim pim ) {
   const Path own = pathOf( Upstream::up, wc );
   const uint32_t low = onPort( port, 1 ), high = onPort( port, 9 );
   switch ( winner ) {
      case Winner::none:
         return {};
      case Winner::nobody:
         return { wc, 0, 0, 0 };
      case Winner::me:
         return { wc, 0, 0, ownAddress( port, pim ) };
      case Winner::better:
         return { wc, own.preference - 20, 9999, low };
      case Winner::worse:
         return { true, wc ? own.preference + 9 : 0, 0, high };
      case Winner::higher:
         return { wc, own.preference, own.metric, high };
      case Winner::lower:
         return { wc, own.preference, own.metric, low };
      case Winner::worst: {
         Metric infinite;
         infinite.address = high;
         return infinite;
      }
   }
   return {};
}

// The metrics that an assert message may bring to port 0: the infinite one, then
// every relation to either tree's own metric, equality included.
constexpr int kReceived = 12;

inline Metric receivedMetric( int index, Pim pim ) {
   if ( index == 0 ) return {};
   constexpr Winner relations[] = { Winner::better, Winner::worse, Winner::higher,
                                    Winner::lower };
   if ( index <= 8 )
      return metricBeside( relations[( index - 1 ) % 4], index > 4, 0, pim );
   if ( index == 9 ) return metricBeside( Winner::worst, true, 0, pim );
   const bool wc = index == 11;
   const Path own = pathOf( Upstream::up, wc );
   return { wc, own.preference, own.metric, ownAddress( 0, pim ) };
}

// ---- random ones

// Port 0 has an (S,G) record. Half of the others have none or an idle one, so that lists may be
// empty.
inline World anyWorld( std::mt19937& random ) {
   auto oneOf = [&]( unsigned count ) { return int( random() % count ); };
   auto flip = [&] { return oneOf( 2 ) != 0; };
   World world;
   world.wcRoute = oneOf( 4 ) != 0;
   for ( Upper* upper : { &world.wc, &world.sg } )
      *upper = { Upstream( oneOf( 8 ) ),
                 Upstream( oneOf( 8 ) ),
                 flip(),
                 flip(),
                 flip(),
                 flip(),
                 flip() };
   for ( Port& port : world.ports ) {
      port.pim = Pim( oneOf( 5 ) );
      for ( Facts* facts : { &port.wc, &port.sg } ) {
         facts->record = flip() || facts == &world.ports[0].sg;
         if ( flip() )
            *facts = { true,   Join( oneOf( 3 ) ),  Rpt( oneOf( 5 ) ), flip(),
                       flip(), Winner( oneOf( 8 ) ) };
      }
   }
   world.received = uint8_t( oneOf( kReceived ) );
   world.failover = uint8_t( oneOf( 16 ) );
   return world;
}

}
