#include "apps/mirror/RouteFilter.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/apps/mirror/Published.h"

namespace Show {
namespace {

// The whole list in the tool's order: group and source compare as numbers, not as
// texts.
constexpr const char* kBare = "(203.0.113.9, 239.0.0.1)";
constexpr const char* kWc = "(*, 239.1.2.3)";
constexpr const char* kTree = "(198.51.100.7, 239.1.2.3)";
constexpr const char* kPruned = "(198.51.100.9, 239.1.2.3)";
constexpr const char* kOther = "(*, 239.1.10.1)";

using Keys = std::vector<std::string>;

// "group=239.1.2.3 kind=sg"
RouteFilter filterOf( const std::string& text ) {
   RouteFilter out;
   std::istringstream words( text );
   for ( std::string word; words >> word; ) {
      std::string name = word.substr( 0, word.find( '=' ) );
      std::string value = word.substr( name.size() + 1 );
      if ( name == "group" ) out.group = prefixArgument( value );
      if ( name == "source" ) out.source = prefixArgument( value );
      if ( name == "iface" ) out.iface = value;
      if ( name == "iif" ) out.iif = value;
      if ( name == "kind" ) out.kind = value;
   }
   return out;
}

struct Row {
   const char* filter;
   Keys selected;
};

const Row kRows[] = {
   { "", { kBare, kWc, kTree, kPruned, kOther } },
   { "group=239.1.2.3", { kWc, kTree, kPruned } },
   { "group=239.1.0.0/20", { kWc, kTree, kPruned, kOther } },
   { "group=ff0e::/16", {} },
   { "source=0.0.0.0/0", { kBare, kTree, kPruned } },  // never (*,G)
   { "source=198.51.100.9", { kPruned } },
   { "source=198.51.100.0/29", { kTree } },
   { "iface=eth4", { kBare, kTree } },
   { "iface=eth", {} },                       // whole names only
   { "iif=eth0", { kWc, kPruned, kOther } },  // as long as it follows the tree
   { "iif=Null0", {} },                       // no name of an interface
   { "iif=eth4", {} },                        // no downstream interfaces
   { "kind=wc", { kWc, kOther } },
   { "kind=sg", { kBare, kTree, kPruned } },
   { "group=239.1.2.3 source=198.51.100.0/24 iface=eth2 iif=eth1 kind=sg",
     { kTree } },
   { "group=239.1.2.3 kind=sg", { kTree, kPruned } },
   { "source=198.51.100.7 kind=wc", {} },
};

TEST( RouteFilter, SelectsWhatMatchesEveryPartInOrder ) {
   ShownRouter router;
   View view( router.root.path() );
   const Mirror& mirror = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   for ( const Row& row : kRows ) {
      RouteFilter filter = filterOf( row.filter );
      Keys selected;
      for ( const Route* route : selectRoutes( mirror, filter ) ) {
         selected.push_back( testing::PrintToString( route->key() ) );
      }
      EXPECT_EQ( selected, row.selected ) << row.filter;
      EXPECT_EQ( filter.active(), *row.filter != '\0' );
   }
}

TEST( RouteFilter, ShowsTheNamedInterfaceAlone ) {
   ShownRouter router;
   View view( router.root.path() );
   const Mirror& mirror = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   const Route* route = std::as_const( *mirror.model )
                           .route( SmTest::sgKey( "198.51.100.7", "239.1.2.3" ) );
   ASSERT_NE( route, nullptr );
   auto names = [&]( const RouteFilter& filter ) {
      Keys out;
      for ( const Intf* intf : selectIntfs( *route, filter ) ) {
         out.emplace_back( intf->intfId().name() );
      }
      return out;
   };
   EXPECT_EQ( names( {} ), ( Keys{ "eth2", "eth3", "eth4", "eth5" } ) );
   RouteFilter still;
   still.forwarding = false;
   EXPECT_EQ( names( still ), Keys{ "eth3" } );
   EXPECT_EQ( names( filterOf( "iface=eth3" ) ), Keys{ "eth3" } );
}

TEST( PrefixArgument, IsAPrefixOrAnAddress ) {
   EXPECT_EQ( prefixArgument( "239.1.2.3" ), Vantu::IpGenPrefix( "239.1.2.3/32" ) );
   EXPECT_EQ( prefixArgument( "ff0e::1" ), Vantu::IpGenPrefix( "ff0e::1/128" ) );
   EXPECT_EQ( prefixArgument( "239.1.0.0/16" ),
              Vantu::IpGenPrefix( "239.1.0.0/16" ) );
   for ( const char* text :
         { "", "banana", "239.1.2", "239.1.2.3 ", "239.0.0.0/", "239.0.0.0/33",
           "239.0.0.0/8x", "/8", "ff0e::/129", "239.0.0.0/-1" } ) {
      EXPECT_THROW( prefixArgument( text ), Mox::Error ) << text;
   }
}

}
}
