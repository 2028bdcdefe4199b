#include "apps/config/ConfigReader.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "apps/config/detail/Section.h"
#include "apps/program/Printable.h"
#include "engine/Neighbors.h"
#include "ssm/SsmGroupInfo.h"

namespace Agent {
namespace {

using Vantu::AddressFamily;
using Vantu::IntfId;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

// The kernel names the register interface after the table, in 15 characters.
constexpr uint32_t kMrouteTableEnd = 1'000'000'000;
// The R bit of an assert stands above the preference (RFC 7761, 4.9.6).
constexpr uint32_t kMaxPreference = 255;      // an administrative distance: 8 bits
constexpr uint32_t kMaxRecords = 16'000'000;  // a table holds some more

IpGenPrefix multicastRange( AddressFamily family ) {
   return IpGenPrefix( family == AddressFamily::ipv4 ? "224.0.0.0/4" : "ff00::/8" );
}

// Accepts an address that a router or host can have.
void checkUnicast( const Place& place, const IpGenAddr& address ) {
   if ( !address.isUnspecified() && !address.isMulticast() ) return;
   place.fail( valueToStrep( address ) + " is no unicast address" );
}

IpGenAddr readUnicast( const Place& place, const char* what,
                       AddressFamily family ) {
   auto address = Section::convert<IpGenAddr>( place, what );
   checkUnicast( place, address );
   if ( address.family() == family ) return address;
   place.fail(
      fmt::format( "{}: {} is of another family", what, valueToStrep( address ) ) );
}

// Throws at `place` when `names` holds a member twice.
template <class T>
void checkNew( const Place& place, const char* what, std::set<T>& known,
               const T& next, const std::string& text ) {
   if ( !known.insert( next ).second )
      place.fail( fmt::format( "{} '{}' comes twice", what, text ) );
}

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

// Other programs print the name, too.
void checkName( const Place& place, const std::string& name ) {
   if ( Programs::printable( name ) == name ) return;
   place.fail( fmt::format( "name: '{}' has a control character", name ) );
}

// Reads the name of a VRF or an interface.
template <class Name>
Name readNewName( const Place& place ) {
   checkName( place, place.text( "name" ) );
   if ( place.text( "name" ).size() > Name::maxLength )
      place.fail( fmt::format( "name: longer than {} bytes", Name::maxLength ) );
   return Section::convert<Name>( place, "name" );
}

IntfId readInterfaceName( const Place& place, const VrfConfig& vrf ) {
   auto name = Section::convert<IntfId>( place, "interface" );
   bool isKnown = std::any_of(
      vrf.interfaces.begin(), vrf.interfaces.end(),
      [&]( const InterfaceConfig& known ) { return known.name == name; } );
   if ( isKnown ) return name;
   place.fail( fmt::format( "interface '{}' is not of this VRF", name.name() ) );
}

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

// The lists filter groups only.
IpGenPrefix readRuleGroup( const Place& place ) {
   auto group = Section::convert<IpGenPrefix>( place, "group" );
   if ( group.isNone() ) return group;
   IpGenPrefix range = multicastRange( group.family() );
   if ( range.contains( group ) || group.contains( range ) ) return group;
   place.fail( fmt::format( "group: {} is not within {}", valueToStrep( group ),
                            valueToStrep( range ) ) );
}

// A rule with a source makes the list an extended one.
Acl::AclRule readRule( const Place& place, uint32_t place10, bool& extended ) {
   Section section( place, "rule" );
   Acl::AclRule out;
   out.sequence = place10;
   section.value( "sequence", out.sequence );
   Place action = section.require( "action" );
   std::string word = action.text( "action" );
   if ( word != "permit" && word != "deny" )
      action.fail( fmt::format( "action: '{}' is neither permit nor deny", word ) );
   out.action = Section::convert<Acl::AclAction>( action, "action" );
   if ( std::optional<Place> group = section.take( "group" ) )
      out.destination = readRuleGroup( *group );
   if ( std::optional<Place> source = section.take( "source" ) ) {
      out.source = Section::convert<IpGenPrefix>( *source, "source" );
      extended = true;
   }
   section.finish();
   return out;
}

// The family of the rules; nothing for a list that matches any address.
std::optional<AddressFamily> familyOf( const Acl::AclRules& rules ) {
   for ( const Acl::AclRule& rule : rules.rules() ) {
      for ( const IpGenPrefix& prefix : { rule.source, rule.destination } ) {
         if ( !prefix.isNone() ) return prefix.family();
      }
   }
   return std::nullopt;
}

// Reads one VRF; holds the names that must be unique in all VRFs.
class VrfReader {
 public:
   VrfConfig read( const Place& place );

