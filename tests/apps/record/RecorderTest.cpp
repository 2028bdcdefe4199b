// A recorder beside tables that change at random, and that is killed at random.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include "apps/json/LinkJson.h"
#include "apps/json/RouteJson.h"
#include "apps/json/Trim.h"
#include "apps/store/Store.h"
#include "tests/apps/json/Watching.h"
#include "tests/support/NatsServers.h"
#include "tests/support/Program.h"
#include "tests/support/Seed.h"

namespace Fleet {
namespace {

using Json = nlohmann::ordered_json;
using Show::Route;
namespace SmTest = Routing::Pim::SparseMode::Test;

// The store: a directory, or so many servers.
class Recording : public Show::Watching,
                  public testing::WithParamInterface<size_t> {
 protected:
   Recording() : random( Mox::Test::seedOf() ) {
      if ( GetParam() != 0 ) {
         if ( Mox::Test::NatsServers::program().empty() ) return;
         servers.emplace( GetParam() );
         store = servers->url();
      }
      start();
   }
   void SetUp() override {
      if ( !recorder )
         GTEST_SKIP() << "no nats-server: run tools/install-dependencies test";
   }

   void start() {
      recorder.emplace( Mox::Test::Program::Arguments{
         PIMSM_RECORD, "--root", router.root.path(), "--store", store, "--router",
         "r1", "--vrf", "default", "--sample", "3600", "--replicas",
         GetParam() > 1 ? "3" : "1" } );
   }
   // As hard as it gets.
   void kill() {
      recorder->signal( SIGKILL );
      recorder->wait();
      former = present;
   }

   unsigned below( unsigned limit ) { return random() % limit; }

   // Something that an agent may publish.
   void step() {
      const std::string group = "239.4.0." + std::to_string( 1 + below( 3 ) );
      const RouteKey key =
         below( 3 ) == 0
            ? SmTest::wcKey( group )
            : SmTest::sgKey( "198.51.100." + std::to_string( 1 + below( 3 ) ),
                             group );
      const std::string intf = "eth" + std::to_string( below( 4 ) );
      const auto change = [&]( auto edit ) {
         write( key, [&]( Show::RouteRecord& record ) { record.key = key; } );
         write( key, intf.c_str(), [&]( Show::IntfRecord& record ) {
            record.key = { key, SmTest::intfId( intf ) };
            edit( record );
         } );
      };
      using Routing::Pim::SparseMode::Intf;
      switch ( below( 6 ) ) {
         case 0:
            return change( []( auto& record ) { record.forward ^= true; } );
         case 1:
            return change( [&]( auto& record ) {
               record.joinState = static_cast<Intf::JoinState>( below( 3 ) );
            } );
         case 2:
            return change(
               []( auto& record ) { record.localReceiverInclude ^= true; } );
         case 3:
            return write( key, [&]( Show::RouteRecord& record ) {
               record.key = key;
               record.creationTime = 7;
               record.rpf = SmTest::rpfBy( "eth" + std::to_string( below( 3 ) ) );
               auto flags = record.routeFlags;
               flags.spTreeIs( !flags.spTree() );
               record.routeFlags = flags;
            } );
         case 4:
            return remove( key, intf.c_str() );
         default:
            for ( int i = 0; i < 4; ++i )
               remove( key, ( "eth" + std::to_string( i ) ).c_str() );
            router.ipv4.tables->routeDel( key );
      }
   }

   // What the tables have, by a mirror's whole model, and what the store has; without
   // times.
   std::map<std::string, Json> wanted() {
      const Show::Mirror& mirror = *mirrors.all().at( 0 );
      const Show::RouteFilter everything;
      const Show::RouteEntries entries( mirror, everything );
      std::map<std::string, Json> all;
      all[keyText( { Key::links, scope } )] = Show::linksJson( mirror );
      for ( const Route& route : std::as_const( *mirror.model ).route() )
         all[keyText( { Key::route, scope, route.key() } )] =
            Json( entries.of( route ) );
      return all;
   }
   std::map<std::string, Json> stands() {
      std::map<std::string, Json> all;
      // Servers that are asked all the time have no time for anything else.
      if ( servers ) poll( nullptr, 0, 20 );
      try {
         if ( reader == nullptr ) reader = openReader( { store } );
         const std::string instance = reader->instance( "r1" );
         if ( instance.empty() || instance == former ) return all;
         bool complete = false;
         reader->each(
            "r1", "", [&]( const std::string& text, const std::string& value ) {
               const auto key = parseKey( text );
               if ( !key ) return;
               if ( key->kind == Key::recorder ) {
                  const Json json = Json::parse( value );
                  complete =
                     json["complete"] == true && json["instance"] == instance;
               } else if ( ( key->kind == Key::route || key->kind == Key::links ) &&
                           key->scope == scope ) {
                  all[text] = stripped( value );
               }
            } );
         if ( !complete ) all.clear();
         present = instance;
      } catch ( const Mox::Error& ) {
         return {};
      }
      return all;
   }
   static Json stripped( const std::string& value ) {
      Json json = Json::parse( value );
      if ( json.is_array() ) json.at( 0 ).erase( "pimsm-state:created" );
      return json;
   }

   // Every member of every route by a name of its own: "(S, G) rpt eth1 join-state".
   using Members = std::map<std::string, Json>;
   static std::string nameOf( const Json& entry, const std::string& intf ) {
      return entry.at( "source-address" ).get<std::string>() + ' ' +
             entry.at( "group" ).get<std::string>() +
             ( entry.at( "is-rpt" ) == true ? " rpt " : " " ) + intf + ' ';
   }
   Members membersOf( const std::map<std::string, Json>& state ) {
      Members all;
      const auto add = [&]( const std::string& name, const Json& object ) {
         for ( const auto& [member, value] : object.items() ) {
            if ( member != "group" && member != "source-address" &&
                 member != "is-rpt" && member != "name" &&
                 member != "outgoing-interface" &&
                 member != "pimsm-state:interface" )
               all[name + member] = value;
         }
      };
      for ( const auto& [text, value] : state ) {
         if ( parseKey( text )->kind != Key::route ) continue;
         for ( const Json& each : value ) {
            const Json entry = Show::restored( each );
            add( nameOf( entry, "" ), entry );
            for ( const Json& intf : entry.at( "pimsm-state:interface" ) )
               add( nameOf( entry, intf.at( "name" ) ), intf );
         }
      }
      return all;
   }

   // Follows the history from one state: each line's former values are those that the
   // lines before it left. Returns the state after the last line.
   static Members follow( Members state, const std::vector<Event>& lines,
                          int64_t last ) {
      for ( const Event& event : lines ) {
         if ( event.id <= last ) continue;
         const Json line = Json::parse( event.body );
         if ( !line.contains( "changed" ) || event.group.empty() ||
              event.op.starts_with( "register" ) )
            continue;
         const std::string name = nameOf( line, line.value( "interface", "" ) );
         for ( const auto& [member, pair] : line["changed"].items() ) {
            const auto known = state.find( name + member );
            EXPECT_EQ( known != state.end() ? known->second : Json(), pair[0] )
               << event.body;
            if ( known != state.end() ) state.erase( known );
            if ( !pair[1].is_null() ) state[name + member] = pair[1];
         }
      }
      return state;
   }
   // In the order in which they were written; of servers, when they have a leader.
   std::vector<Event> lines() {
      std::vector<Event> all;
      until( [&] {
         all.clear();
         try {
            openReader( { store } )->history( "r1", {}, [&]( const Event& event ) {
               all.push_back( event );
            } );
            return true;
         } catch ( const StoreAway& ) {
            return false;
         }
      } );
      std::sort( all.begin(), all.end(),
                 []( const Event& a, const Event& b ) { return a.id < b.id; } );
      return all;
   }

   std::mt19937 random;
   const Scope scope{ "default", Vantu::AddressFamily::ipv4 };
   const std::string directory = router.root.path() + "-store";
   std::string store = "sqlite:" + directory;
   std::optional<Mox::Test::NatsServers> servers;
   std::optional<Mox::Test::Program> recorder;
   std::unique_ptr<Reader> reader;
   std::string present, former;  // the run that was seen last, and the one before

   void TearDown() override {
      recorder.reset();
      std::filesystem::remove_all( directory );
   }
};

TEST_P( Recording, TheStoreIsTheTablesAndTheHistorySaysHow ) {
   const bool isLong = std::getenv( "PIMSM_LONG" ) != nullptr;
   std::map<std::string, Json> state;
   const auto rests = [&] { return ( state = stands() ) == wanted(); };
   until( rests );
   Members known = membersOf( state );
   int64_t told = 0;
   until( [&] {
      const auto all = lines();
      if ( !all.empty() ) told = all.back().id;
      return !all.empty();
   } );
   // Each server of three that is killed takes seconds.
   const int plain = GetParam() > 1 ? 2 : GetParam() == 1 ? 10 : 20;
   const int rounds =
      isLong ? 10 * plain : std::max( 2, Mox::Test::stepsOf( plain ) );
   for ( int round = 0; round < rounds; ++round ) {
      const unsigned steps = 1 + below( 30 ), killed = below( 2 * steps );
      const unsigned fall = below( 2 * steps ), server = below( 3 );
      const bool falls = server < GetParam() && fall < steps;
      for ( unsigned i = 0; i < steps; ++i ) {
         if ( i == killed ) kill();
         if ( falls && i == fall ) servers->kill( server );
         step();
         router.ipv4.manager.dispatch();
      }
      if ( falls && GetParam() == 1 ) servers->start( server );
      if ( killed < steps ) start();
      until( rests );
      // A server may lag behind the one that was told.
      std::vector<Event> all;
      Members followed;
      until( [&] {
         all = lines();
         followed = follow( known, all, told );
         return followed == membersOf( state );
      } );
      EXPECT_TRUE( followed == membersOf( state ) ) << "round " << round;
      known = std::move( followed );
      if ( !all.empty() ) told = std::max( told, all.back().id );
      // Two of three go on alone.
      if ( falls && GetParam() > 1 ) {
         servers->start( server );
         servers->untilReady( server );
      }
      if ( HasFailure() ) {
         recorder->signal( SIGTERM );
         recorder->wait();
         FAIL() << recorder->err();
      }
   }
   // What has not changed is not written again.
   kill();
   start();
   until( rests );
   for ( const Event& event : lines() )
      EXPECT_FALSE( event.body.find( present ) != std::string::npos &&
                    !event.group.empty() )
         << event.body;
}

INSTANTIATE_TEST_SUITE_P( Stores, Recording, testing::Values( 0, 1, 3 ) );

class FileRecording : public Recording {};
INSTANTIATE_TEST_SUITE_P( Stores, FileRecording, testing::Values( 0 ) );

// What happens while the store cannot be written stands when it is back: a file that
// another process holds, one without room, and one that was removed.
TEST_P( FileRecording, AStoreThatWasAwayGetsEverything ) {
   const auto rests = [&] { return stands() == wanted(); };
   until( rests );
   const auto live = [&]( const char* complaint ) {
      const auto told = recorder->err().size();
      for ( int i = 0; i < 20; ++i ) step();
      router.ipv4.manager.dispatch();
      EXPECT_TRUE( recorder->until( [&] {
         return recorder->err().find( complaint, told ) != std::string::npos;
      } ) )
         << complaint;
      for ( int i = 0; i < 20; ++i ) step();
   };
   const std::string file = directory + "/r1.sqlite";
   sqlite3* other = nullptr;
   ASSERT_EQ( sqlite3_open( file.c_str(), &other ), SQLITE_OK );
   sqlite3_exec( other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr );
   live( "database is locked" );
   sqlite3_close( other );
   until( rests );
   rlimit before{};
   ASSERT_EQ( prlimit( recorder->pid(), RLIMIT_FSIZE, nullptr, &before ), 0 );
   const rlimit none{ 4096, before.rlim_max };
   ASSERT_EQ( prlimit( recorder->pid(), RLIMIT_FSIZE, &none, nullptr ), 0 );
   live( "trying again" );
   prlimit( recorder->pid(), RLIMIT_FSIZE, &before, nullptr );
   until( rests );
   for ( const char* ending : { "", "-wal", "-shm" } )
      std::filesystem::remove( file + ending );
   live( "has been replaced" );
   until( rests );
   // It is not told twice, and not for what did not happen.
   size_t back = 0;
   openReader( { store } )->history( "r1", {}, [&]( const Event& event ) {
      back += event.op == "store-back" ? 1 : 0;
   } );
   EXPECT_EQ( back, 1u );
}

// A value that servers would refuse is named instead, until it is smaller.
TEST_P( FileRecording, WhatIsTooLargeIsNamed ) {
   const auto edit = [&]( bool there ) {
      for ( int i = 0; i < 9000; ++i ) {
         const std::string intf =
            "an-interface-of-very-many-" + std::to_string( i );
         if ( !there ) {
            remove( sg, intf.c_str() );
            continue;
         }
         write( sg, intf.c_str(), [&]( Show::IntfRecord& record ) {
            record.key = { sg, SmTest::intfId( intf ) };
            record.forward = record.localReceiverInclude = true;
            record.joinState = Routing::Pim::SparseMode::Intf::joined;
         } );
      }
   };
   write( sg, [&]( Show::RouteRecord& record ) { record.key = sg; } );
   until( [&] { return !stands().empty(); } );
   for ( const bool there : { true, false } ) {
      edit( there );
      until( [&] {
         const std::string key = keyText( { Key::table, scope } );
         const Json table =
            Json::parse( openReader( { store } )->values( "r1", { key } )[key] );
         return table.contains( "too-large" ) == there &&
                ( !there || table["too-large"] ==
                               Json{ keyText( { Key::route, scope, sg } ) } );
      } );
   }
}

}
}
