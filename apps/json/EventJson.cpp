#include "apps/json/EventJson.h"

namespace Show {

using Json = nlohmann::ordered_json;

Json eventJson( const Logged& logged ) {
   const Published::Event& event = logged.event;
   Json json;
   json["time"] = utcOf( event.at );
   if ( *logged.log != '\0' ) json["log"] = logged.log;
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

namespace {

// Reads members of an untrusted object.
class Members {
 public:
   explicit Members( const Json& json ) : json_( json ) {}

   std::string text( const char* name ) const {
      const Json value = member( name );
      return value.is_string() ? value.get<std::string>() : "";
   }
   template <class Enum>
   Enum enumerator( const char* name ) const {
      try {
         return static_cast<Enum>(
            Mox::enumInstance<Enum>( Mox::StringView( text( name ) ) ) );
      } catch ( const Mox::Error& ) {
         return Enum();
      }
   }
   Vantu::IpGenAddr address( const char* name ) const {
      try {
         return Vantu::IpGenAddr( text( name ) );
      } catch ( const Mox::Error& ) {
         return {};
      }
   }
   Vantu::IntfId intf( const char* name ) const {
      const std::string value = text( name );
      if ( value.size() > Vantu::IntfId::maxLength ) return {};
      return Vantu::IntfId( value );
   }
   uint32_t number( const char* name ) const {
      const Json value = member( name );
      return value.is_number_unsigned() ? value.get<uint32_t>() : 0;
   }

 private:
   Json member( const char* name ) const {
      return json_.is_object() ? json_.value( name, Json() ) : Json();
   }

   const Json& json_;
};

}

Published::Event eventOf( const Json& json ) {
   const Members of( json );
   Published::Event event;
   event.kind = of.enumerator<Published::EventKind>( "event" );
   event.cause = of.enumerator<Published::EventCause>( "cause" );
   event.message = of.enumerator<Published::MessageKind>( "message" );
   event.refusal = of.enumerator<Published::Refusal>( "refusal" );
   event.ipVersion = of.text( "family" ) == "ipv6"   ? 6
                     : of.text( "family" ) == "ipv4" ? 4
                                                     : 0;
   event.group = of.address( "group" );
   event.source = of.address( "source-address" );
   if ( event.source.isUnspecified() )
      event.source = Vantu::IpGenAddr::unspecified( event.group.family() );
   event.intf = of.intf( "interface" );
   event.otherIntf = of.intf( "former-interface" );
   event.address = of.address( "address" );
   event.otherAddress = of.address( "former-address" );
   event.preference = of.number( "preference" );
   event.metric = of.number( "metric" );
   event.value = of.number( "value" );
   return event;
}

}