 private:
   void readTime( Section& section, const char* key, uint32_t least, uint32_t most,
                  uint16_t& out );
   static void readSptThreshold( Section& section, VrfConfig& out );
   static double readRate( const Place& place, const char* key );
   void readHello( Section& section, const VrfConfig& vrf, InterfaceConfig& out );
   Router::MembershipConfig readMembership( const Place& place, const char* what,
                                            uint32_t oldest, uint32_t newest,
                                            double longest, const VrfConfig& vrf );
   InterfaceConfig readInterface( const Place& place, VrfConfig& vrf );
   RpfRouteConfig readRpfRoute( const Place& place, const VrfConfig& vrf );
   RpConfig readRp( const Place& place );
   Router::AnycastRpConfig readAnycastRp( const Place& place,
                                          const VrfConfig& vrf );
   AdvertisedConfig readAdvertised( const Place& place );
   AccessListConfig readAccessList( const Place& place );
   void readName( Section& section, VrfConfig& out );
   void readMrouteTable( Section& section, VrfConfig& out );
   static void readFilter( Section& section, const std::string& key,
                           AddressFamily family, const VrfConfig& vrf,
                           std::string& out );
   static const AccessListConfig& listOf( const Place& place,
                                          const std::string& key,
                                          const VrfConfig& vrf );
   static void readFilters( Section& section, const std::string& key,
                            const VrfConfig& vrf, Router::FamilyLists& out );
   static void readSeconds( Section& section, const char* key, double least,
                            double most, double& out );
   void readRegister( Section& section, VrfConfig& out );
   void readPolicy( Section& section, const VrfConfig& vrf, InterfaceConfig& out );
   static Router::StaticGroupConfig readStaticGroup( const Place& place,
                                                     AddressFamily family );
   static void readLimit( Section& section, const char* key, uint32_t& out );
   static void readRpf( Section& section, VrfConfig& out );

