#include "apps/config/detail/VrfReader.h"

#include <fmt/format.h>

#include "apps/config/detail/Values.h"

namespace Agent {

namespace {

// The kernel names the register interface after the table, in 15 characters.
constexpr uint32_t kMrouteTableEnd = 1'000'000'000;
constexpr uint32_t kMaxRecords = 16'000'000;  // a table holds some more

}

VrfConfig VrfReader::read( const Place& place ) {
   addresses_.clear();
   rpfPrefixes_.clear();
   rps_.clear();
   anycastRps_.clear();
   advertised_.clear();
   accessLists_.clear();
   Section section( place, "vrf" );
   VrfConfig out;
   readName( section, out );
   readMrouteTable( section, out );
   readRpf( section, out );
   readLimit( section, "maxRoutes", out.maxRoutes );
   readLimit( section, "maxRouteIntfs", out.maxRouteIntfs );
   section.value( "require-hello", out.requireHello );
   section.value( "embedded-rp", out.embeddedRp );
   section.value( "new-source-limit", out.newSourceLimit );
   section.value( "new-source-rate", out.newSourceRate );
   for ( const Place& member : section.list( "access-lists" ) ) {
      out.accessLists.push_back( readAccessList( member ) );
   }
   readSptThreshold( section, out );
   readFilter( section, "ssmFilter", AddressFamily::ipv4, out, out.ssmFilter );
   readFilter( section, "ssmFilter6", AddressFamily::ipv6, out, out.ssmFilter6 );
   readFilter( section, "frrFilter", AddressFamily::ipv4, out, out.frrFilter );
   readFilter( section, "frrFilter6", AddressFamily::ipv6, out, out.frrFilter6 );
   for ( const Place& member : section.list( "interfaces" ) ) {
      out.interfaces.push_back( readInterface( member, out ) );
   }
   readRegister( section, out );
   for ( const Place& member : section.list( "rpf-routes" ) ) {
      out.rpfRoutes.push_back( readRpfRoute( member, out ) );
   }
   for ( const Place& member : section.list( "rps" ) ) {
      out.rps.push_back( readRp( member ) );
   }
   for ( const Place& member : section.list( "anycast-rp" ) ) {
      out.anycastRps.push_back( readAnycastRp( member, out ) );
   }
   for ( const Place& member : section.list( "advertised" ) ) {
      out.advertised.push_back( readAdvertised( member ) );
   }
   section.finish();
   return out;
}

// The name becomes a part of the tables' paths.
void VrfReader::readName( Section& section, VrfConfig& out ) {
   Place place = section.require( "name" );
   out.name = readNewName<L3::VrfName>( place );
   const std::string& name = out.name.name();
   // "all" means every VRF in the readers' options.
   if ( name.empty() || name == "." || name == ".." || name == "all" ||
        name.find( '/' ) != std::string::npos ) {
      place.fail( fmt::format( "'{}' cannot name a VRF", name ) );
   }
   checkNew( place, "VRF", vrfs_, out.name, name );
}

// The default suits one VRF only. Several VRFs without the key are no error where
// nothing forwards: the forwarding process refuses them.
void VrfReader::readMrouteTable( Section& section, VrfConfig& out ) {
   std::optional<Place> place = section.take( "mroute-table" );
   if ( !place ) return;
   auto table = Section::convert<uint32_t>( *place, "mroute-table" );
   if ( table == 0 || table >= kMrouteTableEnd )
      place->fail( fmt::format( "mroute-table: {} is not in 1 to {}", table,
                                kMrouteTableEnd - 1 ) );
   out.mrouteTable = table;
   auto [other, isNew] = mrouteTables_.emplace( table, out.name );
   if ( !isNew )
      place->fail( fmt::format( "mroute-table {} is that of VRF '{}'", table,
                                other->second.name() ) );
}

void VrfReader::readLimit( Section& section, const char* key, uint32_t& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   out = Section::convert<uint32_t>( *place, key );
   if ( out == 0 || out > kMaxRecords )
      place->fail(
         fmt::format( "{}: {} is not in 1 to {}", key, out, kMaxRecords ) );
}

void VrfReader::readSeconds( Section& section, const char* key, double least,
                             double most, double& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   out = Section::convert<double>( *place, key );
   if ( !( out >= least && out <= most ) )
      place->fail(
         fmt::format( "{}: {} is not in {} to {}", key, out, least, most ) );
}

void VrfReader::readTime( Section& section, const char* key, uint32_t least,
                          uint32_t most, uint16_t& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   const auto number = Section::convert<uint32_t>( *place, key );
   if ( number < least || number > most )
      place->fail(
         fmt::format( "{}: {} is not in {} to {}", key, number, least, most ) );
   out = static_cast<uint16_t>( number );
}

// After the interfaces.
void VrfReader::readRegister( Section& section, VrfConfig& out ) {
   constexpr double kMost = 65535.0;
   readSeconds( section, "keepalive-period", 1.0, kMost, out.keepalivePeriod );
   // The winner asserts again 3 s before.
   readSeconds( section, "assert-time", 4.0, kMost, out.assertTime );
   readSeconds( section, "register-suppression-time", 1.0, kMost,
                out.registerSuppressionTime );
   readSeconds( section, "register-probe-time", 0.1, kMost, out.registerProbeTime );
   // The suppression lasts for half its time at least, the probe included.
   if ( out.registerProbeTime >= out.registerSuppressionTime / 2 )
      section.place().fail(
         fmt::format( "register-probe-time: {} s leave nothing of half the "
                      "register-suppression-time, {} s",
                      out.registerProbeTime, out.registerSuppressionTime ) );
   section.value( "register-rate-limit", out.registerRateLimit );
   readFilters( section, "register-filter", out, out.registerFilter );
   if ( std::optional<Place> source = section.take( "register-source" ) )
      out.registerSource = readInterfaceName( *source, out );
}

void VrfReader::readRpf( Section& section, VrfConfig& out ) {
   if ( std::optional<Place> place = section.take( "rpf" ) ) {
      std::string text = Section::convert<std::string>( *place, "rpf" );
      if ( text != "kernel" && text != "static" )
         place->fail(
            fmt::format( "rpf: '{}' is neither kernel nor static", text ) );
      out.kernelRpf = text == "kernel";
   }
   section.value( "route-table", out.routeTable );
}

AgentConfig readRoot( const Place& place ) {
   Section section( place, "configuration" );
   AgentConfig out;
   VrfReader reader;
   for ( const Place& member : section.list( "vrfs" ) ) {
      out.vrfs.push_back( reader.read( member ) );
   }
   section.finish();
   if ( out.vrfs.empty() ) place.fail( "configuration: no VRF in 'vrfs'" );
   return out;
}

}
