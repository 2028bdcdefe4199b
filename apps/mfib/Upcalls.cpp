#include "apps/mfib/Upcalls.h"

#include <algorithm>

namespace Forwarding {

using Published::MfibUpcall;
using Routing::Pim::RouteIntfKey;

Upcalls::Upcalls( const std::string& owner, Mox::Ptr<Published::MfibStatus> tables,
                  size_t capacity )
   : tables_( std::move( tables ) ),
     capacity_( capacity ),
     noCache_( owner, "noCache" ),
     wrongVif_( owner, "wrongInterface" ),
     sharedTree_( owner, "sharedTree" ),
     dropped_( owner, "replaced" ) {
   std::vector<MfibUpcall> standing;
   tables_->upcall().visit( [&]( const MfibUpcall& record ) {
      standing.push_back( record );
      return true;
   } );
   std::sort( standing.begin(), standing.end(),
              []( const auto& a, const auto& b ) { return a.last < b.last; } );
   for ( const MfibUpcall& record : standing )
      known_[record.key] = order_.insert( order_.end(), record.key );
}

void Upcalls::add( const RouteIntfKey& key, Published::UpcallKind kind,
                   double time ) {
   ( kind == Published::noCacheUpcall    ? noCache_
     : kind == Published::wrongVifUpcall ? wrongVif_
                                         : sharedTree_ )
      .inc();
   MfibUpcall record;
   auto known = known_.find( key );
   if ( known != known_.end() ) {
      order_.splice( order_.end(), order_, known->second );
      tables_->upcall().find( key, record );
   } else {
      while ( known_.size() >= capacity_ ) {
         tables_->upcallDel( order_.front() );
         known_.erase( order_.front() );
         order_.pop_front();
         dropped_.inc();
      }
      known_[key] = order_.insert( order_.end(), key );
   }
   tables_->upcallIs( { key, kind, record.count + 1, time } );
}

}
