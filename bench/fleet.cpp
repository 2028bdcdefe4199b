// Questions to the stores of many routers: a path, a path to one receiver, a check of one
// group; and, with `lines`, to a history of so many lines, ten milliseconds apart.
//
// The routers are a tree, three below each; all streams come from its top and go to all
// of the lowest routers. Each router has four interfaces of PIM, and each of its routes
// the same streams. Peers: none; what is read is counted.
//
// `bench_fleet <routers> <routes a router> <directory, or nats://...> [lines]`; the store
// is filled if it is empty, and stays.

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "apps/fleet/path/Check.h"
#include "apps/fleet/path/Path.h"
#include "apps/store/Clocks.h"

namespace Fleet {
namespace {

using Json = nlohmann::ordered_json;
constexpr unsigned kBelow = 3;

struct Size {
   unsigned routers = 1000, routes = 1000;
};

std::string nameOf( unsigned router ) {
   return fmt::format( "r{:05}", router );
}

// Of the link above a router; the upper end has .1, the lower one .2.
std::string addressOf( unsigned link, unsigned end ) {
   return fmt::format( "10.{}.{}.{}", link / 256, link % 256, end );
}

RouteKey streamOf( unsigned number ) {
   return { IpGenAddr( "192.168.0.7" ),
            IpGenAddr( fmt::format( "239.1.{}.{}", number / 256, number % 256 ) ) };
}

std::vector<unsigned> belowOf( unsigned router, const Size& size ) {
   std::vector<unsigned> below;
   for ( unsigned i = 1; i <= kBelow; ++i )
      if ( router * kBelow + i < size.routers )
         below.push_back( router * kBelow + i );
   return below;
}

Json interfaceJson( const std::string& name, const std::string& address, bool dr ) {
   return { { "name", name },          { "address", address },
            { "prefix-length", 24 },   { "state", "up" },
            { "dr-address", address }, { "designated-router", dr } };
}

Json linksJson( unsigned router, const Size& size ) {
   Json interfaces = Json::array(), neighbors = Json::array();
   const auto neighbor = [&]( const std::string& name,
                              const std::string& address ) {
      neighbors.push_back( { { "interface", name },
                             { "address", address },
                             { "gen-id", 12345 },
                             { "lan-prune-delay",
                               { { "present", true },
                                 { "override-interval", 2500 },
                                 { "propagation-delay", 500 } } } } );
   };
   interfaces.push_back( interfaceJson(
      "eth0", router == 0 ? "192.168.0.1" : addressOf( router, 2 ), true ) );
   if ( router != 0 ) neighbor( "eth0", addressOf( router, 1 ) );
   unsigned number = 1;
   for ( const unsigned below : belowOf( router, size ) ) {
      const std::string name = fmt::format( "eth{}", number++ );
      interfaces.push_back( interfaceJson( name, addressOf( below, 1 ), false ) );
      neighbor( name, addressOf( below, 2 ) );
   }
   if ( number == 1 )
      interfaces.push_back( interfaceJson(
         "eth1", fmt::format( "172.{}.{}.1", router / 256, router % 256 ), true ) );
   return { { "interface", interfaces }, { "neighbor", neighbors } };
}

std::string routeJson( unsigned router, const RouteKey& stream, const Size& size ) {
   const size_t below = belowOf( router, size ).size();
   Json entry{ { "group", Vantu::valueToStrep( stream.group ) },
               { "source-address", Vantu::valueToStrep( stream.source ) },
               { "is-spt", true },
               { "incoming-interface", "eth0" },
               { "mode", "ietf-pim-base:pim-asm" },
               { "pimsm-state:created", "2026-11-22T17:00:00.000Z" } };
   if ( router == 0 ) {
      entry["pimsm-state:rpf"] = { { "interface", "eth0" }, { "attached", true } };
   } else {
      entry["rpf-neighbor"] = addressOf( router, 1 );
      entry["pimsm-state:upstream-join-state"] = "joined";
      entry["pimsm-state:rpf"] = { { "interface", "eth0" },
                                   { "neighbor", addressOf( router, 1 ) } };
   }
   entry["pimsm-state:interface"] = Json::array();
   for ( size_t i = 1; i <= std::max<size_t>( below, 1 ); ++i ) {
      Json is{ { "name", fmt::format( "eth{}", i ) }, { "forwarding", true } };
      if ( below == 0 ) {
         is["local-receiver-include"] = true;
      } else {
         is["join-state"] = "join";
      }
      entry["pimsm-state:interface"].push_back( is );
   }
   return Json::array( { entry } ).dump();
}

std::vector<Writer::Put> putsOf( unsigned router, const Size& size ) {
   const Scope scope{ "default", Vantu::AddressFamily::ipv4 };
   std::vector<Writer::Put> puts;
   const auto put = [&]( const Key& key, const std::string& value ) {
      puts.push_back( { keyText( key ), value, 0 } );
   };
   put( { Key::recorder, {}, {}, 0 },
        R"({"format":1,"instance":"run","complete":true})" );
   put( { Key::table, scope, {}, 0 }, R"({"writer":"running"})" );
   put( { Key::links, scope, {}, 0 }, linksJson( router, size ).dump() );
   put( { Key::rps, scope, {}, 0 }, R"({"rp-range":[]})" );
   std::map<uint32_t, Json> pages;
   for ( unsigned i = 0; i < size.routes; ++i ) {
      const RouteKey stream = streamOf( i );
      put( { Key::route, scope, stream, 0 }, routeJson( router, stream, size ) );
      pages[pageOf( stream )].push_back(
         { { "group", Vantu::valueToStrep( stream.group ) },
           { "source-address", Vantu::valueToStrep( stream.source ) },
           { "packets", "123456" },
           { "octets", "123456000" },
           { "packets-per-second", "100.0" },
           { "bits-per-second", "800000" },
           { "samples", { "1000", "998" } } } );
   }
   for ( const auto& [page, streams] : pages )
      put( { Key::rates, scope, {}, page },
           Json{ { "at", "2026-11-22T18:00:00.000Z" }, { "stream", streams } }
              .dump() );
   return puts;
}

double timed( const std::string& what, const std::function<std::string()>& run ) {
   const auto began = std::chrono::steady_clock::now();
   const std::string told = run();
   const std::chrono::duration<double> took =
      std::chrono::steady_clock::now() - began;
   fmt::print( "{:<24} {:8.1f} ms   {}\n", what, took.count() * 1e3, told );
   return took.count();
}

// Servers reserve what a router may need.
Keeping keeping() {
   return { 1e9, 1ULL << 33U, 4ULL << 20U, 1 };
}

std::unique_ptr<Writer> writerOf( const std::string& store, unsigned router ) {
   return openWriter( { store }, nameOf( router ), "run", keeping() );
}

void fill( const std::string& store, const Size& size ) {
   for ( unsigned i = 0; i < size.routers; ++i )
      writerOf( store, i )->write( {}, putsOf( i, size ) );
}

// Recorders of all routers, as of a fleet that lives: that many open stores.
class Recorders {
 public:
   Recorders( const std::string& store, const Size& size ) {
      for ( unsigned i = 0; i < size.routers; ++i )
         all_.push_back( writerOf( store, i ) );
      thread_ = std::jthread( [this]( const std::stop_token& end ) {
         while ( !end.stop_requested() ) {
            for ( const auto& each : all_ ) each->beat();
            std::this_thread::sleep_for( std::chrono::seconds( 1 ) );
         }
      } );
   }

