#include "apps/json/EventJson.h"

namespace Show {

using Json = nlohmann::ordered_json;

Json eventJson( const Logged& logged ) {
   const Published::Event& event = logged.event;
   Json json;
   json["time"] = utcOf( event.at );
   json["sequence"] = std::to_string( logged.sequence );
   json["event"] = valueToStrep( event.kind );
   if ( event.kind == Published::refused ) {
      json["refusal"] = valueToStrep( event.refusal );
   } else if ( event.cause != Published::noCause ) {
      json["cause"] = valueToStrep( event.cause );
   }
   if ( event.message != Published::noMessage )
      json["message"] = valueToStrep( event.message );
   if ( !event.vrf.text().empty() ) json["vrf"] = event.vrf.text();
   if ( event.ipVersion != 0 )
      json["family"] = event.ipVersion == 4 ? "ipv4" : "ipv6";
   const auto address = [&json]( const char* name, const Vantu::IpGenAddr& value ) {
      if ( !value.isUnspecified() ) json[name] = Vantu::valueToStrep( value );
   };
   if ( event.group.isMulticast() ) {
      address( "group", event.group );
      json["source-address"] = event.source.isUnspecified()
                                  ? Mox::String( "*" )
                                  : Vantu::valueToStrep( event.source );
   }
   if ( !event.intf.empty() ) json["interface"] = event.intf.name();
   address( "address", event.address );
   if ( !event.otherIntf.empty() )
      json["former-interface"] = event.otherIntf.name();
   address( "former-address", event.otherAddress );
   if ( event.kind == Published::assertLost ||
        event.kind == Published::assertWon ) {
      json["preference"] = event.preference;
      json["metric"] = event.metric;
   }
   if ( event.value != 0 ) json["value"] = event.value;
   if ( logged.count > 1 ) {
      json["count"] = std::to_string( logged.count );
      json["last"] = utcOf( logged.last );
   }
   return json;
}

}
