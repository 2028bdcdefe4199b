// A reader's side of the shown router in this process, on the real clock and its loop.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "apps/json/ChangeFeed.h"
#include "tests/apps/mirror/Published.h"

namespace Show {

class Watching : public testing::Test {
 protected:
   Watching() { mirrors.load(); }

   // Changes the records whatever the agent would write.
   template <class Edit>
   void write( const Routing::Pim::RouteKey& key, Edit edit ) {
      RouteRecord record;
      router.ipv4.tables->route().find( key, record );
      edit( record );
      router.ipv4.tables->routeIs( record );
   }
   template <class Edit>
   void write( const Routing::Pim::RouteKey& key, const char* intf, Edit edit ) {
      IntfRecord record;
      router.ipv4.tables->routeIntf().find( { key, SmTest::intfId( intf ) },
                                            record );
      edit( record );
      router.ipv4.tables->routeIntfIs( record );
   }
   void remove( const Routing::Pim::RouteKey& key, const char* intf ) {
      router.ipv4.tables->routeIntfDel( { key, SmTest::intfId( intf ) } );
   }

   void until( const std::function<bool()>& holds ) {
      const auto end =
         std::chrono::steady_clock::now() + std::chrono::seconds( 60 );
      do {
         router.ipv4.manager.dispatch();
         mirrors.loop().dispatch();
         if ( holds() ) return;
      } while ( std::chrono::steady_clock::now() < end );
      ADD_FAILURE() << "deadline";
   }

   static constexpr const char* kTime = "2024-05-01T10:00:02.114Z";
   const Routing::Pim::RouteKey wc = SmTest::wcKey( "239.1.2.3" ),
                                sg = SmTest::sgKey( "198.51.100.7", "239.1.2.3" );
   ShownRouter router;
   Mirrors mirrors{ { router.root.path(), "default", Vantu::AddressFamily::ipv4 } };
};

}
