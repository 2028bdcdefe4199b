#include "apps/json/EventJson.h"
#include "apps/json/YangData.h"
#include "apps/show/output/Print.h"
#include "apps/show/text/EventText.h"
#include "apps/show/watch/LogFollower.h"

#include <iostream>

namespace Show {

ExitStatus printLog( const Arguments& arguments ) {
   Events events( arguments.selection.root );
   const double now = monotonicNow();
   EventFilter filter = arguments.events;
   filter.since = now - filter.since;
   const std::vector<Logged> all = events.take();
   if ( !events.there() ) {
      for ( const std::string& problem : events.problems() )
         return complain( layoutNotSupported, problem );
      if ( !arguments.follow )
         return complain( noTables, "no event log under " +
                                       arguments.selection.root +
                                       ": start pimsm-agent, or name its --root" );
   }
   Json document = Json::array();
   bool any = false;
   for ( const Logged& logged : all ) {
      if ( !filter.matches( logged ) ) continue;
      any = true;
      if ( arguments.json ) {
         document.push_back( eventJson( logged ) );
      } else if ( arguments.jsonLines ) {
         printJson( eventJson( logged ), -1 );
      } else {
         printText( eventLine( logged, now ) + '\n' );
      }
   }
   if ( arguments.json ) printJson( document );
   if ( arguments.follow ) {
      std::cout.flush();
      followLog( events, filter, [&]( const Logged& logged ) {
         return arguments.jsonLines ? jsonText( eventJson( logged ) )
                                    : eventLine( logged, monotonicNow() );
      } );
   }
   for ( const std::string& problem : events.problems() )
      complain( unverified, problem );
   if ( !events.problems().empty() ) return unverified;
   return any || arguments.follow ? done : nothingFound;
}

}
