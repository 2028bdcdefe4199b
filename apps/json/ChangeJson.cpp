#include "apps/json/ChangeJson.h"

namespace Show {

using Json = nlohmann::ordered_json;

Json changeJson( const Mirror& mirror, const Change& change,
                 const std::string& time ) {
   Json json;
   json["time"] = time;
   json["vrf"] = mirror.vrf();
   json["family"] = familyName( mirror.family );
   json["op"] = change.op;
   if ( std::string_view( change.op ) == "sweep" ) json["reason"] = "fell behind";
   if ( change.key == Routing::Pim::RouteKey() ) return json;
   json.update( keyJson( change.key ) );
   json["is-rpt"] = change.key.source.isUnspecified() || change.rpt;
   if ( !change.intfId.empty() ) json["interface"] = change.intfId.name();
   for ( const Change::Field& field : change.fields )
      json["changed"][field.name] = Json::array( { field.before, field.after } );
   return json;
}

}
