#include <set>

#include "apps/json/YangData.h"
#include "apps/show/output/Print.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

// Without an interface, every one that the group's routes have.
std::vector<Receiver> receiversOf( const Mirrors& mirrors, const Receiver& asked ) {
   if ( !asked.intfId.empty() || !asked.host.isUnspecified() ) return { asked };
   std::set<std::string> names;
   for ( const auto& mirror : mirrors.all() ) {
      for ( const Route& route : std::as_const( *mirror->model ).route() ) {
         if ( route.key().group != asked.group ) continue;
         for ( const Intf& intf : route.routeIntf() )
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

}

ExitStatus printWhy( const Mirrors& mirrors, const Arguments& arguments ) {
   Events events( arguments.selection.root );
   const Evidence evidence{ events.take(), thisHost(), mirrors.now() };
   const auto receivers = receiversOf( mirrors, arguments.receiver );
   if ( receivers.empty() )
      return complain( nothingFound,
                       "nobody asks for " +
                          Vantu::valueToStrep( arguments.receiver.group ) +
                          ": name the receiver's interface or address" );
   ExitStatus status = done;
   Json document = Json::array();
   for ( const Receiver& receiver : receivers ) {
      const Answer answer = whyOf( mirrors, receiver, evidence );
      if ( !answer.why.cause.empty() ) status = nothingFound;
      if ( arguments.json ) {
         document.push_back( envelope( *answer.mirror, "pimsm-state:why",
                                       whyJson( answer, receiver ) ) );
      } else {
         printText( ( &receiver == &receivers.front() ? "" : "\n" ) +
                    whyText( answer, receiver ) );
      }
   }
   if ( arguments.json ) printJson( document );
   return status;
}

}
