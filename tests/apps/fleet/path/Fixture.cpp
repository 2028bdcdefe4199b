#include "tests/apps/fleet/path/Fixture.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "apps/fleet/path/Facts.h"
#include "apps/mirror/Events.h"

namespace Fleet::Test {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* kRun = "run";

std::vector<std::string> split( const std::string& text, char at ) {
   std::vector<std::string> parts;
   std::istringstream in( text );
   for ( std::string part; std::getline( in, part, at ); )
      if ( !part.empty() ) parts.push_back( part );
   return parts;
}

// What the lines say, before it is written.
class Script {
 public:
   Script( const std::vector<std::string>& lines, const RouteKey& stream )
      : stream_( stream ) {
      const bool ipv4 = stream.group.family() == Vantu::AddressFamily::ipv4;
      scope_ = { "default", stream.group.family() };
      all_ = ipv4 ? "224.0.0.0/4" : "ff00::/8";
      for ( const std::string& line : lines ) read( line );
   }

   std::map<std::string, std::map<std::string, std::string>> values() {
      for ( const auto& each : unrecorded_ ) routers_.erase( each );
      std::map<std::string, std::map<std::string, std::string>> out;
      for ( auto& [name, router] : routers_ ) {
         auto& values = out[name];
         values["recorder"] = Json{ { "format", 1 },
                                    { "instance", router.run },
                                    { "complete", !router.incomplete } }
                                 .dump();
         Json table{ { "writer", router.gone ? "gone" : "running" } };
         if ( router.gone ) table["since"] = timed( now - 60'000 );
         if ( router.forwarderGone ) table["forwarder"] = "gone";
         values[key( Key::table )] = table.dump();
         values[key( Key::links )] = links( router ).dump();
         values[key( Key::rps )] = rps( name, router ).dump();
         for ( const auto& [of, json] : router.routes )
            values[key( Key::route, of )] = json.dump();
         if ( !router.registers.is_null() )
            values[key( Key::registers, stream_ )] = router.registers.dump();
         if ( !router.rates.is_null() ) {
            Key rates{ Key::rates, scope_, {}, pageOf( stream_ ) };
            values[keyText( rates )] = Json{
               { "at", timed( now ) },
               { "stream",
                 { router.rates } } }.dump();
         }
         for ( const auto& [kind, value] : router.puts )
            values[kind == "links" ? key( Key::links )
                   : kind == "rps" ? key( Key::rps )
                   : kind == "wc"  ? key( Key::route, wildcard() )
                   : kind == "sg"  ? key( Key::route, stream_ )
                                   : kind] = value;
      }
      return out;
   }
   const std::set<std::string>& stale() const { return stale_; }
   const Scope& scope() const { return scope_; }

 private:
   struct Router {
      Json interfaces = Json::array(), neighbors = Json::array();
      std::map<RouteKey, Json> routes;
      Json registers, rates;
      std::vector<std::pair<std::string, std::string>> puts;
      std::vector<std::string> ranges;
      std::string rp;
      std::string run = kRun;
      bool incomplete = false, gone = false, forwarderGone = false;
   };

   std::string key( Key::Kind kind, const RouteKey& of = {} ) const {
      return keyText( { kind, scope_, of, 0 } );
   }
   RouteKey wildcard() const {
      return { IpGenAddr::unspecified( scope_.family ), stream_.group };
   }
   static std::string timed( Time time ) { return Show::utcText( time ); }

   Json& interface( const std::string& place ) {
      const auto parts = split( place, '.' );
      for ( Json& each : routers_[parts.at( 0 )].interfaces )
         if ( each["name"] == parts.at( 1 ) ) return each;
      throw std::runtime_error( "no interface " + place );
   }

   void read( const std::string& line ) {
      std::istringstream in( line );
      std::string first, second;
      in >> first >> second;
      if ( !second.empty() && second.back() == ';' ) second.pop_back();
      if ( first == "rp" ) {
         rp_ = second;
         for ( std::string owner; in >> owner; ) {
            owners_.insert( owner );
            routers_[owner].interfaces.push_back( { { "name", "lo" },
                                                    { "address", rp_ },
                                                    { "prefix-length", bits() } } );
         }
      } else if ( first == "ssm" ) {
         ssm_ = second;
      } else if ( first == "link" ) {
         link( std::stoi( second.substr( 1 ) ), in );
      } else if ( first == "stale" ) {
         stale_.insert( second );
      } else if ( first == "unrecorded" ) {
         unrecorded_.insert( second );
      } else if ( first == "incomplete" ) {
         routers_[second].incomplete = true;
      } else if ( first == "compared" ) {
         routers_[second].run = "another";
      } else if ( first == "gone" ) {
         routers_[second].gone = true;
      } else if ( first == "halted" ) {
         routers_[second].forwarderGone = true;
      } else if ( first == "down" ) {
         Json& is = interface( second );
         is["state"] = "down";
         for ( const char* lost : { "gen-id", "designated-router", "dr-address" } )
            is.erase( lost );
         // In IPv6 the link-local address goes.
         if ( is.contains( "secondary-address" ) ) {
            is["address"] = is["secondary-address"][0];
            is.erase( "secondary-address" );
         }
      } else if ( first == "further" ) {
         std::string network;
         in >> network;
         Json& is = interface( second );
         is["secondary-address"].push_back( split( network, '/' ).at( 0 ) );
         const auto length = std::to_string( int( is["prefix-length"] ) );
         is["network"] =
            Json::array( { network, std::string( is["address"] ) + '/' + length } );
      } else if ( first == "dr" ) {
         interface( second )["designated-router"] = true;
      } else if ( first == "no" ) {
         withoutGenIds();
      } else {
         ofPlace( line, first, second, in );
      }
   }

   void ofPlace( const std::string& line, const std::string& first,
                 const std::string& second, std::istringstream& in ) {
      std::string third;
      if ( first == "deaf" || first == "foreign" ) {
         in >> third;
         Json& list = routers_[split( second, '.' )[0]].neighbors;
         const std::string name = split( second, '.' )[1];
         if ( first == "foreign" ) {
            list.push_back( { { "interface", name }, { "address", third } } );
            interface( second )["dr-address"] = third;
            interface( second )["designated-router"] = false;
            return;
         }
         for ( size_t i = list.size(); i-- > 0; )
            if ( list[i]["interface"] == name &&
                 list[i]["gen-id"] == genId( third, list[i]["address"] ) )
               list.erase( i );
      } else if ( first == "option" ) {
         const std::string address = interface( second )["address"];
         for ( auto& [name, router] : routers_ )
            for ( Json& each : router.neighbors )
               if ( each["address"] == address )
                  each["lan-prune-delay"]["present"] = false;
      } else if ( first == "range" ) {
         std::getline( in >> std::ws, third );
         routers_[second].ranges.push_back( third );
      } else if ( first == "rp-of" ) {
         in >> routers_[second].rp;
      } else if ( first == "put" ) {
         in >> third;
         std::string value;
         std::getline( in >> std::ws, value );
         routers_[second].puts.emplace_back( third, value );
      } else if ( second == "registers" ) {
         routers_[first].registers = { { "register-oif", true },
                                       { "dr-discovered", true } };
      } else if ( second == "stopped" ) {
         routers_[first].registers = { { "no-register-oif", true },
                                       { "dr-discovered", true } };
      } else if ( second == "samples" ) {
         samples( routers_[first], in );
      } else {
         route( first, second, line );
      }
   }

   unsigned bits() const { return Vantu::addressBits( scope_.family ); }
   // Of a router's interface with that address.
   static uint32_t genId( const std::string& router, const std::string& address ) {
      return static_cast<uint32_t>( std::hash<std::string>()( router + address ) );
   }
   void withoutGenIds() {
      for ( auto& [name, router] : routers_ )
         for ( Json* list : { &router.interfaces, &router.neighbors } )
            for ( Json& each : *list ) each.erase( "gen-id" );
   }

   void link( int length, std::istringstream& in ) {
      struct End {
         std::string router, name;
         std::vector<std::string> addresses;
      };
      std::vector<End> ends;
      IpGenAddr highest = IpGenAddr::unspecified( scope_.family );
      for ( std::string place, address; in >> place >> address; ) {
         const auto parts = split( place, '.' );
         ends.push_back( { parts.at( 0 ), parts.at( 1 ), split( address, ',' ) } );
         highest = std::max( highest, IpGenAddr( ends.back().addresses[0] ) );
      }
      const std::string dr = Vantu::valueToStrep( highest );
      for ( const End& end : ends ) {
         const std::string& address = end.addresses[0];
         Json is{ { "name", end.name },
                  { "address", address },
                  { "prefix-length", length },
                  { "state", "up" },
                  { "dr-address", dr },
                  { "designated-router", address == dr },
                  { "gen-id", genId( end.router, address ) } };
         for ( size_t i = 1; i < end.addresses.size(); ++i )
            is["secondary-address"].push_back( end.addresses[i] );
         for ( const End& other : ends ) {
            if ( &other == &end ) continue;
            Json neighbor{ { "interface", other.name },
                           { "address", address },
                           { "gen-id", genId( end.router, address ) },
                           { "lan-prune-delay", { { "present", true } } } };
            if ( is.contains( "secondary-address" ) )
               neighbor["secondary-address"] = is["secondary-address"];
            routers_[other.router].neighbors.push_back( neighbor );
         }
         routers_[end.router].interfaces.push_back( is );
      }
   }

   static Json links( const Router& router ) {
      return { { "interface", router.interfaces },
               { "neighbor", router.neighbors } };
   }

   Json rps( const std::string& name, const Router& router ) const {
      Json ranges = Json::array();
      if ( !rp_.empty() )
         ranges.push_back( { { "groups", all_ },
                             { "rule", "configured" },
                             { "rp-address", router.rp.empty() ? rp_ : router.rp },
                             { "this-router", owners_.count( name ) != 0 } } );
      if ( !ssm_.empty() )
         ranges.push_back( { { "groups", ssm_ }, { "rule", "source-specific" } } );
      for ( const std::string& each : router.ranges ) {
         const size_t is = each.find( " = " );
         ranges.push_back(
            { { "groups", each.substr( 0, is ) }, { "rule", "source-specific" } } );
         if ( is != std::string::npos )
            ranges.back()["prefixes"] = split( each.substr( is + 3 ), ' ' );
      }
      return { { "rp-range", ranges } };
   }

   void samples( Router& router, std::istringstream& in ) const {
      Json samples = Json::array();
      bool flows = false;
      for ( std::string each; in >> each; ) {
         samples.push_back( each );
         flows = flows || each != "0";
      }
      router.rates = { { "group", Vantu::valueToStrep( stream_.group ) },
                       { "source-address", Vantu::valueToStrep( stream_.source ) },
                       { "packets", "12345" },
                       { "bits-per-second", flows ? "4100000" : "0" },
                       { "samples", samples } };
   }

   void route( const std::string& router, const std::string& kind,
               const std::string& line ) {
      if ( kind != "wc" && kind != "sg" && kind != "sg-" && kind != "rpt" )
         throw std::runtime_error( "not understood: " + line );
      const RouteKey key = kind == "wc" ? wildcard() : stream_;
      Json entry{ { "group", Vantu::valueToStrep( key.group ) },
                  { "source-address",
                    kind == "wc" ? "*" : Vantu::valueToStrep( key.source ) } };
      if ( kind == "wc" || kind == "rpt" ) entry["is-rpt"] = true;
      if ( kind == "sg" ) entry["is-spt"] = true;
      const auto parts = split( line, ';' );
      path( entry, parts[0], kind );
      std::string list = parts.size() > 1 ? parts[1] : "";
      // A comma without a blank is part of a word.
      for ( size_t at; ( at = list.find( ", " ) ) != std::string::npos; )
         list.replace( at, 2, "\n" );
      for ( const std::string& each : split( list, '\n' ) )
         entry["pimsm-state:interface"].push_back( routeIntf( each ) );
      routers_[router].routes[key].push_back( entry );
   }

   static void path( Json& entry, const std::string& text,
                     const std::string& kind ) {
      std::istringstream in( text );
      std::string word, interface;
      bool joined = kind != "rpt";
      Time created = now - 1000;
      Json rpf;
      while ( in >> word ) {
         if ( word == "in" ) in >> interface;
         if ( word == "via" ) in >> word, rpf["neighbor"] = word;
         if ( word == "attached" ) rpf["attached"] = true, joined = false;
         if ( word == "unjoined" ) joined = false;
         if ( word == "old" ) created = now - 3'600'000;
      }
      if ( !interface.empty() ) {
         entry["incoming-interface"] = interface;
         rpf["interface"] = interface;
         if ( rpf.contains( "neighbor" ) ) entry["rpf-neighbor"] = rpf["neighbor"];
         entry["pimsm-state:rpf"] = rpf;
      }
      if ( joined ) entry["pimsm-state:upstream-join-state"] = "joined";
      entry["pimsm-state:created"] = timed( created );
   }

   static Json routeIntf( const std::string& text ) {
      std::istringstream in( text );
      std::string word;
      in >> word;
      Json is{ { "name", word } };
      bool forwards = false;
      while ( in >> word ) {
         if ( word == "join" ) is["join-state"] = "join", forwards = true;
         if ( word == "pruning" )
            is["join-state"] = "prune-pending", forwards = true;
         if ( word == "member" )
            is["local-receiver-include"] = true, forwards = true;
         if ( word == "excludes" ) is["local-receiver-exclude"] = true;
         if ( word == "on" ) forwards = true;
         if ( word == "won" ) is["assert-state"] = "i-am-assert-winner";
         if ( word == "lost" ) {
            in >> word;
            is["assert-state"] = "i-am-assert-loser";
            is["assert-winner"] = { { "address", word } };
            is["not-forwarding-reason"] = "lost_assert(S,G)";
            forwards = false;
         }
         if ( word == "off" ) {
            forwards = false;
            if ( in >> word ) is["not-forwarding-reason"] = word;
         }
      }
      if ( forwards ) is["forwarding"] = true;
      return is;
   }

   RouteKey stream_;
   Scope scope_;
   std::string all_, rp_, ssm_;
   std::set<std::string> owners_, stale_, unrecorded_;
   std::map<std::string, Router> routers_;
};

}

Fixture::Fixture( const std::vector<std::string>& lines, const RouteKey& stream )
   : root_( std::in_place ) {
   fill( root_->path(), lines, stream );
}

Fixture::Fixture( const std::string& directory,
                  const std::vector<std::string>& lines, const RouteKey& stream ) {
   fill( directory, lines, stream );
}

void Fixture::fill( const std::string& directory,
                    const std::vector<std::string>& lines,
                    const RouteKey& stream ) {
   Script script( lines, stream );
   scope_ = script.scope();
   values_ = script.values();
   const std::string store = "sqlite:" + directory;
   for ( const auto& [router, values] : values_ ) {
      writers_[router] = openWriter( { store }, router, kRun, {} );
      std::vector<Writer::Put> puts;
      for ( const auto& [key, value] : values ) puts.push_back( { key, value, 0 } );
      writers_[router]->write( {}, puts );
   }
   for ( const std::string& each : script.stale() ) writers_.erase( each );
   reader_ = openReader( { store } );
}

void Fixture::change( const std::vector<std::string>& lines,
                      const RouteKey& stream ) {
   for ( const auto& [router, values] : Script( lines, stream ).values() )
      for ( const auto& [key, value] : values )
         if ( std::exchange( values_[router][key], value ) != value )
            put( router, key, value );
}

void Fixture::put( const std::string& router, const std::string& key,
                   const std::string& value ) {
   writers_.at( router )->write( {}, { { key, value, 0 } } );
}

void Fixture::tell( const std::string& router, const Event& event ) {
   writers_.at( router )->write( { event }, {} );
}

void Fixture::beat() {
   for ( const auto& [router, writer] : writers_ ) writer->beat();
}

}