   std::set<L3::VrfName> vrfs_;
   std::map<uint32_t, L3::VrfName> mrouteTables_;
   std::set<IntfId> interfaces_;
   std::set<std::string> captures_;
   // The addresses of the VRF being read.
   std::set<IpGenAddr> addresses_;
   std::set<IpGenPrefix> rpfPrefixes_;
   std::set<IpGenAddr> rps_, anycastRps_;
   std::set<std::pair<IpGenAddr, IpGenAddr>> advertised_;
   std::set<std::string> accessLists_;
};

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

// A filter whose list is missing, or matches no group of its family, would silently
// filter nothing.
void VrfReader::readFilter( Section& section, const std::string& key,
                            AddressFamily family, const VrfConfig& vrf,
                            std::string& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   out = place->text( key );
   bool isSsm = key.substr( 0, 3 ) == "ssm";
   if ( isSsm && out == Routing::Pim::SparseMode::noSsmRange ) return;
   const AccessListConfig& list = listOf( *place, key, vrf );
   if ( familyOf( list.rules ).value_or( family ) != family )
      place->fail(
         fmt::format( "{}: access list '{}' is of another family", key, out ) );
}

const AccessListConfig& VrfReader::listOf( const Place& place,
                                           const std::string& key,
                                           const VrfConfig& vrf ) {
   const std::string name = place.text( key );
   auto list =
      std::find_if( vrf.accessLists.begin(), vrf.accessLists.end(),
                    [&]( const auto& each ) { return each.name == name; } );
   if ( list == vrf.accessLists.end() )
      place.fail( fmt::format( "{}: no access list '{}' in this VRF", key, name ) );
   return *list;
}

void VrfReader::readFilters( Section& section, const std::string& key,
                             const VrfConfig& vrf, Router::FamilyLists& out ) {
   readFilter( section, key, AddressFamily::ipv4, vrf, out.ipv4 );
   readFilter( section, key + "6", AddressFamily::ipv6, vrf, out.ipv6 );
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

void VrfReader::readLimit( Section& section, const char* key, uint32_t& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   out = Section::convert<uint32_t>( *place, key );
   if ( out == 0 || out > kMaxRecords )
      place->fail(
         fmt::format( "{}: {} is not in 1 to {}", key, out, kMaxRecords ) );
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

// A value for all groups, or a list of values with the groups' access lists.
void VrfReader::readSptThreshold( Section& section, VrfConfig& out ) {
   const char* const key = "spt-threshold";
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   if ( place->node.IsScalar() ) {
      out.sptThresholds = { { readRate( *place, key ) } };
      return;
   }
   for ( const Place& member : place->list( key ) ) {
      Section entry( member, key );
      SptThreshold threshold{ readRate( entry.require( "rate" ), "rate" ) };
      if ( std::optional<Place> groups = entry.take( "groups" ) )
         threshold.groups = listOf( *groups, "groups", out ).name;
      entry.finish();
      out.sptThresholds.push_back( threshold );
   }
}

double VrfReader::readRate( const Place& place, const char* key ) {
   const auto text = Section::convert<std::string>( place, key );
   if ( text == "immediate" ) return 0.0;
   if ( text == "infinity" ) return std::numeric_limits<double>::infinity();
   uint32_t rate = 0;
   const auto [end, error] =
      std::from_chars( text.data(), text.data() + text.size(), rate );
   if ( error != std::errc() || end != text.data() + text.size() || rate == 0 )
      place.fail( fmt::format(
         "{}: '{}' is neither immediate nor infinity nor a rate in kbit/s", key,
         text ) );
   return rate;
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

// Finds the start of a second document. The parser's own function for several
// documents never returns on some broken texts.
class SecondDocument : private YAML::EventHandler {
 public:
   // The line of its first node; 0 without a second document.
   static int lineIn( const std::string& text ) {
      std::istringstream stream( text );
      YAML::Parser parser( stream );
      SecondDocument handler;
      if ( !parser.HandleNextDocument( handler ) ) return 0;
      handler.line_ = 0;
      parser.HandleNextDocument( handler );
      return handler.line_;
   }

 private:
   using Mark = YAML::Mark;
   using Tag = const std::string&;
   using Style = YAML::EmitterStyle::value;
   void met( const Mark& mark ) {
      if ( line_ == 0 ) line_ = mark.line + 1;
   }
   void OnDocumentStart( const Mark& ) override {}
   void OnDocumentEnd() override {}
   void OnNull( const Mark&, YAML::anchor_t ) override {}
   void OnAlias( const Mark& mark, YAML::anchor_t ) override { met( mark ); }
   void OnScalar( const Mark& mark, Tag, YAML::anchor_t, Tag ) override {
      met( mark );
   }
   void OnSequenceStart( const Mark& mark, Tag, YAML::anchor_t, Style ) override {
      met( mark );
   }
   void OnSequenceEnd() override {}
   void OnMapStart( const Mark& mark, Tag, YAML::anchor_t, Style ) override {
      met( mark );
   }
   void OnMapEnd() override {}

   int line_ = 0;
};

AccessListConfig VrfReader::readAccessList( const Place& place ) {
   Section section( place, "access-list" );
   AccessListConfig out;
   Place name = section.require( "name" );
   out.name = Section::convert<std::string>( name, "name" );
   checkName( name, out.name );
   if ( out.name.empty() ) name.fail( "an access list needs a name" );
   checkNew( name, "access list", accessLists_, out.name, out.name );
   std::vector<Acl::AclRule> rules;
   bool extended = false;
   for ( const Place& member : section.list( "rules" ) ) {
      auto next = static_cast<uint32_t>( 10 * ( rules.size() + 1 ) );
      rules.push_back( readRule( member, next, extended ) );
   }
   section.finish();
   // A standard list has its only prefix in `source`.
   if ( !extended ) {
      for ( Acl::AclRule& rule : rules ) std::swap( rule.source, rule.destination );
   }
   try {
      out.rules = { extended ? Acl::extended : Acl::standard, rules };
   } catch ( const Mox::RangeError& e ) {
      place.fail( e.what() );
   }
   return out;
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

AgentConfig parseConfig( const std::string& text, const std::string& name ) {
   try {
      if ( int line = SecondDocument::lineIn( text ) ) {
         throw ConfigError( fmt::format( "{}:{}: a second document", name, line ) );
      }
      return readRoot( { YAML::Load( text ), &name } );
   } catch ( const YAML::Exception& e ) {
      throw ConfigError( fmt::format( "{}:{}: {}", name, e.mark.line + 1, e.msg ) );
   }
}

namespace {

// Takes the values with faults out of a document, so that the next ones are found. A part
// whose name has one goes on under another name.
class Faults {
 public:
   explicit Faults( YAML::Node root ) : root_( std::move( root ) ) {}

   std::vector<std::string> all( const std::string& name ) {
      while ( faults_.size() < maxFaults ) {
         try {
            readRoot( { root_, &name } );
            break;
         } catch ( const NodeError& e ) {
            const bool told = follows( e ), used = usesName( e );
            const size_t names = renamed_.size();
            const bool mended = mend( e );
            const bool isName = renamed_.size() != names;
            if ( !told && ( isName || !used ) )
               faults_.emplace( e.node().Mark().line, e.what() );
            if ( !mended ) break;
         }
      }
      std::vector<std::string> texts;
      for ( const auto& [line, text] : faults_ ) texts.push_back( text );
      return texts;
   }

 private:
   static constexpr const char* kName = "name";

   bool isGone( const YAML::Node& part, const std::string& key ) const {
      return std::any_of( gone_.begin(), gone_.end(), [&]( const auto& each ) {
         return each.first.is( part ) && each.second == key;
      } );
   }

   // Is the fault that a part is gone which this took out?
   bool follows( const NodeError& e ) const {
      if ( faults_.empty() ) return false;
      return e.node().is( root_ ) || isGone( e.node(), e.missing() );
   }

   // Is it the use of a name that has a fault itself, or was given here?
   bool usesName( const NodeError& e ) const {
      const std::string text = e.node().IsScalar() ? e.node().Scalar() : "";
      return names_.count( text ) != 0 || renamed_.count( text ) != 0;
   }

   bool mend( const NodeError& e ) {
      if ( e.missing() != kName || isGone( e.node(), kName ) )
         return takeOut( root_, e.node(), 0 );
      rename( e.node() );
      return true;
   }

   void rename( YAML::Node part ) {
      const std::string name = fmt::format( "part {}", renamed_.size() + 1 );
      renamed_.insert( name );
      part[kName] = name;
   }

   // Takes the node out of what holds it, a key with its value. An alias may make a
   // value part of itself, or of very many.
   bool takeOut( YAML::Node within, const YAML::Node& node, int depth ) {
      constexpr int kDeepest = 32;
      constexpr size_t kMostVisits = 4000000;  // in all
      if ( depth > kDeepest || ++visits_ > kMostVisits ) return false;
      if ( within.IsMap() ) {
         for ( const auto& entry : within ) {
            if ( entry.first.is( node ) || entry.second.is( node ) )
               return takeKey( within, entry.first, entry.second,
                               entry.first.is( node ) );
            if ( takeOut( entry.second, node, depth + 1 ) ) return true;
         }
      } else if ( within.IsSequence() ) {
         for ( size_t i = 0; i < within.size(); ++i ) {
            if ( within[i].is( node ) ) return within.remove( i );
            if ( takeOut( within[i], node, depth + 1 ) ) return true;
         }
      }
      return false;
   }

   // `key` and `value` are of the part; `unknown`: the key itself is the fault.
   bool takeKey( YAML::Node part, const YAML::Node& key, const YAML::Node& value,
                 bool unknown ) {
      const bool name = !unknown && key.Scalar() == kName;
      const std::string text = name && value.IsScalar() ? value.Scalar() : "";
      gone_.emplace_back( part, key.Scalar() );
      if ( !part.remove( YAML::Node( key ) ) ) return false;
      if ( !name || renamed_.count( text ) != 0 ) return true;
      if ( !text.empty() ) names_.insert( text );
      rename( part );
      return true;
   }

   YAML::Node root_;
   size_t visits_ = 0;
   std::multimap<int, std::string> faults_;                // by line
   std::vector<std::pair<YAML::Node, std::string>> gone_;  // keys of maps
   std::set<std::string> names_;                           // with faults
   std::set<std::string> renamed_;                         // in their places
};

}

std::vector<std::string> configFaults( const std::string& text,
                                       const std::string& name ) {
   try {
      parseConfig( text, name );
      return {};
   } catch ( const NodeError& ) {
      return Faults( YAML::Load( text ) ).all( name );
   } catch ( const ConfigError& e ) {
      return { e.what() };
   }
}

std::string configText( const std::string& path ) {
   std::ifstream file( path );
   std::string text;
   char buffer[4096];
   while ( file.read( buffer, sizeof buffer ) || file.gcount() > 0 ) {
      text.append( buffer, static_cast<size_t>( file.gcount() ) );
   }
   // At a regular end the stream has failed, but is not bad.
   if ( !file.is_open() || file.bad() ) {
      throw ConfigError( fmt::format( "{}: {}", path, std::strerror( errno ) ) );
   }
   return text;
}

AgentConfig readConfig( const std::string& path ) {
   return parseConfig( configText( path ), path );
}

}
