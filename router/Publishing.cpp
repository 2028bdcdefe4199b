#include "router/Publishing.h"

#include <map>

#include "published/Publisher.h"

namespace Router {
namespace {

using Vantu::IntfId;
using Vantu::IpGenAddr;

Published::Neighbor neighborRecord( IntfId intfId, const IpGenAddr& address,
                                    const Neighbors::Neighbor& neighbor,
                                    double lastJoins ) {
   const PimHello& hello = neighbor.hello;
   const LanPruneDelay delay = hello.lanPruneDelay.value_or( LanPruneDelay() );
   return { { intfId, address, 0 },
            hello.drPriority.has_value(),
            hello.drPriority.value_or( 0 ),
            hello.generationId.has_value(),
            hello.generationId.value_or( 0 ),
            hello.lanPruneDelay.has_value(),
            delay.propagationDelay,
            delay.overrideInterval,
            delay.trackingSupport,
            hello.holdtime.value_or(
               static_cast<uint16_t>( Neighbors::defaultHoldtime ) ),
            neighbor.expiry->until(),
            lastJoins,
            neighbor.since };
}

PimHello helloOf( const Published::Neighbor& record ) {
   PimHello hello;
   if ( record.hasDrPriority ) hello.drPriority = record.drPriority;
   if ( record.hasGenerationId ) hello.generationId = record.generationId;
   if ( record.hasLanPruneDelay )
      hello.lanPruneDelay = { record.trackingSupport,
                              static_cast<uint16_t>( record.propagationDelay ),
                              static_cast<uint16_t>( record.overrideInterval ) };
   if ( record.until != 0.0 )
      hello.holdtime = static_cast<uint16_t>( record.holdtime );
   return hello;
}

Published::LinkState stateOf( const InterfaceConfig& config ) {
   if ( !config.observed ) return Published::linkUnknown;
   if ( !config.up ) return Published::linkDown;
   return config.carrier ? Published::linkUp : Published::linkWithoutCarrier;
}

// An interface that is no link at present; nothing for one without an address.
std::optional<Published::Interface> downRecord( const InterfaceConfig& config,
                                                Vantu::AddressFamily family ) {
   if ( config.up ) return std::nullopt;
   for ( const InterfaceAddress& each : config.addresses ) {
      if ( each.address.family() != family ) continue;
      Published::Interface out{ .key = config.name, .address = each.address };
      out.prefixLength = static_cast<uint8_t>( each.subnet.length() );
      out.link = stateOf( config );
      return out;
   }
   return std::nullopt;
}

Published::Interface interfaceRecord( const Link& link, const Querier* querier,
                                      const Routing::Pim::Intf& intf ) {
   Published::Interface out{ .key = link.intfId(), .address = intf.addr().address };
   out.prefixLength = intf.addr().prefixLength;
   out.iAmDr = intf.iAmDr();
   out.neighbors = static_cast<uint32_t>( link.neighbors().size() );
   out.dr = link.neighbors().dr();
   out.link = stateOf( link.config() );
   if ( const auto hello = link.hello().kept() ) {
      out.speaks = true;
      out.generationId = hello->generationId;
      out.nextHello = hello->nextHello;
   }
   if ( querier != nullptr ) {
      const Querier::Kept kept = querier->kept();
      out.querier = kept.querier;
      out.otherQuerierUntil = kept.otherUntil;
      out.nextQuery = kept.nextQuery;
      out.startupQueries = kept.startupLeft;
   }
   return out;
}

std::optional<Published::Interface> interfaceOf(
   const Published::FamilyStatus& tables, IntfId intfId ) {
   Published::Interface record;
   if ( tables.interface().find( intfId, record ) != Brane::lookupFound )
      return std::nullopt;
   return record;
}

Vantu::IpGenPrefix allGroups( Vantu::AddressFamily family ) {
   return Vantu::IpGenPrefix( family == Vantu::AddressFamily::ipv4 ? "224.0.0.0/4"
                                                                   : "ff00::/8" );
}

std::vector<Published::Rp> rpRecords( Vantu::AddressFamily family,
                                      const VrfConfig& config ) {
   std::vector<Published::Rp> out;
   for ( const RpConfig& rp : config.rps ) {
      if ( rp.address.family() != family ) continue;
      std::vector<Vantu::IpGenPrefix> ranges = rp.groups;
      if ( ranges.empty() ) ranges.push_back( allGroups( family ) );
      for ( const Vantu::IpGenPrefix& range : ranges )
         out.push_back(
            { { range.address(), static_cast<uint32_t>( range.length() ) },
              rp.address,
              isOwn( config, rp.address ) } );
   }
   return out;
}

// The rules of the lists with these names.
std::vector<Published::AccessRule> ruleRecords( const VrfConfig& config,
                                                const std::string& ssmFilter,
                                                const std::string& frrFilter ) {
   std::vector<Published::AccessRule> out;
   for ( const AccessListConfig& list : config.accessLists ) {
      if ( list.name != ssmFilter && list.name != frrFilter ) continue;
      for ( const Acl::AclRule& rule : list.rules.rules() ) {
         out.push_back( { { Published::Text<224>( list.name ), rule.sequence, 0 },
                          list.rules.type(),
                          rule.action,
                          rule.source,
                          rule.destination } );
      }
   }
   return out;
}

Published::Setting setting( const char* name, const std::string& value ) {
   return { Published::Text<32>( name ), Published::Text<224>( value ) };
}

// The interfaces that bar groups or sources, for whoever compares the kernel's entries.
std::string boundaries( Vantu::AddressFamily family, const VrfConfig& config ) {
   std::string out;
   const bool ipv4 = family == Vantu::AddressFamily::ipv4;
   for ( const InterfaceConfig& each : config.interfaces ) {
      if ( ( ipv4 ? each.boundary.ipv4 : each.boundary.ipv6 ).empty() ) continue;
      out += ( out.empty() ? "" : " " ) + std::string( each.name.name() );
   }
   return out;
}

}

bool publishLinks( Published::FamilyStatus& tables, Vantu::AddressFamily family,
                   const VrfConfig& config, const Protocol& protocol,
                   const Routing::Pim::Status& pimStatus ) {
   std::vector<Published::Interface> interfaces;
   std::vector<Published::Neighbor> neighbors;
   std::vector<Published::NeighborAddress> addresses;
   std::vector<Published::OwnAddress> own;
   for ( const auto& [intfId, link] : protocol.links().all() ) {
      interfaces.push_back( interfaceRecord( link, protocol.querier( intfId ),
                                             *pimStatus.intf( intfId ) ) );
      for ( const InterfaceAddress& each : link.config().addresses ) {
         if ( each.address.family() == link.address().family() )
            own.push_back( { { intfId, each.address, 0 }, each.subnet } );
      }
      for ( const auto& [address, neighbor] : link.neighbors().all() ) {
         neighbors.push_back( neighborRecord(
            intfId, address, neighbor, protocol.lastJoins( intfId, address ) ) );
         for ( const IpGenAddr& each : neighbor.hello.addresses )
            addresses.push_back( { { intfId, address, each } } );
      }
   }
   for ( const InterfaceConfig& each : config.interfaces ) {
      if ( const auto down = downRecord( each, family ) )
         interfaces.push_back( *down );
   }
   bool done = Published::publishInterfaces( tables, interfaces );
   done &= Published::publishOwnAddresses( tables, own );
   done &= Published::publishNeighbors( tables, neighbors );
   return Published::publishNeighborAddresses( tables, addresses ) && done;
}

bool publishConfig( Published::FamilyStatus& tables, Vantu::AddressFamily family,
                    const VrfConfig& config ) {
   const bool ipv4 = family == Vantu::AddressFamily::ipv4;
   const std::string& ssmFilter = ipv4 ? config.ssmFilter : config.ssmFilter6;
   const std::string& frrFilter = ipv4 ? config.frrFilter : config.frrFilter6;
   const auto rules = ruleRecords( config, ssmFilter, frrFilter );
   bool done = Published::publishRps( tables, rpRecords( family, config ) );
   done &= Published::publishAccessRules( tables, rules );
   done &= Published::publishSettings(
      tables,
      { setting( "require-hello", config.requireHello ? "yes" : "no" ),
        setting( "embedded-rp", config.embeddedRp ? "yes" : "no" ),
        setting( "ssmFilter", ssmFilter ), setting( "frrFilter", frrFilter ),
        setting( "boundaries", boundaries( family, config ) ),
        setting( "assert-time",
                 std::to_string( static_cast<uint32_t>( config.assertTime ) ) ),
        // When fewer rules had room, readers treat the lists as unknown.
        setting( "access-rules", std::to_string( rules.size() ) ) } );
   return done;
}

Protocol::Kept keptLinks( const Published::FamilyStatus& tables ) {
   Protocol::Kept kept;
   kept.hello = [&tables]( IntfId intfId ) -> std::optional<HelloMachine::Kept> {
      const auto record = interfaceOf( tables, intfId );
      if ( !record || !record->speaks ) return std::nullopt;
      return HelloMachine::Kept{ record->generationId, record->nextHello };
   };
   kept.querier = [&tables]( IntfId intfId ) -> std::optional<Querier::Kept> {
      const auto record = interfaceOf( tables, intfId );
      if ( !record || record->querier.isUnspecified() ) return std::nullopt;
      return Querier::Kept{ record->querier, record->otherQuerierUntil,
                            record->nextQuery, record->startupQueries };
   };
   kept.lastJoins = [&tables]( IntfId intfId, const IpGenAddr& neighbor ) {
      Published::Neighbor record;
      tables.neighbor().find( { intfId, neighbor, 0 }, record );
      return record.lastJoins;
   };
   return kept;
}

void adoptNeighbors( Protocol& protocol, const Published::FamilyStatus& tables ) {
   std::map<Published::NeighborKey, std::vector<IpGenAddr>> addresses;
   for ( const Published::NeighborAddressKey& key :
         tables.neighborAddress().keys() )
      addresses[{ key.intfId, key.neighbor, 0 }].push_back( key.address );
   for ( const Published::NeighborKey& key : tables.neighbor().keys() ) {
      Published::Neighbor record;
      if ( tables.neighbor().find( key, record ) != Brane::lookupFound ) continue;
      Neighbors::Kept kept{ helloOf( record ), std::nullopt, record.since };
      if ( record.until != 0.0 ) kept.until = record.until;
      kept.hello.addresses = addresses[key];
      protocol.adoptNeighbor( key.intfId, key.address, kept );
   }
}

}
