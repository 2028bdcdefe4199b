#include "apps/show/Watch.h"

#include <fmt/chrono.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <ctime>

#include "apps/program/Output.h"
#include "apps/program/Printable.h"
#include "apps/show/WatchScreen.h"
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

// Calls back when nobody can read standard output any more.
class HangUp {
 public:
   HangUp( Mox::Loop& loop, Mox::Loop::Function gone )
      : epoll_( epoll_create1( EPOLL_CLOEXEC ), "epoll_create1" ),
        watcher_( loop, epoll_.value(), std::move( gone ) ) {
      // Errors and hang-ups alone. What cannot be polled, as a file, has no reader.
      epoll_event none{};
      epoll_ctl( epoll_.value(), EPOLL_CTL_ADD, STDOUT_FILENO, &none );
   }

 private:
   Mox::Loop::Fd epoll_;
   Mox::Loop::FdWatcher watcher_;
};

// The signals wait for the loop, which may wait for a reader.
bool askedToEnd() {
   sigset_t waiting;
   sigpending( &waiting );
   return sigismember( &waiting, SIGTERM ) == 1 ||
          sigismember( &waiting, SIGINT ) == 1;
}

// To standard output. False: nobody reads it any more, or we are to end and it would
// have to wait for its reader. Throws OutputError.
bool writeOut( std::string_view text ) {
   constexpr int kPatience = 200;  // ms, to look at signals
   while ( !text.empty() ) {
      pollfd out{ STDOUT_FILENO, POLLOUT, 0 };
      if ( poll( &out, 1, kPatience ) <= 0 ) {
         if ( askedToEnd() ) return false;
         continue;
      }
      // What a pipe with room takes without waiting.
      const ssize_t written = write( STDOUT_FILENO, text.data(),
                                     std::min<size_t>( text.size(), PIPE_BUF ) );
      if ( written >= 0 ) {
         text.remove_prefix( static_cast<size_t>( written ) );
      } else if ( errno == EPIPE ) {
         return false;
      } else if ( errno != EINTR && errno != EAGAIN ) {
         Programs::cannotWrite( "the output" );
      }
   }
   return true;
}

// Collects changes for a moment, so that a burst is one write.
class Lines : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 0.05;   // s
   static constexpr double rescanning = 0.2;  // s, between two looks for VRFs

   Lines( Mirrors& mirrors, const RouteFilter& filter, bool json )
      : Notifiee( &mirrors.clock() ),
        mirrors_( mirrors ),
        filter_( filter ),
        json_( json ) {
      for ( const auto& mirror : mirrors.all() ) follow( *mirror, false );
      touch();
   }

 private:
   void follow( const Mirror& mirror, bool isNew ) {
      feeds_.push_back(
         std::make_unique<ChangeFeed>( mirror, isNew, [this] { touch(); } ) );
   }

   void touch() {
      wakeupTimeIs( std::min( wakeupTime(), clock()->now() + interval ) );
   }

   void onTime() override {
      if ( clock()->now() >= rescanTime_ ) followNew();
      const std::string time = timeText();
      std::string text;
      bool more = false;
      for ( const auto& feed : feeds_ ) {
         for ( const Change& change : feed->take( filter_, clock()->now() ) )
            text += line( feed->mirror(), change, time ) + '\n';
         // Changes wait for a second after a writer has come back, and must be taken
         // then. While it is gone nothing need be looked at: its return is heard.
         more = more || ( feed->waiting() && feed->mirror().writerAlive() );
      }
      forgetGone();
      wakeupTimeIs( more ? clock()->now() + interval : rescanTime_ );
      if ( !writeOut( text ) ) mirrors_.loop().stop();
   }

   void followNew() {
      rescanTime_ = clock()->now() + rescanning;
      mirrors_.rescan();
      for ( const auto& mirror : mirrors_.all() ) {
         const bool followed = std::any_of(
            feeds_.begin(), feeds_.end(),
            [&]( const auto& feed ) { return &feed->mirror() == mirror.get(); } );
         if ( followed || mirror->problem().kind != Mirror::Problem::none )
            continue;
         if ( mirror->loaded() ) {
            follow( *mirror, true );
         } else {
            rescanTime_ = clock()->now() + interval;
         }
      }
   }

   void forgetGone() {
      for ( auto& feed : feeds_ ) {
         if ( !feed->gone() ) continue;
         const Mirror& mirror = feed->mirror();
         feed.reset();
         mirrors_.drop( mirror );
      }
      std::erase( feeds_, nullptr );
   }

   std::string line( const Mirror& mirror, const Change& change,
                     const std::string& time ) const {
      if ( !json_ )
         return Programs::printable( changeText( mirror, change, time ) );
      return changeJson( mirror, change, time )
         .dump( -1, ' ', false, Json::error_handler_t::replace );
   }

   Mirrors& mirrors_;
   RouteFilter filter_;
   bool json_;
   double rescanTime_ = 0.0;
   std::vector<std::unique_ptr<ChangeFeed>> feeds_;
};