 private:
   std::vector<std::unique_ptr<Writer>> all_;
   std::jthread thread_;
};

void writeHistory( const std::string& store, unsigned lines, const Size& size ) {
   constexpr unsigned kBatch = 20'000;
   constexpr int64_t kApart = 10;  // ms
   const int64_t began = systemNow() - int64_t{ lines } * kApart;
   const auto writer = writerOf( store, 0 );
   std::vector<Event> events;
   for ( unsigned i = 0; i < lines; ++i ) {
      const std::string group =
         Vantu::valueToStrep( streamOf( i % size.routes ).group );
      events.push_back(
         { i + 1, began + i * kApart, "default", 4, group, "192.168.0.7", "update",
           fmt::format( R"({{"seq":"{}","group":"{}","changed":"{:400}"}})", i,
                        group, "" ) } );
      if ( events.size() < kBatch && i + 1 != lines ) continue;
      writer->write( events, {} );
      events.clear();
   }
}

void askHistory( const std::string& store ) {
   const auto recorder = writerOf( store, 0 );
   constexpr int64_t kMinute = 60'000;  // ms
   for ( int round = 0; round < 3; ++round )
      for ( const int64_t minutes : { 10, 60 } )
         for ( const bool all : { false, true } ) {
            Past past;
            past.since = systemNow() - minutes * kMinute;
            if ( !all ) past.group = Vantu::valueToStrep( streamOf( 5 ).group );
            timed( fmt::format( "{} min of {}", minutes, all ? "all" : "a group" ),
                   [&] {
                      size_t lines = 0;
                      openReader( { store } )
                         ->history( nameOf( 0 ), past,
                                    [&]( const Event& ) { ++lines; } );
                      return fmt::format( "{} lines", lines );
                   } );
         }
}

void ask( const std::string& store, const Size& size ) {
   const Recorders recorders( store, size );
   PathQuestion question;
   question.scope = { "default", Vantu::AddressFamily::ipv4 };
   question.stream = streamOf( 5 );
   const auto path = [&] {
      return findPath( *openReader( { store } ), question ).verdict;
   };
   const unsigned last = size.routers - 1;
   for ( int round = 0; round < 3; ++round ) {
      question.receiver.reset();
      timed( "path", path );
      timed( "index of links", [&] {
         auto none = question;
         none.receiver = IpGenAddr( "203.0.113.1" );
         return findPath( *openReader( { store } ), none ).verdict;
      } );
      question.receiver =
         IpGenAddr( fmt::format( "172.{}.{}.9", last / 256, last % 256 ) );
      timed( "index and path --to", path );
      const IpGenPrefix group( question.stream.group );
      timed( "check of a group", [&] {
         return checkText( checkFleet( *openReader( { store } ),
                                       { question.scope, group, 0, {} } ) );
      } );
   }
   timed( "check of all", [&] {
      return checkText(
         checkFleet( *openReader( { store } ), { question.scope, {}, 0, {} } ) );
   } );
}

}
}

int main( int argc, char** argv ) {
   if ( argc < 4 || argc > 5 ) {
      fmt::print(
         stderr,
         "usage: bench_fleet <routers> <routes> <directory, or nats://...> "
         "[lines]\n" );
      return 2;
   }
   const Fleet::Size size{ static_cast<unsigned>( std::stoul( argv[1] ) ),
                           static_cast<unsigned>( std::stoul( argv[2] ) ) };
   std::string store = argv[3];
   if ( !store.starts_with( "nats://" ) ) {
      std::filesystem::create_directories( store );
      store = "sqlite:" + store;
   }
   if ( Fleet::openReader( { store } )->routers().empty() ) {
      Fleet::timed( "fill", [&] { return Fleet::fill( store, size ), ""; } );
      if ( argc == 5 )
         Fleet::timed( "history", [&] {
            const unsigned lines = static_cast<unsigned>( std::stoul( argv[4] ) );
            return Fleet::writeHistory( store, lines, size ), "";
         } );
   }
   Fleet::ask( store, size );
   if ( argc == 5 ) Fleet::askHistory( store );
}
