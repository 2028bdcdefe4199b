// The content of the route tables, or the content that a model would give.
#pragma once

#include <gtest/gtest.h>

#include <map>

#include "export/Conversion.h"
#include "export/Status.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {

inline const RouteKey kKey = sgKey( "192.0.2.1", "233.252.0.1" );
inline RouteKey keyOf( unsigned i ) {
   return sgKey(
      "192.0." + std::to_string( i / 250 ) + "." + std::to_string( i % 250 + 1 ),
      "233.252.0.1" );
}

struct Content {
   std::map<RouteKey, Brane::Route> routes;
   std::map<RouteIntfKey, Brane::Intf> intfs;

   bool operator==( const Content& ) const = default;

   static Content of( const Brane::Status& tables ) {
      Content content;
      tables.route().visit( [&]( const Brane::Route& record ) {
         EXPECT_TRUE( content.routes.emplace( record.key, record ).second );
         return true;
      } );
      tables.routeIntf().visit( [&]( const Brane::Intf& record ) {
         EXPECT_TRUE( content.intfs.emplace( record.key, record ).second );
         return true;
      } );
      EXPECT_EQ( tables.route().undecodable() + tables.routeIntf().undecodable(),
                 0U );
      return content;
   }
   static Content of( const Status& model ) {
      Content content;
      for ( const Route& route : model.route() ) {
         content.routes.emplace( route.key(),
                                 Brane::doGetBraneRouteFromRoute( route ) );
         for ( const Intf& intf : route.routeIntf() ) {
            content.intfs.emplace(
               RouteIntfKey{ route.key(), intf.intfId() },
               Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ) );
         }
      }
      return content;
   }
};

}