// The path to the source or RP without what the traffic's own interface and neighbour
// tell already.
std::vector<Change::Field> toldOnce( std::vector<Change::Field> fields ) {
   const auto named = [&]( const char* name ) {
      return std::find_if( fields.begin(), fields.end(), [&]( const auto& field ) {
         return field.name == name;
      } );
   };
   const auto rpf = named( "pimsm-state:rpf" );
   if ( rpf == fields.end() ) return fields;
   for ( const auto& [part, name] :
         { std::pair( "interface", "incoming-interface" ),
           std::pair( "neighbor", "rpf-neighbor" ) } ) {
      const auto told = named( name );
      const auto same = [part = part]( const Json& path, const Json& value ) {
         return ( path.is_null() ? Json() : path.value( part, Json() ) ) == value;
      };
      if ( told == fields.end() || !same( rpf->before, told->before ) ||
           !same( rpf->after, told->after ) )
         continue;
      if ( !rpf->before.is_null() ) rpf->before.erase( part );
      if ( !rpf->after.is_null() ) rpf->after.erase( part );
   }
   return fields;
}

std::string fieldText( const Json& value ) {
   if ( value.is_null() ) return "none";
   if ( value.is_boolean() ) return value.get<bool>() ? "yes" : "no";
   return value.is_string() ? value.get<std::string>() : value.dump();
}

// An object member by member, of which those that are the same say nothing.
void addField( std::string& text, const std::string& name, const Json& before,
               const Json& after, bool update ) {
   if ( before == after ) return;
   if ( before.is_object() || after.is_object() ) {
      const Json old = before.is_null() ? Json::object() : before;
      const Json now = after.is_null() ? Json::object() : after;
      Json all = old;
      all.update( now );
      for ( const auto& [part, ignored] : all.items() )
         addField( text, fmt::format( "{} {}", name, part ),
                   old.value( part, Json() ), now.value( part, Json() ), update );
      return;
   }
   if ( !text.empty() ) text += ", ";
   text += name + ' ';
   if ( update ) text += fieldText( before ) + " -> ";
   text += fieldText( after );
}

}

std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time ) {
   const std::string_view op = change.op;
   const std::string clockTime = time.substr( 11, 12 );
   const std::string where = mirror.vrf() + ' ' + familyName( mirror.family );
   if ( op == "vrf-gone" ) return clockTime + " vrf " + where + " is gone";
   if ( op == "vrf-new" ) return clockTime + " vrf " + where + " is new";
   std::string text = clockTime + ' ' + where + ' ' + change.op;
   if ( op == "sweep" )
      return text + ": fell behind, values in between are not told";
   if ( change.key == Routing::Pim::RouteKey() ) return text;
   std::string key = keyText( change.key );
   if ( change.rpt ) key.insert( key.size() - 1, ", rpt" );
   text += ' ' + key;
   if ( !change.intfId.empty() ) text += ' ' + std::string( change.intfId.name() );
   if ( op == "delete" ) return text;
   std::string fields;
   for ( const Change::Field& field : toldOnce( change.fields ) )
      addField( fields, field.name.substr( field.name.find( ':' ) + 1 ),
                field.before, field.after, op == "update" );
   return text + ": " + fields;
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
   json["is-rpt"] = wildcard || change.rpt;
   if ( !change.intfId.empty() ) json["interface"] = change.intfId.name();
   for ( const Change::Field& field : change.fields )
      json["changed"][field.name] = Json::array( { field.before, field.after } );
   return json;
}

void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form ) {
   // Who reads no more is heard of by the failing write, or before it.
   std::signal( SIGPIPE, SIG_IGN );
   const HangUp unread( mirrors.loop(), [&] { mirrors.loop().stop(); } );
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   if ( form == watchScreen ) return watchOnScreen( mirrors, filter );
   Lines lines( mirrors, filter, form == watchJsonLines );
   mirrors.loop().run();
}

}
