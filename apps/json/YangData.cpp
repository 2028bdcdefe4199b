#include "apps/json/YangData.h"

#include <algorithm>
#include <cctype>

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

// The root of a VRF's own data, mounted as in RFC 8529.
Json instance( const std::string& vrf, Json routing ) {
   Json json;
   json["name"] = vrf;
   json["vrf-root"]["ietf-routing:routing"] = std::move( routing );
   return json;
}

}

Json yangData( const std::string& vrf, Vantu::AddressFamily ipFamily,
               const char* member, Json value ) {
   Json family;
   family["address-family"] = "ietf-routing:" + familyName( ipFamily );
   if ( !value.is_null() ) family[member] = std::move( value );
   Json routing;
   routing["control-plane-protocols"]["ietf-pim-base:pim"]["address-family"]
      .push_back( std::move( family ) );
   Json json;
   json["ietf-network-instance:network-instances"]["network-instance"].push_back(
      instance( vrf, std::move( routing ) ) );
   return json;
}

Json envelope( const Mirror& mirror, const char* member, Json value ) {
   Json json;
   json["vrf"] = mirror.vrf();
   json["family"] = familyName( mirror.family );
   json["writer"] = mirror.writerText();
   json["data"] =
      yangData( mirror.vrf(), mirror.family, member, std::move( value ) );
   return json;
}

std::string yangName( Mox::StringView enumerator, Mox::StringView prefix ) {
   if ( enumerator.substr( 0, prefix.size() ) == prefix )
      enumerator.remove_prefix( prefix.size() );
   std::string name;
   for ( const char letter : enumerator ) {
      const auto byte = static_cast<unsigned char>( letter );
      if ( std::isupper( byte ) != 0 && !name.empty() ) name += '-';
      name += static_cast<char>( std::tolower( byte ) );
   }
   return name;
}

std::string timeticks( double seconds ) {
   // A table may hold any number, even no number at all.
   constexpr double kLongest = 1e12;
   double bounded = seconds > 0 ? std::min( seconds, kLongest ) : 0;
   return std::to_string( static_cast<uint64_t>( bounded * 100 ) );
}

Json expirationJson( double seconds ) {
   // A table may hold any number, even no number at all.
   constexpr double kLongest = 65535.0;
   if ( seconds > kLongest ) return "infinity";
   return seconds > 0 ? static_cast<uint16_t>( seconds ) : 0;
}

std::string jsonText( const Json& json, int indent ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

}
