// Interface records whose route is missing.
//
// No order is promised between two tables: an interface's record may be seen before
// its route's, and a route may go and come back while its interfaces' records stay.
// A mirror notes such records here and takes them up when the route appears in the
// model.
#pragma once

#include <unordered_map>
#include <unordered_set>

#include "export/Conversion.h"
#include "export/Status.h"

namespace Routing::Pim::SparseMode::Brane {

class StrayIntfs {
 public:
   explicit StrayIntfs( const Brane::Status& tables ) : tables_( tables ) {}

   // Notes the key while its record stands; forgets it otherwise.
   void note( const RouteIntfKey& key ) {
      if ( tables_.routeIntf().has( key ) ) {
         strays_[key.routeKey].insert( key.intfId );
      } else {
         forget( key );
      }
   }

   // The route has come: takes up its interface records from the table.
   void adopt( SparseMode::Route& route ) {
      auto found = strays_.find( route.key() );
      if ( found == strays_.end() ) return;
      auto intfs = std::move( found->second );
      strays_.erase( found );
      for ( Vantu::IntfId intfId : intfs ) {
         Brane::Intf record;
         RouteIntfKey key{ route.key(), intfId };
         if ( tables_.routeIntf().find( key, record ) != ::Brane::lookupFound )
            continue;
         doUpdateIntf( *route.routeIntfIs( intfId ), record );
      }
   }

 private:
   void forget( const RouteIntfKey& key ) {
      auto found = strays_.find( key.routeKey );
      if ( found == strays_.end() ) return;
      found->second.erase( key.intfId );
      if ( found->second.empty() ) strays_.erase( found );
   }

   const Brane::Status& tables_;
   std::unordered_map<RouteKey, std::unordered_set<Vantu::IntfId>> strays_;
};

}
