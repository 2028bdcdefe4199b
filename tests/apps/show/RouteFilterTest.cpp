#include "apps/show/RouteFilter.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "apps/show/Words.h"
#include "tests/apps/show/Published.h"

namespace Show {
namespace {

// The whole, in the tool's order: by group and source as numbers, not as texts.
constexpr const char* kBare = "(203.0.113.9, 239.0.0.1)";
constexpr const char* kWc = "(*, 239.1.2.3)";
constexpr const char* kTree = "(198.51.100.7, 239.1.2.3)";
constexpr const char* kPruned = "(198.51.100.9, 239.1.2.3)";
constexpr const char* kOther = "(*, 239.1.10.1)";

using Keys = std::vector<std::string>;

struct Row {
   const char* name;
   const char* group;
   const char* source;
   const char* iface;
   const char* iif;
   const char* kind;
   Keys selected;
};

const Row kRows[] = {
   { "Nothing", "", "", "", "", "", { kBare, kWc, kTree, kPruned, kOther } },
   { "Group", "239.1.2.3", "", "", "", "", { kWc, kTree, kPruned } },
   { "GroupPrefix",
     "239.1.0.0/20",
     "",
     "",
     "",
     "",
     { kWc, kTree, kPruned, kOther } },
   { "GroupOfTheOtherFamily", "ff0e::/16", "", "", "", "", {} },
   { "SourceNeverMatchesWc",
     "",
     "0.0.0.0/0",
     "",
     "",
     "",
     { kBare, kTree, kPruned } },
   { "Source", "", "198.51.100.9", "", "", "", { kPruned } },
   { "SourcePrefix", "", "198.51.100.0/29", "", "", "", { kTree } },
   { "Iface", "", "", "eth4", "", "", { kBare, kTree } },
   { "IfaceIsAWholeName", "", "", "eth", "", "", {} },
   { "Iif", "", "", "", "eth0", "", { kWc, kOther } },
   { "IifIsNoDownstreamInterface", "", "", "", "eth4", "", {} },
   { "Wc", "", "", "", "", "wc", { kWc, kOther } },
   { "Sg", "", "", "", "", "sg", { kBare, kTree, kPruned } },
   { "Combined", "239.1.2.3", "198.51.100.0/24", "eth2", "eth1", "sg", { kTree } },
   { "CombinedWithoutMatch", "239.1.2.3", "", "", "", "sg", { kTree, kPruned } },
   { "WcWithSource", "", "198.51.100.7", "", "", "wc", {} },
};

TEST( RouteFilter, SelectsWhatMatchesEveryPartInOrder ) {
   ShownRouter router;
   View view( router.root.path() );
   const Mirror& mirror = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   for ( const Row& row : kRows ) {
      RouteFilter filter;
      if ( *row.group != 0 ) filter.group = prefixArgument( row.group );
      if ( *row.source != 0 ) filter.source = prefixArgument( row.source );
      filter.iface = row.iface;
      filter.iif = row.iif;
      filter.kind = row.kind;
      Keys selected;
      for ( const Route* route : selectRoutes( mirror, filter ) ) {
         selected.push_back( keyText( route->key() ) );
      }
      EXPECT_EQ( selected, row.selected ) << row.name;
      EXPECT_EQ( filter.active(), row.name != std::string( "Nothing" ) );
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
   RouteFilter filter;
   EXPECT_EQ( names( filter ), ( Keys{ "eth2", "eth3", "eth4" } ) );
   filter.iface = "eth3";
   EXPECT_EQ( names( filter ), Keys{ "eth3" } );
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
