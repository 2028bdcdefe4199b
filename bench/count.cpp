// The cost of moving one address between two entries of a histogram, with 10 to
// 100,000 others in each; the rest of 200,000 sources have two groups.
//
//    peer    copies the entry, changes the copy and stores it, for either entry
//    update the reactor's, with all that a change of a source runs through
//
// One source gains and loses a group repeatedly. The update includes its look-up in
// the model, whose cost is constant because the model's size is.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "count/SgCountSm.h"

namespace Routing::Pim::SparseMode {
namespace {

Vantu::IpGenAddr address( uint32_t n ) {
   return Vantu::IpGenAddr( in_addr{ htonl( 0x0a000000U + n ) } );
}

const Vantu::IpGenAddr kGroup( "233.252.0.1" ), kOtherGroup( "233.252.0.2" );

constexpr uint32_t kSources = 200000;

// `others` sources without a group, as many with one group, and the one that
// changes.
struct Setting {
   explicit Setting( uint32_t others ) {
      for ( uint32_t n = 0; n < kSources; ++n ) {
         auto each = status->sourceIs( address( n ) );
         const uint32_t groups = std::min( n / others, 2U );
         for ( uint32_t g = 0; g < groups; ++g ) {
            each->sourceGroupIs( g == 0 ? kGroup : kOtherGroup, true );
         }
      }
      source = status->sourceIs( address( kSources ) );
      sm = sgCountSmFactory( status, sourceCount, Mox::newEntity<GroupSourceMap>(),
                             groupCountFactory( "red" ) );
   }

   Mox::Ptr<Status> status = statusFactory( L3::VrfName( "red" ) );
   Mox::Ptr<SourceCount> sourceCount = sourceCountFactory( "red" );
   Mox::Ptr<Source> source;
   Mox::Ptr<SgCountSm> sm;
};

void update( benchmark::State& state ) {
   Setting setting( uint32_t( state.range( 0 ) ) );
   bool with = false;
   for ( auto _ : state ) {
      with = !with;
      if ( with ) {
         setting.source->sourceGroupIs( kGroup, true );
      } else {
         setting.source->sourceGroupDel( kGroup );
      }
   }
}
BENCHMARK( update )->Arg( 10 )->Arg( 1000 )->Arg( 100000 );

void peer( benchmark::State& state ) {
   Setting setting( uint32_t( state.range( 0 ) ) );
   SourceCount& histogram = *setting.sourceCount;
   const Vantu::IpGenAddr source = setting.source->sourceAddr();
   uint32_t count = 0;
   for ( auto _ : state ) {
      count = 1 - count;
      IpAddrCollection entry = *histogram.sourcesByGroupCount( count );
      entry.addrIs( source, true );
      histogram.sourcesByGroupCountIs( count, entry );
      entry = *histogram.sourcesByGroupCount( 1 - count );
      entry.addrDel( source );
      histogram.sourcesByGroupCountIs( 1 - count, entry );
   }
}
BENCHMARK( peer )->Arg( 10 )->Arg( 1000 )->Arg( 100000 );

}
}

BENCHMARK_MAIN();
