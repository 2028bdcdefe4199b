#include "apps/config/detail/VrfReader.h"

#include <fmt/format.h>

#include "apps/config/detail/Values.h"

namespace Agent {

namespace {

// The R bit of an assert stands above the preference (RFC 7761, 4.9.6).
constexpr uint32_t kMaxPreference = 255;  // an administrative distance: 8 bits

IpGenAddr readNeighbor( Section& section, const VrfConfig& vrf,
                        AddressFamily family ) {
   std::optional<Place> place = section.take( "neighbor" );
   if ( !place ) return IpGenAddr::unspecified( family );
   auto neighbor = Section::convert<IpGenAddr>( *place, "neighbor" );
   if ( neighbor.family() != family ) {
      place->fail( "neighbor and prefix differ in family" );
   }
   checkUnicast( *place, neighbor );
   if ( isOwn( vrf, neighbor ) )
      place->fail( fmt::format( "neighbor: {} is an address of this router",
                                valueToStrep( neighbor ) ) );
   return neighbor;
}

void readMetric( Section& section, uint32_t& preference, uint32_t& metric ) {
   section.value( "preference", preference );
   if ( preference > kMaxPreference ) {
      section.require( "preference" )
         .fail( fmt::format( "preference: {} is above {}", preference,
                             kMaxPreference ) );
   }
   section.value( "metric", metric );
}

BackupConfig readBackup( const Place& place, const VrfConfig& vrf,
                         AddressFamily family ) {
   Section section( place, "backup" );
   BackupConfig out;
   out.interface = readInterfaceName( section.require( "interface" ), vrf );
   out.neighbor = readNeighbor( section, vrf, family );
   readMetric( section, out.preference, out.metric );
   section.finish();
   return out;
}

}

RpfRouteConfig VrfReader::readRpfRoute( const Place& place, const VrfConfig& vrf ) {
   Section section( place, "rpf-route" );
   RpfRouteConfig out;
   Place prefix = section.require( "prefix" );
   out.prefix = Section::convert<IpGenPrefix>( prefix, "prefix" );
   if ( out.prefix.isNone() ) prefix.fail( "prefix: expected address/length" );
   checkNew( prefix, "prefix", rpfPrefixes_, out.prefix,
             valueToStrep( out.prefix ) );
   out.interface = readInterfaceName( section.require( "interface" ), vrf );
   out.neighbor = readNeighbor( section, vrf, out.prefix.family() );
   readMetric( section, out.preference, out.metric );
   if ( std::optional<Place> backup = section.take( "backup" ) )
      out.backup = readBackup( *backup, vrf, out.prefix.family() );
   section.finish();
   return out;
}

RpConfig VrfReader::readRp( const Place& place ) {
   Section section( place, "rp" );
   RpConfig out;
   Place address = section.require( "address" );
   out.address = Section::convert<IpGenAddr>( address, "address" );
   checkUnicast( address, out.address );
   checkNew( address, "RP", rps_, out.address, valueToStrep( out.address ) );
   IpGenPrefix range = multicastRange( out.address.family() );
   for ( const Place& member : section.list( "groups" ) ) {
      out.groups.push_back( Section::convert<IpGenPrefix>( member, "groups" ) );
      if ( !range.contains( out.groups.back() ) ) {
         member.fail( fmt::format( "{} is not within {}",
                                   valueToStrep( out.groups.back() ),
                                   valueToStrep( range ) ) );
      }
   }
   if ( out.groups.empty() ) out.groups.push_back( range );
   section.finish();
   return out;
}

// Both addresses are this router's; which RP address it has, the peers share.
Router::AnycastRpConfig VrfReader::readAnycastRp( const Place& place,
                                                  const VrfConfig& vrf ) {
   Section section( place, "anycast-rp" );
   Router::AnycastRpConfig out;
   const Place address = section.require( "address" );
   out.address = Section::convert<IpGenAddr>( address, "address" );
   if ( rps_.count( out.address ) == 0 )
      address.fail( fmt::format( "address: {} is no RP of this VRF",
                                 valueToStrep( out.address ) ) );
   const AddressFamily family = out.address.family();
   const Place local = section.require( "local" );
   out.local = readUnicast( local, "local", family );
   for ( const IpGenAddr& own : { out.address, out.local } ) {
      if ( !isOwn( vrf, own ) )
         local.fail( fmt::format( "anycast-rp: {} is no address of this router",
                                  valueToStrep( own ) ) );
   }
   if ( out.local == out.address )
      local.fail( "local: the RP's address is not this router's alone" );
   std::set<IpGenAddr> known;
   for ( const Place& member : section.require( "peers" ).list( "peers" ) ) {
      const IpGenAddr peer = readUnicast( member, "peers", family );
      checkNew( member, "peer", known, peer, valueToStrep( peer ) );
      if ( isOwn( vrf, peer ) )
         member.fail( fmt::format( "peers: {} is an address of this router",
                                   valueToStrep( peer ) ) );
      out.peers.push_back( peer );
   }
   section.finish();
   checkNew( address, "anycast-rp", anycastRps_, out.address,
             valueToStrep( out.address ) );
   return out;
}

AdvertisedConfig VrfReader::readAdvertised( const Place& place ) {
   Section section( place, "advertised" );
   AdvertisedConfig out;
   Place group = section.require( "group" );
   out.group = Section::convert<IpGenAddr>( group, "group" );
   if ( !out.group.isMulticast() )
      group.fail( valueToStrep( out.group ) + " is no multicast address" );
   AddressFamily family = out.group.family();
   out.source = readUnicast( section.require( "source" ), "source", family );
   out.rp = readUnicast( section.require( "rp" ), "rp", family );
   section.value( "anycast", out.anycast );
   section.finish();
   if ( !advertised_.emplace( out.source, out.group ).second ) {
      place.fail( fmt::format( "advertised ({}, {}) comes twice",
                               valueToStrep( out.source ),
                               valueToStrep( out.group ) ) );
   }
   return out;
}

}
