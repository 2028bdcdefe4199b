#include "apps/record/LogTail.h"

#include <utility>

#include "apps/mirror/Events.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

LogTail::LogTail( const std::string& root )
   : logs_{ Log{ "agent", { root, Published::agentLog } },
            Log{ "mfib", { root, Published::mfibLog } } } {}

std::string LogTail::instanceOf( const Log& log ) const {
   return hexText( log.reader.ring().instanceId() );
}

void LogTail::positionIs( const Json& position ) {
   if ( !position.is_object() ) return;
   for ( Log& log : logs_ ) {
      const Json own = position.value( log.name, Json() );
      if ( !own.is_object() ) continue;
      const Json instance = own.value( "instance", Json() );
      const Json sequence = own.value( "sequence", Json() );
      if ( !instance.is_string() || !sequence.is_string() ) continue;
      log.instance = instance.get<std::string>();
      log.sequence = hexOf( sequence.get<std::string>() ).value_or( 0 );
   }
}

Json LogTail::position() const {
   Json json = Json::object();
   for ( const Log& log : logs_ ) {
      if ( log.instance.empty() ) continue;
      json[log.name] = { { "instance", log.instance },
                         { "sequence", hexText( log.sequence ) } };
   }
   return json;
}

std::vector<Event> LogTail::take( History& history ) {
   std::vector<Event> events;
   for ( Log& log : logs_ ) {
      log.reader.poll();
      if ( log.reader.ring().state() != Brane::readerAttached ) continue;
      if ( instanceOf( log ) != log.instance ) {
         log.instance = instanceOf( log );
         log.sequence = 0;
      }
      while ( events.size() < most ) {
         const auto entry = log.reader.next();
         if ( !entry ) break;
         if ( entry->sequence <= log.sequence ) continue;
         log.sequence = entry->sequence;
         events.push_back( history.logged( log.name, *entry ) );
      }
      const uint64_t missed = log.reader.missed() + log.reader.damaged();
      if ( missed == std::exchange( log.missed, missed ) ) continue;
      events.push_back( history.line(
         "events-missed", {}, Show::monotonicNow(),
         { { "log", log.name }, { "count", std::to_string( missed ) } } ) );
   }
   return events;
}

}
