#include "apps/show/Watch.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <csignal>
#include <ctime>
#include <iostream>

#include "apps/show/ChangeFeed.h"
#include "apps/show/WatchScreen.h"
#include "apps/show/Words.h"
#include "platform/loop/SignalWatcher.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

std::string timeText() {
   timespec now;
   clock_gettime( CLOCK_REALTIME, &now );
   return fmt::format( "{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime( now.tv_sec ),
                       now.tv_nsec / 1000000 );
}

// Collects changes for a moment, so that a burst is one write.
class Lines : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 0.05;  // s

   Lines( Mirrors& mirrors, const RouteFilter& filter, bool json )
      : Notifiee( &mirrors.clock() ),
        mirrors_( mirrors ),
        filter_( filter ),
        json_( json ) {
      for ( const auto& mirror : mirrors.all() )
         feeds_.push_back(
            std::make_unique<ChangeFeed>( *mirror, [this] { touch(); } ) );
   }

 private:
   void touch() {
      if ( wakeupTime() == Mox::Clock::never )
         wakeupTimeIs( clock()->now() + interval );
   }

   void onTime() override {
      wakeupTimeIs( Mox::Clock::never );
      const std::string time = timeText();
      for ( const auto& feed : feeds_ ) {
         for ( const Change& change : feed->take( filter_, clock()->now() ) )
            print( feed->mirror(), change, time );
         // A returned writer's changes wait; a gone one's return touches again.
         if ( feed->waiting() && feed->mirror().writerAlive() ) touch();
      }
      if ( !std::cout.flush() ) mirrors_.loop().stop();
   }

   void print( const Mirror& mirror, const Change& change,
               const std::string& time ) {
      if ( json_ ) {
         std::cout << changeJson( mirror, change, time )
                         .dump( -1, ' ', false, Json::error_handler_t::replace )
                   << '\n';
      } else {
         std::cout << changeText( mirror, change, time ) << '\n';
      }
   }

   Mirrors& mirrors_;
   RouteFilter filter_;
   bool json_;
   std::vector<std::unique_ptr<ChangeFeed>> feeds_;
};

std::string fieldText( const Json& value ) {
   if ( value.is_null() ) return "none";
   if ( value.is_boolean() ) return value.get<bool>() ? "yes" : "no";
   return value.is_string() ? value.get<std::string>() : value.dump();
}

}

std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time ) {
   std::string text =
      fmt::format( "{} {} {} {}", time.substr( 11, 12 ), mirror.vrf(),
                   familyName( mirror.family ), change.op );
   if ( change.key == Routing::Pim::RouteKey() )
      return std::string_view( change.op ) == "sweep"
                ? text + ": fell behind, values in between are not told"
                : text;
   text += ' ' + keyText( change.key );
   if ( !change.intfId.empty() ) text += ' ' + std::string( change.intfId.name() );
   const bool update = std::string_view( change.op ) == "update";
   const char* apart = ": ";
   for ( const Change::Field& field : change.fields ) {
      if ( change.op == std::string_view( "delete" ) ) break;
      std::string_view name = field.name;
      name.remove_prefix( name.find( ':' ) + 1 );
      text += std::exchange( apart, ", " ) + std::string( name ) + ' ';
      if ( update ) text += fieldText( field.before ) + " -> ";
      text += fieldText( field.after );
   }
   return text;
}

Json changeJson( const Mirror& mirror, const Change& change,
                 const std::string& time ) {
   Json json;
   json["time"] = time;
   json["vrf"] = mirror.vrf();
   json["family"] = familyName( mirror.family );
   json["op"] = change.op;
   if ( std::string_view( change.op ) == "sweep" ) json["reason"] = "fell behind";
   if ( change.key == Routing::Pim::RouteKey() ) return json;
   const bool wildcard = change.key.source.isUnspecified();
   json["group"] = Vantu::valueToStrep( change.key.group );
   json["source-address"] =
      wildcard ? "*" : Vantu::valueToStrep( change.key.source );
   json["is-rpt"] = wildcard;
   if ( !change.intfId.empty() ) json["interface"] = change.intfId.name();
   for ( const Change::Field& field : change.fields )
      json["changed"][field.name] = Json::array( { field.before, field.after } );
   return json;
}

void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form ) {
   // Who reads no more is heard of by the failing write.
   std::signal( SIGPIPE, SIG_IGN );
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   if ( form == watchScreen ) return watchOnScreen( mirrors, filter );
   Lines lines( mirrors, filter, form == watchJsonLines );
   mirrors.loop().run();
}

}
