#include "apps/config/detail/VrfReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/config/detail/Values.h"
#include "engine/Neighbors.h"

namespace Agent {

namespace {

InterfaceAddress readAddress( const Place& place ) {
   std::string text = place.text( "address" );
   if ( text.find( '/' ) == std::string::npos )
      place.fail( fmt::format( "address: expected address/length at '{}'", text ) );
   InterfaceAddress out;
   out.subnet = Section::convert<IpGenPrefix>( place, "address" );
   out.address = IpGenAddr( Mox::StringView( text ).substr( 0, text.find( '/' ) ) );
   checkUnicast( place, out.address );
   return out;
}

}

InterfaceConfig VrfReader::readInterface( const Place& place, VrfConfig& vrf ) {
   Section section( place, "interface" );
   InterfaceConfig out;
   Place name = section.require( "name" );
   out.name = readNewName<IntfId>( name );
   std::string text( out.name.name() );
   if ( text.empty() ) name.fail( "an interface needs a name" );
   checkNew( name, "interface", interfaces_, out.name, text );
   std::string capture = text;
   section.value( "capture", capture );
   checkName( section.take( "capture" ).value_or( name ), capture );
   checkNew( section.take( "capture" ).value_or( name ), "capture", captures_,
             capture, capture );
   if ( capture != text ) vrf.captures[out.name] = capture;
   section.value( "dr-priority", out.drPriority );
   readHello( section, vrf, out );
   readPolicy( section, vrf, out );
   for ( const Place& member : section.list( "addresses" ) ) {
      out.addresses.push_back( readAddress( member ) );
      const IpGenAddr& address = out.addresses.back().address;
      // Many routers have the same link-local address on several links.
      if ( !address.isLinkLocal() )
         checkNew( member, "address", addresses_, address,
                   valueToStrep( address ) );
   }
   section.finish();
   return out;
}

// What the interface's hellos say, and the times of what it sends.
void VrfReader::readHello( Section& section, const VrfConfig& vrf,
                           InterfaceConfig& out ) {
   const bool told = section.take( "hello-holdtime" ).has_value();
   readTime( section, "hello-interval", 1, 18724, out.helloInterval );
   // The hold time that goes with an interval, unless it is given (RFC 7761, 4.11).
   out.helloHoldtime = static_cast<uint16_t>( out.helloInterval *
                                              Router::Neighbors::hellosInHoldtime );
   readTime( section, "hello-holdtime", 1, 65535, out.helloHoldtime );
   if ( told && out.helloHoldtime < out.helloInterval )
      section.require( "hello-holdtime" )
         .fail( fmt::format(
            "hello-holdtime: {} s end before the next hello, after {} s",
            out.helloHoldtime, out.helloInterval ) );
   readTime( section, "propagation-delay", 0, 32767, out.propagationDelay );
   readTime( section, "override-interval", 0, 65535, out.overrideInterval );
   readTime( section, "join-prune-interval", 1, 18724, out.joinPruneInterval );
   section.value( "join-suppression", out.joinSuppression );
   section.value( "passive", out.passive );
   if ( std::optional<Place> igmp = section.take( "igmp" ) )
      out.igmp = readMembership( *igmp, "igmp", 2, 3, 25.5, vrf );
   if ( std::optional<Place> mld = section.take( "mld" ) )
      out.mld = readMembership( *mld, "mld", 1, 2, 65.535, vrf );
}

// Of a list of routers, a rule for groups would match none.
void VrfReader::readPolicy( Section& section, const VrfConfig& vrf,
                            InterfaceConfig& out ) {
   readFilters( section, "neighbor-filter", vrf, out.neighborFilter );
   readFilters( section, "join-prune-filter", vrf, out.joinPruneFilter );
   readFilters( section, "boundary", vrf, out.boundary );
   for ( const AccessListConfig& list : vrf.accessLists ) {
      const auto& rules = list.rules.rules();
      const bool hasGroups =
         std::any_of( rules.begin(), rules.end(), [&]( const Acl::AclRule& rule ) {
            const bool standard = list.rules.type() == Acl::standard;
            return !( standard ? rule.source : rule.destination ).isNone();
         } );
      const bool named = list.name == out.neighborFilter.ipv4 ||
                         list.name == out.neighborFilter.ipv6;
      if ( hasGroups && named )
         section.place().fail( fmt::format(
            "neighbor-filter: access list '{}' has rules for groups", list.name ) );
   }
}

// MLD's versions are one below those of IGMP that they go with.
Router::MembershipConfig VrfReader::readMembership( const Place& place,
                                                    const char* what,
                                                    uint32_t oldest,
                                                    uint32_t newest, double longest,
                                                    const VrfConfig& vrf ) {
   Section section( place, what );
   Router::MembershipConfig out;
   auto number = [&]( const char* key, uint32_t least, uint32_t most,
                      auto& value ) {
      uint16_t read = 0;
      if ( !section.take( key ) ) return;
      readTime( section, key, least, most, read );
      value = static_cast<std::decay_t<decltype( value )>>( read );
   };
   uint32_t version = newest;
   number( "version", oldest, newest, version );
   out.version = static_cast<uint8_t>( version + 3 - newest );
   number( "query-interval", 1, 31744, out.queryInterval );
   readSeconds( section, "query-max-response-time", 0.1, longest,
                out.queryResponse );
   number( "robustness", 1, 7, out.robustness );
   readSeconds( section, "last-member-query-interval", 0.1, longest,
                out.lastMemberQuery );
   number( "last-member-query-count", 1, 7, out.lastMemberCount );
   section.value( "immediate-leave", out.immediateLeave );
   section.value( "group-limit", out.groupLimit );
   const AddressFamily family = what == std::string_view( "igmp" )
                                   ? AddressFamily::ipv4
                                   : AddressFamily::ipv6;
   readFilter( section, "access-group", family, vrf, out.accessGroup );
   for ( const Place& member : section.list( "static-group" ) )
      out.staticGroups.push_back( readStaticGroup( member, family ) );
   if ( out.queryResponse > out.queryInterval )
      place.fail( fmt::format(
         "{}: query-max-response-time {} s is above the interval, {} s", what,
         out.queryResponse, out.queryInterval ) );
   section.finish();
   return out;
}

// A group, or a group and its source.
Router::StaticGroupConfig VrfReader::readStaticGroup( const Place& place,
                                                      AddressFamily family ) {
   Router::StaticGroupConfig out{ {}, IpGenAddr::unspecified( family ) };
   auto readGroup = [&]( const Place& at ) {
      out.group = Section::convert<IpGenAddr>( at, "static-group" );
      if ( !multicastRange( family ).contains( out.group ) ||
           out.group.isLinkLocalMulticast() )
         at.fail(
            fmt::format( "static-group: {} is no group that is forwarded here",
                         valueToStrep( out.group ) ) );
   };
   if ( place.node.IsScalar() ) {
      readGroup( place );
      return out;
   }
   Section section( place, "static-group" );
   readGroup( section.require( "group" ) );
   out.source = readUnicast( section.require( "source" ), "source", family );
   section.finish();
   return out;
}

}
