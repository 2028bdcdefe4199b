#include "apps/store/detail/NatsNames.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/store/Names.h"

namespace Fleet {

namespace {

constexpr std::string_view kScheme = "nats://";
constexpr std::string_view kState = "KV_pimsm-state_";
constexpr const char* kNone = "-";

std::string groupToken( const std::string& group ) {
   if ( group.empty() ) return kNone;
   std::string text = group;
   std::replace_if(
      text.begin(), text.end(), []( char c ) { return c == '.' || c == ':'; },
      '-' );
   return text;
}

std::vector<std::string_view> split( std::string_view text, char at ) {
   std::vector<std::string_view> parts;
   for ( ;; ) {
      const size_t end = text.find( at );
      parts.push_back( text.substr( 0, end ) );
      if ( end == std::string_view::npos ) return parts;
      text.remove_prefix( end + 1 );
   }
}

}

std::vector<std::string> serversOf( const StoreAddress& address ) {
   std::vector<std::string> servers;
   for ( std::string_view part : split(
            std::string_view( address.store ).substr( kScheme.size() ), ',' ) ) {
      if ( part.starts_with( kScheme ) ) part.remove_prefix( kScheme.size() );
      if ( part.empty() )
         throw Mox::ParseError( "No store: '" + address.store +
                                "'; expected nats://HOST[:PORT][,HOST[:PORT]]..." );
      if ( part.find( '@' ) != std::string_view::npos )
         throw Mox::ParseError(
            "A store's name holds no passwords; give --creds, or --cert and "
            "--key" );
      servers.push_back( std::string( kScheme ) + std::string( part ) );
   }
   return servers;
}

std::string NatsNames::stateStream( const std::string& router ) const {
   return fmt::format( "{}{}_{}", kState, fleet, router );
}

std::string NatsNames::routerOf( std::string_view stream ) const {
   const std::string prefix = fmt::format( "{}{}_", kState, fleet );
   if ( !stream.starts_with( prefix ) ) return "";
   stream.remove_prefix( prefix.size() );
   return isName( stream ) ? std::string( stream ) : "";
}

std::string NatsNames::statePrefix( const std::string& router ) const {
   return fmt::format( "$KV.pimsm-state_{}_{}.", fleet, router );
}

std::string NatsNames::liveStream() const {
   return "KV_pimsm-live_" + fleet;
}

std::string NatsNames::liveSubject( const std::string& router ) const {
   return fmt::format( "$KV.pimsm-live_{}.{}", fleet, router );
}

std::string NatsNames::historyStream() const {
   return "pimsm-history_" + fleet;
}

std::string NatsNames::historyPrefix( const std::string& router ) const {
   return fmt::format( "pimsm.{}.history.{}.", fleet, router );
}

std::string NatsNames::subjectOf( const std::string& router,
                                  const Event& event ) const {
   const std::string prefix = historyPrefix( router );
   if ( event.vrf.empty() ) return prefix + kNone;
   return fmt::format( "{}{}.{}.{}", prefix, token( event.vrf ), event.ipVersion,
                       groupToken( event.group ) );
}

std::string NatsNames::subjectOf( const std::string& router,
                                  const Past& past ) const {
   const std::string prefix = historyPrefix( router );
   if ( past.vrf.empty() && past.ipVersion == 0 && past.group.empty() )
      return prefix + '>';
   return fmt::format( "{}{}.{}.{}", prefix,
                       past.vrf.empty() ? "*" : token( past.vrf ),
                       past.ipVersion == 0 ? "*" : std::to_string( past.ipVersion ),
                       past.group.empty() ? "*" : groupToken( past.group ) );
}

bool NatsNames::fill( Event& event, const std::string& router,
                      std::string_view subject ) const {
   const std::string prefix = historyPrefix( router );
   if ( !subject.starts_with( prefix ) ) return false;
   const auto parts = split( subject.substr( prefix.size() ), '.' );
   if ( parts.size() == 1 ) return parts[0] == kNone;
   if ( parts.size() != 3 || ( parts[1] != "4" && parts[1] != "6" ) ) return false;
   const auto vrf = untoken( parts[0] );
   if ( !vrf ) return false;
   event.vrf = *vrf;
   event.ipVersion = parts[1] == "4" ? 4 : 6;
   if ( parts[2] == kNone ) return true;
   const auto group = addressOf(
      parts[2], event.ipVersion == 4 ? AddressFamily::ipv4 : AddressFamily::ipv6 );
   if ( !group ) return false;
   event.group = Vantu::valueToStrep( *group );
   return true;
}

}
