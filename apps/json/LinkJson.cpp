#include "apps/json/LinkJson.h"

#include <algorithm>
#include <map>

#include "apps/json/YangData.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Published::Neighbor;

namespace {

Json delayJson( const Neighbor& record ) {
   Json json;
   json["present"] = record.hasLanPruneDelay;
   if ( !record.hasLanPruneDelay ) return json;
   json["override-interval"] = record.overrideInterval;
   json["propagation-delay"] = record.propagationDelay;
   json["t-bit"] = record.trackingSupport;
   return json;
}

}

void addInterface( Json& json, const Published::Interface& intf ) {
   json["address"] = Vantu::valueToStrep( intf.address );
   json["prefix-length"] = intf.prefixLength;
   if ( intf.link != Published::linkUnknown )
      json["state"] = yangName( stringValue( intf.link ), "link" );
   if ( intf.link == Published::linkDown ) return;
   json["designated-router"] = intf.iAmDr;
   if ( !intf.dr.isUnspecified() )
      json["dr-address"] = Vantu::valueToStrep( intf.dr );
   json["neighbors"] = intf.neighbors;
   if ( intf.speaks ) json["gen-id"] = intf.generationId;
   if ( !intf.querier.isUnspecified() )
      json["querier"] = Vantu::valueToStrep( intf.querier );
}

void addNeighbor( Json& json, const NeighborRow& row ) {
   const Neighbor& record = row.record;
   json["interface"] = std::string( record.key.intfId.name() );
   json["address"] = Vantu::valueToStrep( record.key.address );
   if ( row.dr ) json["designated-router"] = *row.dr;
   if ( record.hasDrPriority ) json["dr-priority"] = record.drPriority;
   if ( record.hasGenerationId ) json["gen-id"] = record.generationId;
   json["lan-prune-delay"] = delayJson( record );
   for ( const auto& each : row.addresses )
      json["secondary-address"].push_back( Vantu::valueToStrep( each ) );
}

Json linksJson( const Mirror& mirror ) {
   std::map<std::string, Json> interfaces;
   mirror.agent->interface().visit( [&]( const Published::Interface& record ) {
      const std::string name( record.key.name() );
      interfaces[name]["name"] = name;
      addInterface( interfaces[name], record );
      interfaces[name].erase( "neighbors" );  // they are listed
      return true;
   } );
   mirror.agent->ownAddress().visit( [&]( const Published::OwnAddress& own ) {
      const auto found = interfaces.find( std::string( own.key.intfId.name() ) );
      if ( found == interfaces.end() ) return true;
      const std::string address = Vantu::valueToStrep( own.key.address );
      if ( found->second["address"] != address )
         found->second["secondary-address"].push_back( address );
      if ( !own.key.address.isLinkLocal() )
         found->second["network"].push_back( Vantu::valueToStrep( own.subnet ) );
      return true;
   } );
   Json json;
   json["interface"] = Json::array();
   for ( auto& [name, each] : interfaces ) {
      for ( const char* list : { "secondary-address", "network" } )
         if ( const auto found = each.find( list ); found != each.end() )
            std::sort( found->begin(), found->end() );
      json["interface"].push_back( std::move( each ) );
   }
   json["neighbor"] = Json::array();
   for ( const NeighborRow& row : selectNeighbors( mirror, {} ).rows ) {
      Json neighbor;
      addNeighbor( neighbor, row );
      json["neighbor"].push_back( std::move( neighbor ) );
   }
   return json;
}

}
