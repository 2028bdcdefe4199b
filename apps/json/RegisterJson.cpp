#include "apps/json/RegisterJson.h"

#include "apps/json/RouteMembers.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Routing::Pim::SparseMode::AdvertisedSg;

Json registersJson( const Registers& selected ) {
   Json list = Json::array();
   for ( const RegisterRow& row : selected.rows ) {
      Json json = keyJson( row.key );
      json["register-oif"] = row.registerOif;
      json["no-register-oif"] = row.noRegisterOif;
      json["dr-discovered"] = row.drDiscovered;
      json["anycast-discovered"] = row.anycastDiscovered;
      list.push_back( std::move( json ) );
   }
   return list;
}

Json advertisedJson( const Advertised& selected ) {
   Json list = Json::array();
   for ( const AdvertisedSg& row : selected.rows ) {
      Json json = keyJson( row.key );
      json["rp-address"] = Vantu::valueToStrep( row.rp );
      json["anycast-discovered"] = row.anycastDiscovered;
      list.push_back( std::move( json ) );
   }
   return list;
}

}
