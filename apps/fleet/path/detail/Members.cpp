#include "apps/fleet/path/detail/Members.h"

#include <charconv>
#include <cmath>

#include "apps/store/Store.h"
#include "apps/store/Untrusted.h"

namespace Fleet {

using Mox::ParseError;

namespace {

[[noreturn]] void wrongType( const char* name, const char* wanted ) {
   throw ParseError( std::string( name ) + " is no " + wanted );
}

// `type`: "address".
template <class Value>
Value valueFrom( const char* name, const Json& json, const char* type ) {
   if ( !json.is_string() ) wrongType( name, type );
   try {
      return Value( json.get_ref<const std::string&>() );
   } catch ( const Mox::Error& ) {
      wrongType( name, type );
   }
}

IpGenAddr addressFrom( const char* name, const Json& json ) {
   return valueFrom<IpGenAddr>( name, json, "address" );
}

IpGenPrefix prefixFrom( const char* name, const Json& json ) {
   return valueFrom<IpGenPrefix>( name, json, "prefix" );
}

}

Json documentOf( std::string_view value ) {
   if ( value.size() > largestValue ) throw ParseError( "it is too large" );
   if ( isTooDeep( value ) ) throw ParseError( "it is too deep" );
   Json json = Json::parse( value, nullptr, false );
   if ( json.is_discarded() ) throw ParseError( "it is no JSON" );
   return json;
}

Members::Members( const Json& json ) : json_( json ) {
   if ( !json.is_object() ) throw ParseError( "a part of it is no object" );
}

const Json* Members::member( const char* name ) const {
   const auto found = json_.find( name );
   return found == json_.end() ? nullptr : &*found;
}

bool Members::flag( const char* name ) const {
   const Json* found = member( name );
   if ( found == nullptr ) return false;
   if ( !found->is_boolean() ) wrongType( name, "truth value" );
   return found->get<bool>();
}

std::string Members::text( const char* name ) const {
   const Json* found = member( name );
   if ( found == nullptr ) return {};
   if ( !found->is_string() ) wrongType( name, "text" );
   return found->get<std::string>();
}

std::optional<uint64_t> Members::number( const char* name, uint64_t most ) const {
   const Json* found = member( name );
   if ( found == nullptr ) return std::nullopt;
   if ( !found->is_number_unsigned() || found->get<uint64_t>() > most )
      wrongType( name, "number of that kind" );
   return found->get<uint64_t>();
}

std::optional<uint32_t> Members::word( const char* name ) const {
   const auto found = number( name, UINT32_MAX );
   if ( !found ) return std::nullopt;
   return static_cast<uint32_t>( *found );
}

std::optional<double> Members::real( const char* name ) const {
   if ( member( name ) == nullptr ) return std::nullopt;
   const std::string is = text( name );
   double value = 0.0;
   const auto end = std::from_chars( is.data(), is.data() + is.size(), value );
   if ( end.ec != std::errc() || end.ptr != is.data() + is.size() ||
        !std::isfinite( value ) || value < 0.0 )
      wrongType( name, "decimal number" );
   return value;
}

std::optional<uint64_t> Members::counter( const char* name ) const {
   if ( member( name ) == nullptr ) return std::nullopt;
   const std::string is = text( name );
   uint64_t value = 0;
   const auto end = std::from_chars( is.data(), is.data() + is.size(), value );
   if ( end.ec != std::errc() || end.ptr != is.data() + is.size() )
      wrongType( name, "counter" );
   return value;
}

IpGenAddr Members::address( const char* name ) const {
   const Json* found = member( name );
   return found == nullptr ? IpGenAddr() : addressFrom( name, *found );
}

std::vector<IpGenAddr> Members::addresses( const char* name ) const {
   std::vector<IpGenAddr> all;
   const Json* found = array( name );
   if ( found == nullptr ) return all;
   for ( const Json& each : *found ) all.push_back( addressFrom( name, each ) );
   return all;
}

IpGenPrefix Members::prefix( const char* name ) const {
   const Json* found = member( name );
   if ( found == nullptr ) wrongType( name, "prefix: it is missing" );
   return prefixFrom( name, *found );
}

std::vector<IpGenPrefix> Members::prefixes( const char* name ) const {
   std::vector<IpGenPrefix> all;
   const Json* found = array( name );
   if ( found == nullptr ) return all;
   for ( const Json& each : *found ) all.push_back( prefixFrom( name, each ) );
   return all;
}

Time Members::time( const char* name ) const {
   return member( name ) == nullptr ? 0 : timeOf( text( name ) );
}

const Json* Members::array( const char* name, size_t most ) const {
   const Json* found = member( name );
   if ( found != nullptr && !found->is_array() ) wrongType( name, "list" );
   if ( found != nullptr && found->size() > most )
      throw ParseError( std::string( name ) + " has too many members" );
   return found;
}

const Json* Members::object( const char* name ) const {
   const Json* found = member( name );
   if ( found != nullptr && !found->is_object() ) wrongType( name, "object" );
   return found;
}

}
