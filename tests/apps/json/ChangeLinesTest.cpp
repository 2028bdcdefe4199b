#include "apps/json/ChangeLines.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "apps/json/ChangeJson.h"
#include "apps/json/RouteJson.h"
#include "apps/json/YangData.h"
#include "tests/apps/json/Watching.h"

namespace Show {
namespace {

using Json = nlohmann::ordered_json;

class ChangesAsJson : public Watching {};

// Reports all records as if they were new, with the members of `routes` except
// times and values that depend on several records.
TEST_F( ChangesAsJson, SpeaksTheWordsOfRoutes ) {
   const Mirror& mirror = *mirrors.all()[0];
   std::vector<Json> told, shown;
   ChangeFeed all( mirror, true, [] {} );
   const std::vector<Change> changes = all.take( {}, mirrors.now() );
   EXPECT_STREQ( changes.at( 0 ).op, "vrf-new" );
   for ( size_t i = 1; i < changes.size(); ++i ) {
      Json line = changeJson( mirror, changes[i], kTime ), members;
      EXPECT_EQ( line["op"], "add" );
      for ( const auto& [name, values] : line["changed"].items() )
         members[name] = values[1];
      told.push_back( { line["group"], line["source-address"], line["is-rpt"],
                        line.value( "interface", "" ), members } );
   }
   const auto show = [&]( const Json& entry, const std::string& intf,
                          Json members ) {
      for ( const char* name :
            { "group", "source-address", "is-rpt", "mode", "rp-address", "up-time",
              "outgoing-interface", "pimsm-state:interface", "name",
              "not-forwarding-reason", "since-last-join", "since-last-rpt-prune" } )
         members.erase( name );
      shown.push_back( { entry["group"], entry["source-address"], entry["is-rpt"],
                         intf, std::move( members ) } );
   };
   for ( const Json& entry : routeEntries( mirror, {}, mirrors.now() ) ) {
      show( entry, "", entry );
      for ( const Json& intf : entry["pimsm-state:interface"] )
         show( entry, intf["name"], intf );
   }
   EXPECT_TRUE( std::is_sorted(
      changes.begin() + 1, changes.end(), []( const Change& a, const Change& b ) {
         return std::tie( a.key.group, a.key.source, a.intfId ) <
                std::tie( b.key.group, b.key.source, b.intfId );
      } ) );
   std::sort( told.begin(), told.end() );
   std::sort( shown.begin(), shown.end() );
   EXPECT_EQ( Json( told ).dump( 1 ), Json( shown ).dump( 1 ) );
}

TEST_F( ChangesAsJson, AreALineEach ) {
   std::string lines;
   const auto line = []( const Mirror& mirror, const Change& change,
                         const std::string& ) {
      return jsonText( changeJson( mirror, change, kTime ) );
   };
   const ChangeLines following( mirrors, {}, line,
                                [&]( std::string_view some ) { lines += some; } );
   write( sg, []( RouteRecord& r ) { r.rpf.metric = { 40 }; } );
   until( [&] { return !lines.empty(); } );
   EXPECT_EQ(
      lines,
      R"({"time":"2024-05-01T10:00:02.114Z","vrf":"default","family":"ipv4",)"
      R"("op":"update","group":"239.1.2.3","source-address":"198.51.100.7",)"
      R"("is-rpt":false,"changed":{"pimsm-state:rpf":[{"interface":"eth1",)"
      R"("neighbor":"192.0.2.5","attached":false,"preference":110,"metric":20},)"
      R"({"interface":"eth1","neighbor":"192.0.2.5","attached":false,)"
      R"("preference":110,"metric":40}]}})"
      "\n" );
}

}
}
