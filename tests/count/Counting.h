// One VRF's sources and groups, their histograms, and the histograms'
// notifications.
#pragma once

#include "count/SgCountSm.h"
#include "tests/support/Recorder.h"

namespace Routing::Pim::SparseMode::Test {

PIMSM_TEST_RECORDER( SourceCountRecorder, SourceCount,
                     PIMSM_SOURCE_COUNT_ATTRIBUTES )
PIMSM_TEST_RECORDER( GroupCountRecorder, GroupCount, PIMSM_GROUP_COUNT_ATTRIBUTES )

inline Vantu::IpGenAddr sourceAddr( unsigned n ) {
   return Vantu::IpGenAddr( "192.0.2." + std::to_string( n ) );
}
inline Vantu::IpGenAddr groupAddr( unsigned n ) {
   return Vantu::IpGenAddr( "233.252.0." + std::to_string( n ) );
}

// "0{a b} 2{c}", the addresses in order.
template <class Histogram>
Mox::String histogramText( const Histogram& histogram ) {
   Mox::String text;
   for ( const auto& [count, entry] : histogram ) {
      std::map<Vantu::IpGenAddr, bool> sorted( entry.addr().begin(),
                                               entry.addr().end() );
      Mox::String members;
      for ( const auto& [address, flag] : sorted ) {
         if ( !members.empty() ) members += ' ';
         members += valueToStrep( address ) + ( flag ? "" : "=false" );
      }
      if ( !text.empty() ) text += ' ';
      text += std::to_string( count ) + '{' + members + '}';
   }
   return text;
}

struct Counting {
   void start() {
      sm = sgCountSmFactory( status, sourceCount, groupSourceMap, groupCount );
   }
   Mox::String sources() const {
      return histogramText( sourceCount->sourcesByGroupCount() );
   }
   Mox::String groups() const {
      return histogramText( groupCount->groupsBySourceCount() );
   }

   Mox::Ptr<Status> status = statusFactory( L3::VrfName( "red" ) );
   Mox::Ptr<GroupSourceMap> groupSourceMap = Mox::newEntity<GroupSourceMap>();
   Mox::Ptr<SourceCount> sourceCount = sourceCountFactory( "red" );
   Mox::Ptr<GroupCount> groupCount = groupCountFactory( "red" );
   SourceCountRecorder sourcesHeard{ sourceCount.get() };
   GroupCountRecorder groupsHeard{ groupCount.get() };
   Mox::Ptr<SgCountSm> sm;
};

}
