#include "router/Publishing.h"

#include "published/Publisher.h"

namespace Router {
namespace {

using Vantu::IntfId;
using Vantu::IpGenAddr;

Published::Neighbor neighborRecord( IntfId intfId, const IpGenAddr& address,
                                    const Neighbors::Neighbor& neighbor ) {
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
            neighbor.expiry->until() };
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

}

void publishLinks( Published::FamilyStatus& tables, const Protocol& protocol,
                   const Routing::Pim::Status& pimStatus ) {
   std::vector<Published::Interface> interfaces;
   std::vector<Published::Neighbor> neighbors;
   for ( const auto& [intfId, link] : protocol.links().all() ) {
      const Routing::Pim::Intf& intf = *pimStatus.intf( intfId );
      interfaces.push_back( { intfId, intf.addr().address, intf.addr().prefixLength,
                              intf.iAmDr(),
                              static_cast<uint32_t>( link.neighbors().size() ) } );
      for ( const auto& [address, neighbor] : link.neighbors().all() )
         neighbors.push_back( neighborRecord( intfId, address, neighbor ) );
   }
   Published::publishInterfaces( tables, interfaces );
   Published::publishNeighbors( tables, neighbors );
}

void publishConfig( Published::FamilyStatus& tables, Vantu::AddressFamily family,
                    const VrfConfig& config,
                    const Routing::Pim::SparseMode::Status& model ) {
   const bool ipv4 = family == Vantu::AddressFamily::ipv4;
   const std::string& ssmFilter = ipv4 ? config.ssmFilter : config.ssmFilter6;
   const std::string& frrFilter = ipv4 ? config.frrFilter : config.frrFilter6;
   const auto rules = ruleRecords( config, ssmFilter, frrFilter );
   Published::publishRps( tables, rpRecords( family, config ) );
   Published::publishAccessRules( tables, rules );
   Published::publishSettings(
      tables,
      { setting( "maxRoutes", std::to_string( model.maxRoutes() ) ),
        setting( "maxRouteIntfs", std::to_string( model.maxRouteIntfs() ) ),
        setting( "require-hello", config.requireHello ? "yes" : "no" ),
        setting( "ssmFilter", ssmFilter ), setting( "frrFilter", frrFilter ),
        // When fewer rules had room, readers treat the lists as unknown.
        setting( "access-rules", std::to_string( rules.size() ) ) } );
}

void adoptNeighbors( Protocol& protocol, const Published::FamilyStatus& tables ) {
   for ( const Published::NeighborKey& key : tables.neighbor().keys() ) {
      Published::Neighbor record;
      if ( tables.neighbor().find( key, record ) != Brane::lookupFound ) continue;
      std::optional<double> until;
      if ( record.until != 0.0 ) until = record.until;
      protocol.adoptNeighbor( key.intfId, key.address, helloOf( record ), until );
   }
}

}
