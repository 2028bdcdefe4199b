#include "tests/scenario/Names.h"

#include "platform/base/Text.h"
#include "tests/scenario/Script.h"

namespace Scenario {

using Routing::Pim::RouteKey;
using Vantu::IpGenAddr;

Names::Names( const std::map<std::string, std::string>& texts ) : texts_( texts ) {
   for ( const auto& [name, text] : texts ) {
      if ( isRoute( name ) ) {
         routes_[route( name )] = name;
      } else {
         addresses_[address( name )] = name;
      }
   }
}

IpGenAddr Names::address( const std::string& word ) const {
   auto named = texts_.find( word );
   return IpGenAddr(
      Mox::StringView( named == texts_.end() ? word : named->second ) );
}

bool Names::isRoute( const std::string& word ) const {
   auto named = texts_.find( word );
   return ( named == texts_.end() ? word : named->second ).front() == '(';
}

RouteKey Names::route( const std::string& word ) const {
   auto named = texts_.find( word );
   const std::string text = named == texts_.end() ? word : named->second;
   const size_t comma = text.find( ',' );
   if ( text.front() != '(' || text.back() != ')' || comma == std::string::npos )
      throw ScriptError( "no route: " + word );
   const IpGenAddr group =
      address( text.substr( comma + 1, text.size() - comma - 2 ) );
   const std::string source = text.substr( 1, comma - 1 );
   return {
      source == "*" ? IpGenAddr::unspecified( group.family() ) : address( source ),
      group };
}

std::string Names::of( const IpGenAddr& address ) const {
   auto named = addresses_.find( address );
   return named == addresses_.end() ? valueToStrep( address ) : named->second;
}

std::string Names::of( const RouteKey& key ) const {
   auto named = routes_.find( key );
   if ( named != routes_.end() ) return named->second;
   return '(' + ( key.source.isUnspecified() ? "*" : of( key.source ) ) + ',' +
          of( key.group ) + ')';
}

}
