#include "apps/show/watch/Watch.h"

#include <csignal>

#include "apps/json/ChangeJson.h"
#include "apps/json/ChangeLines.h"
#include "apps/json/EventJson.h"
#include "apps/json/YangData.h"
#include "apps/program/Printable.h"
#include "apps/show/text/ChangeText.h"
#include "apps/show/text/EventText.h"
#include "apps/show/watch/Reasons.h"
#include "apps/show/watch/StandardOutput.h"
#include "apps/show/watch/WatchScreen.h"
#include "platform/loop/SignalWatcher.h"

namespace Show {

namespace {

std::string textLine( const Mirror& mirror, const Change& change,
                      const std::string& time, const Logged* reason ) {
   std::string line = changeText( mirror, change, time );
   if ( reason != nullptr ) line += " (" + eventText( reason->event ) + ')';
   return Programs::printable( line );
}

std::string jsonLine( const Mirror& mirror, const Change& change,
                      const std::string& time, const Logged* reason ) {
   auto json = changeJson( mirror, change, time );
   if ( reason != nullptr ) json["reason"] = eventJson( *reason );
   return jsonText( json );
}

}

void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form,
            const std::string& root ) {
   // A lost reader shows in the failing write, or in the poll before it.
   std::signal( SIGPIPE, SIG_IGN );
   const HangUp unread( mirrors.loop(), [&] { mirrors.loop().stop(); } );
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   if ( form == watchScreen ) return watchOnScreen( mirrors, filter, root );
   Reasons reasons( root );
   const auto line = [&]( const Mirror& mirror, const Change& change,
                          const std::string& time ) {
      const Logged* reason =
         reasons.of( mirror, change.key, change.intfId, mirrors.now() );
      return form == watchJsonLines ? jsonLine( mirror, change, time, reason )
                                    : textLine( mirror, change, time, reason );
   };
   const ChangeLines lines( mirrors, filter, line, [&]( std::string_view text ) {
      if ( !writeOut( text ) ) mirrors.loop().stop();
   } );
   mirrors.loop().run();
}

}
