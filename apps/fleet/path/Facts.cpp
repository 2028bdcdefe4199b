#include "apps/fleet/path/Facts.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>

#include "apps/fleet/path/detail/Members.h"

namespace Fleet {

using Mox::ParseError;

namespace {

// More than a router has: joining links takes more than linear time.
constexpr size_t kInterfaces = 4096, kNeighbors = 16'384;

bool among( const IpGenAddr& wanted, const IpGenAddr& first,
            const std::vector<IpGenAddr>& others ) {
   return wanted == first ||
          std::find( others.begin(), others.end(), wanted ) != others.end();
}

// The networks of an interface. Where they are not told, secondary addresses have the
// length of the first one: in IPv6 the link-local one has that of the others, too.
std::vector<IpGenPrefix> networksOf( const Interface& interface,
                                     const Members& members ) {
   std::vector<IpGenPrefix> networks = members.prefixes( "network" );
   if ( !networks.empty() ) return networks;
   const uint64_t length = members.number( "prefix-length", 128 ).value_or( 128 );
   const auto add = [&]( const IpGenAddr& address ) {
      if ( address.isUnspecified() || address.isLinkLocal() ) return;
      const unsigned bits = Vantu::addressBits( address.family() );
      if ( length > bits ) throw ParseError( "prefix-length is too large" );
      networks.emplace_back( address, static_cast<unsigned>( length ) );
   };
   add( interface.address );
   for ( const IpGenAddr& each : interface.secondary ) add( each );
   return networks;
}

Interface interfaceFrom( const Json& json ) {
   constexpr std::pair<const char*, Interface::State> kStates[] = {
      { "unknown", Interface::unknown },
      { "up", Interface::up },
      { "down", Interface::down },
      { "without-carrier", Interface::withoutCarrier } };
   const Members members( json );
   Interface is;
   is.name = members.text( "name" );
   is.address = members.address( "address" );
   is.secondary = members.addresses( "secondary-address" );
   is.networks = networksOf( is, members );
   is.state = members.choice( "state", kStates );
   is.isDr = members.flag( "designated-router" );
   is.dr = members.address( "dr-address" );
   is.genId = members.word( "gen-id" );
   return is;
}

Neighbor neighborFrom( const Json& json ) {
   const Members members( json );
   Neighbor is;
   is.interface = members.text( "interface" );
   is.address = members.address( "address" );
   is.secondary = members.addresses( "secondary-address" );
   is.genId = members.word( "gen-id" );
   if ( const Json* delay = members.object( "lan-prune-delay" ) ) {
      const Members option( *delay );
      is.lanPruneDelay = option.flag( "present" );
      is.tracks = option.flag( "t-bit" );
   }
   return is;
}

}

bool Interface::has( const IpGenAddr& any ) const {
   return among( any, address, secondary );
}

bool Neighbor::has( const IpGenAddr& any ) const {
   return among( any, address, secondary );
}

RecorderFacts recorderFacts( std::string_view value ) {
   const Json json = documentOf( value );
   const Members members( json );
   return { members.number( "format", UINT32_MAX ).value_or( 0 ),
            members.text( "instance" ), members.flag( "complete" ) };
}

TableFacts tableFacts( std::string_view value ) {
   constexpr std::pair<const char*, bool> kWriters[] = { { "running", false },
                                                         { "gone", true } };
   const Json json = documentOf( value );
   const Members members( json );
   return { members.choice( "writer", kWriters ), members.time( "since" ),
            members.choice( "forwarder", kWriters ) };
}

Links linkFacts( std::string_view value ) {
   const Json json = documentOf( value );
   const Members members( json );
   Links links;
   if ( const Json* all = members.array( "interface", kInterfaces ) )
      for ( const Json& each : *all )
         links.interfaces.push_back( interfaceFrom( each ) );
   if ( const Json* all = members.array( "neighbor", kNeighbors ) )
      for ( const Json& each : *all )
         links.neighbors.push_back( neighborFrom( each ) );
   return links;
}

std::vector<RpRange> rpFacts( std::string_view value ) {
   constexpr std::pair<const char*, std::optional<RpRange::Rule>> kRules[] = {
      { "unknown", std::nullopt },
      { "none", std::nullopt },
      { "configured", RpRange::configured },
      { "source-specific", RpRange::sourceSpecific },
      { "embedded", RpRange::embedded } };
   const Json json = documentOf( value );
   std::vector<RpRange> ranges;
   const Json* all = Members( json ).array( "rp-range" );
   if ( all == nullptr ) return ranges;
   for ( const Json& each : *all ) {
      const Members members( each );
      const auto rule = members.choice( "rule", kRules );
      if ( !rule ) continue;
      RpRange range{
         members.text( "groups" ),      {}, *rule, members.address( "rp-address" ),
         members.flag( "this-router" ), {} };
      if ( const Json* permitted = members.array( "prefixes" ) ) {
         range.permitted.emplace();
         for ( const Json& prefix : *permitted )
            range.permitted->push_back(
               Members( Json{ { "prefix", prefix } } ).prefix( "prefix" ) );
      }
      const bool prefix =
         *rule != RpRange::sourceSpecific || std::isdigit( range.text[0] ) != 0;
      if ( prefix ) range.groups = members.prefix( "groups" );
      ranges.push_back( std::move( range ) );
   }
   return ranges;
}

Time timeOf( std::string_view text ) {
   const std::string copy( text.substr( 0, 32 ) );
   std::tm parts{};
   int ms = 0, end = 0;
   const int read = std::sscanf(
      copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ%n", &parts.tm_year, &parts.tm_mon,
      &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &ms, &end );
   if ( read != 7 || static_cast<size_t>( end ) != text.size() || ms < 0 ||
        parts.tm_year < 1970 )
      throw ParseError( "a time is not of the form 2026-11-22T18:00:00.000Z" );
   parts.tm_year -= 1900;
   parts.tm_mon -= 1;
   return static_cast<Time>( timegm( &parts ) ) * 1000 + ms;
}

}
