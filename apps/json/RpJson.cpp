#include "apps/json/RpJson.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Mapping = Published::GroupRanges::Mapping;

const char* ruleText( Mapping::Rule rule ) {
   constexpr const char* kWords[] = { "unknown", "none", "source-specific",
                                      "embedded", "configured" };
   return kWords[rule];
}

void addMapping( Json& json, const Mapping& mapping ) {
   json["rule"] = ruleText( mapping.rule );
   if ( mapping.rp == Vantu::IpGenAddr() ) return;
   json["rp-address"] = Vantu::valueToStrep( mapping.rp );
   json["this-router"] = mapping.own;
}

Json rpsJson( const RpRanges& selected ) {
   Json list = Json::array();
   for ( const RpRow& row : selected.rows ) {
      Json json;
      json["groups"] = row.groups;
      addMapping( json, row.mapping );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
