#include "apps/show/reports/NeighborReport.h"

#include <algorithm>
#include <map>

#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/show/text/TextTable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Published::Neighbor;
using Published::NeighborKey;

namespace {

constexpr uint32_t kForever = 65535;  // as a hold time, s

std::optional<bool> isDr( const Mirror& mirror, const NeighborKey& key ) {
   Published::Interface intf;
   if ( mirror.agent->interface().find( key.intfId, intf ) != Brane::lookupFound ||
        intf.dr.isUnspecified() )
      return std::nullopt;
   return intf.dr == key.address;
}

std::string drText( const std::optional<bool>& dr ) {
   if ( !dr ) return "unknown";
   return *dr ? "yes" : "no";
}

std::string leftText( const Neighbor& record, double now ) {
   if ( record.holdtime == kForever ) return "for ever";
   return record.until == 0.0 ? "unknown" : spanText( record.until - now );
}

std::string addressesText( const NeighborRow& row ) {
   std::string text;
   for ( const auto& each : row.addresses )
      text += ( text.empty() ? "" : ", " ) + Vantu::valueToStrep( each );
   return text;
}

Json delayJson( const Neighbor& record ) {
   Json json;
   json["present"] = record.hasLanPruneDelay;
   if ( !record.hasLanPruneDelay ) return json;
   json["override-interval"] = record.overrideInterval;
   json["propagation-delay"] = record.propagationDelay;
   json["t-bit"] = record.trackingSupport;
   return json;
}

Json rowJson( const NeighborRow& row, double now ) {
   const Neighbor& record = row.record;
   Json json;
   json["interface"] = std::string( record.key.intfId.name() );
   json["address"] = Vantu::valueToStrep( record.key.address );
   if ( row.dr ) json["designated-router"] = *row.dr;
   if ( record.holdtime == kForever ) {
      json["expiration"] = "infinity";
   } else if ( record.until != 0.0 ) {
      json["expiration"] = expirationJson( record.until - now );
   }
   if ( record.hasDrPriority ) json["dr-priority"] = record.drPriority;
   if ( record.hasGenerationId ) json["gen-id"] = record.generationId;
   json["lan-prune-delay"] = delayJson( record );
   if ( record.since != 0.0 ) json["up-time"] = timeticks( now - record.since );
   for ( const auto& each : row.addresses )
      json["secondary-address"].push_back( Vantu::valueToStrep( each ) );
   return json;
}

}

Neighbors selectNeighbors( const Mirror& mirror, const RouteFilter& filter ) {
   std::map<NeighborKey, NeighborRow> rows;
   Neighbors selected;
   selected.known = isReady( mirror.agent->neighbor() );
   mirror.agent->neighbor().visit( nullptr, [&]( const Neighbor& record ) {
      ++selected.all;
      if ( filter.matches( record.key.intfId ) )
         rows[record.key] = { record, isDr( mirror, record.key ), {} };
      return true;
   } );
   for ( const auto& key : mirror.agent->neighborAddress().keys() ) {
      auto found = rows.find( { key.intfId, key.neighbor, 0 } );
      if ( found != rows.end() ) found->second.addresses.push_back( key.address );
   }
   for ( auto& [key, row] : rows ) {
      std::sort( row.addresses.begin(), row.addresses.end() );
      selected.rows.push_back( std::move( row ) );
   }
   return selected;
}

std::string neighborsText( const Neighbors& selected, double now ) {
   TextTable table( { { "interface" },
                      { "neighbour" },
                      { "DR" },
                      { "priority", true },
                      { "left" },
                      { "up" },
                      { "generation" },
                      { "secondary addresses" } } );
   for ( const NeighborRow& row : selected.rows ) {
      const Neighbor& record = row.record;
      table.add(
         { nameText( record.key.intfId ), Vantu::valueToStrep( record.key.address ),
           drText( row.dr ),
           record.hasDrPriority ? std::to_string( record.drPriority ) : "none",
           leftText( record, now ),
           record.since == 0.0 ? "unknown" : spanText( now - record.since ),
           record.hasGenerationId ? generationText( record.generationId ) : "none",
           addressesText( row ) } );
   }
   return table.text();
}

Json neighborsJson( const Neighbors& selected, double now ) {
   Json list = Json::array();
   for ( const NeighborRow& row : selected.rows )
      list.push_back( rowJson( row, now ) );
   return list;
}

}
