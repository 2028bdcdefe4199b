#include <algorithm>
#include <set>

#include "apps/json/YangData.h"
#include "apps/show/output/Print.h"

namespace Show {

namespace {

// Without an interface, every one that the group's routes have.
std::vector<Receiver> receiversOf( const Mirrors& mirrors, const Receiver& asked ) {
   if ( !asked.intfId.empty() || !asked.host.isUnspecified() ) return { asked };
   std::set<std::string> names;
   for ( const auto& mirror : mirrors.all() ) {
      for ( const Route& route : std::as_const( *mirror->model ).route() ) {
         if ( route.key().group != asked.group ) continue;
         for ( const Intf& intf : route.routeIntf() )
            if ( intf.localReceiverInclude() || intf.joinState() != Intf::noInfo )
               names.emplace( intf.intfId().name() );
      }
   }
   std::vector<Receiver> out;
   for ( const std::string& name : names ) {
      out.push_back( asked );
      out.back().intfId = Vantu::IntfId( name );
   }
   return out;
}

// Looks twice where that tells more.
std::vector<Answer> answers( Mirrors& mirrors,
                             const std::vector<Receiver>& receivers,
                             const Arguments& arguments ) {
   constexpr double kInterval = 2.0;  // s
   AllRates rates = firstRates( mirrors );
   Events events( arguments.selection.root );
   Evidence evidence{ events.take(), thisHost(), mirrors.now() };
   std::vector<Answer> all = whyOf( mirrors, receivers, evidence );
   const bool again = std::any_of(
      all.begin(), all.end(), []( const auto& each ) { return each.why.again; } );
   if ( !again ) return all;
   evidence.interval = arguments.interval.value_or( kInterval );
   pause( mirrors, evidence.interval );
   for ( auto& [mirror, each] : rates ) each.read();
   for ( Logged& logged : events.take() )
      evidence.log.push_back( std::move( logged ) );
   evidence.host = thisHost();
   evidence.now = mirrors.now();
   evidence.rates = &rates;
   return whyOf( mirrors, receivers, evidence );
}

}

ExitStatus printWhy( Mirrors& mirrors, const Arguments& arguments ) {
   const auto receivers = receiversOf( mirrors, arguments.receiver );
   if ( receivers.empty() )
      return complain( nothingFound,
                       "nobody asks for " +
                          Vantu::valueToStrep( arguments.receiver.group ) +
                          ": name the receiver's interface or address" );
   const auto found = answers( mirrors, receivers, arguments );
   ExitStatus status = done;
   Json document = Json::array();
   for ( size_t i = 0; i < found.size(); ++i ) {
      const Answer& answer = found[i];
      if ( !answer.why.cause.empty() ) status = nothingFound;
      if ( arguments.json ) {
         document.push_back( envelope( *answer.mirror, "pimsm-state:why",
                                       whyJson( answer, receivers[i] ) ) );
      } else {
         printText( ( i == 0 ? "" : "\n" ) + whyText( answer, receivers[i] ) );
      }
   }
   if ( arguments.json ) printJson( document );
   return status;
}

}
