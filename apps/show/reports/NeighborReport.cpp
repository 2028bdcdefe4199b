#include "apps/show/reports/NeighborReport.h"

#include "apps/json/LinkJson.h"
#include "apps/json/YangData.h"
#include "apps/show/text/TextTable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Published::Neighbor;

namespace {

constexpr uint32_t kForever = 65535;  // as a hold time, s

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

Json rowJson( const NeighborRow& row, double now ) {
   const Neighbor& record = row.record;
   Json json;
   addNeighbor( json, row );
   if ( record.holdtime == kForever ) {
      json["expiration"] = "infinity";
   } else if ( record.until != 0.0 ) {
      json["expiration"] = expirationJson( record.until - now );
   }
   if ( record.since != 0.0 ) json["up-time"] = timeticks( now - record.since );
   return json;
}

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
