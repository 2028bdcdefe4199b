#include "apps/fleet/answers/Asked.h"

#include <CLI/CLI.hpp>
#include <map>

#include "apps/mirror/Events.h"
#include "apps/program/Ending.h"

namespace Fleet {

namespace {

using Programs::WrongUsage;

const std::map<std::string, double> kTimes = {
   { "s", 1.0 }, { "m", 60.0 }, { "h", 3600.0 }, { "d", 86400.0 } };

std::string addressOf( const std::string& text ) {
   return text.empty() || text == "*"
             ? text
             : Vantu::valueToStrep( Vantu::IpGenAddr( text ) );
}

std::optional<double> agoOf( const std::string& given ) {
   std::string text = given;
   if ( text == "ever" ) return std::nullopt;
   double seconds = 0.0;
   try {
      const CLI::Validator units = CLI::AsNumberWithUnit(
         kTimes, CLI::AsNumberWithUnit::UNIT_OPTIONAL, "TIME" );
      if ( units( text ).empty() && CLI::detail::lexical_cast( text, seconds ) &&
           seconds >= 0 )
         return seconds;
   } catch ( const CLI::ParseError& ) {
      // Said below.
   }
   throw WrongUsage( given + " is no time: 90, 30m, 12h, 7d or ever" );
}

int64_t timeAgo( double seconds ) {
   return wallNow() - static_cast<int64_t>( seconds * 1000 );
}

}

PathQuestion pathAsked( const Wanted& wanted, const PathAsked& asked ) {
   PathQuestion path;
   path.stream.group = Vantu::IpGenAddr( asked.group );
   if ( !path.stream.group.isMulticast() )
      throw WrongUsage( asked.group + " is no multicast group" );
   const AddressFamily family = path.stream.group.family();
   const auto addressOfFamily = [&]( const std::string& text ) {
      const Vantu::IpGenAddr address( text );
      if ( address.family() != family )
         throw WrongUsage( text + " and " + asked.group + " are of two families" );
      return address;
   };
   path.stream.source = asked.source == "*"
                           ? Vantu::IpGenAddr::unspecified( family )
                           : addressOfFamily( asked.source );
   if ( !asked.receiver.empty() ) path.receiver = addressOfFamily( asked.receiver );
   if ( wanted.ipVersion != 0 &&
        ( wanted.ipVersion == 4 ) != ( family == AddressFamily::ipv4 ) )
      throw WrongUsage( asked.group + " is of the other family" );
   path.scope = { wanted.vrf == "all" ? "default" : wanted.vrf, family };
   path.from = asked.from;
   return path;
}

Past pastAsked( const std::string& group, const std::string& source,
                const std::string& since, const std::string& until ) {
   Past past;
   past.group = addressOf( group );
   past.source = addressOf( source );
   if ( const auto ago = agoOf( since ) ) past.since = timeAgo( *ago );
   if ( until.empty() ) return past;
   const auto ago = agoOf( until );
   if ( !ago ) throw WrongUsage( "--until ever is no end" );
   past.until = timeAgo( *ago );
   return past;
}

int64_t wallNow() {
   return Show::utcMilliseconds( Show::monotonicNow() );
}

}
