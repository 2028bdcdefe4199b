#include "apps/mirror/Events.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace Show {

using Published::Event;

namespace {

double clockOf( clockid_t clock ) {
   timespec now;
   clock_gettime( clock, &now );
   return static_cast<double>( now.tv_sec ) +
          static_cast<double>( now.tv_nsec ) * 1e-9;
}

bool covers( const std::optional<Vantu::IpGenPrefix>& prefix,
             const Vantu::IpGenAddr& address ) {
   return !prefix || ( address.family() == prefix->address().family() &&
                       prefix->contains( address ) );
}

}

bool EventFilter::matches( const Logged& logged ) const {
   const Event& event = logged.event;
   if ( logged.last < since ) return false;
   if ( vrf != "all" && event.vrf.text() != vrf ) return false;
   if ( ipVersion != 0 && event.ipVersion != ipVersion ) return false;
   if ( group && !( event.group.isMulticast() && covers( group, event.group ) ) )
      return false;
   const bool anySource = event.group.isMulticast() && event.source.isUnspecified();
   if ( source && !anySource && !covers( source, event.source ) ) return false;
   if ( !iface.empty() && event.intf.name() != iface &&
        event.otherIntf.name() != iface )
      return false;
   if ( neighbor && event.address != *neighbor && event.otherAddress != *neighbor )
      return false;
   return kinds.empty() ||
          std::find( kinds.begin(), kinds.end(), event.kind ) != kinds.end();
}

Events::Events( const std::string& root )
   : logs_{ Log{ "agent", { root, Published::agentLog } },
            Log{ "mfib", { root, Published::mfibLog } } } {}

std::vector<Logged> Events::take() {
   std::vector<Logged> all;
   for ( Log& log : logs_ ) {
      log.reader.poll();
      while ( auto entry = log.reader.next() )
         all.emplace_back( std::move( *entry ), log.name );
   }
   std::stable_sort(
      all.begin(), all.end(),
      []( const Logged& a, const Logged& b ) { return a.event.at < b.event.at; } );
   return all;
}

std::vector<Logged> Events::repeated() {
   std::vector<Logged> all;
   for ( Log& log : logs_ )
      for ( auto& entry : log.reader.repeated() )
         all.emplace_back( std::move( entry ), log.name );
   return all;
}

bool Events::there() const {
   return std::any_of( logs_.begin(), logs_.end(), []( const Log& log ) {
      return log.reader.ring().state() == Brane::readerAttached;
   } );
}

std::vector<std::string> Events::paths() const {
   return { logs_[0].reader.path(), logs_[1].reader.path() };
}

std::vector<std::string> Events::problems() const {
   std::vector<std::string> out;
   for ( const auto& [name, log] : logs_ ) {
      if ( !log.ring().problem().empty() ) out.push_back( log.ring().problem() );
      if ( log.damaged() != 0 )
         out.push_back( fmt::format( "{}: {} damaged events are left out",
                                     log.path(), log.damaged() ) );
      if ( log.missed() != 0 )
         out.push_back(
            fmt::format( "{}: {} events were replaced before they were read",
                         log.path(), log.missed() ) );
   }
   return out;
}

bool isReason( Published::EventKind kind ) {
   return kind != Published::forwardBegan && kind != Published::forwardEnded &&
          kind != Published::joinSent && kind != Published::pruneSent &&
          kind != Published::entryWritten && kind != Published::entryRemoved;
}

double monotonicNow() {
   return clockOf( CLOCK_MONOTONIC );
}

int64_t utcMilliseconds( double time ) {
   const double wall =
      time + clockOf( CLOCK_REALTIME ) - clockOf( CLOCK_MONOTONIC );
   return static_cast<int64_t>( std::floor( wall * 1000 ) );
}

std::string utcText( int64_t milliseconds ) {
   constexpr int64_t kSecond = 1000;
   // Years of more than four digits are none that a clock shows.
   constexpr int64_t kLatest = 253402300799 * kSecond;
   const int64_t bounded = std::clamp( milliseconds, int64_t{ 0 }, kLatest );
   return fmt::format( "{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime( static_cast<std::time_t>( bounded / kSecond ) ),
                       bounded % kSecond );
}

std::string utcOf( double time ) {
   return utcText( utcMilliseconds( time ) );
}

std::vector<Published::EventKind> eventKinds( const std::string& word ) {
   const auto lower = []( std::string text ) {
      std::transform( text.begin(), text.end(), text.begin(),
                      []( unsigned char c ) { return std::tolower( c ); } );
      return text;
   };
   std::vector<Published::EventKind> out;
   const auto names = enumNames( Published::EventKind() ).values;
   for ( uint32_t i = 1; i < names.size(); ++i ) {
      if ( lower( std::string( names[i] ) ).find( lower( word ) ) !=
           std::string::npos )
         out.push_back( static_cast<Published::EventKind>( i ) );
   }
   return out;
}

}
