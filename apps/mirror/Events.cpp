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
   : agent_( root, Published::agentLog ), mfib_( root, Published::mfibLog ) {}

std::vector<Logged> Events::take() {
   std::vector<Logged> all;
   for ( Published::EventReader* log : { &agent_, &mfib_ } ) {
      log->poll();
      while ( auto entry = log->next() ) all.push_back( std::move( *entry ) );
   }
   std::stable_sort(
      all.begin(), all.end(),
      []( const Logged& a, const Logged& b ) { return a.event.at < b.event.at; } );
   return all;
}

bool Events::there() const {
   return agent_.ring().state() == Brane::readerAttached ||
          mfib_.ring().state() == Brane::readerAttached;
}

std::vector<std::string> Events::paths() const {
   return { agent_.path(), mfib_.path() };
}

std::vector<std::string> Events::problems() const {
   std::vector<std::string> out;
   for ( const Published::EventReader* log : { &agent_, &mfib_ } ) {
      if ( !log->ring().problem().empty() ) out.push_back( log->ring().problem() );
      if ( log->damaged() != 0 )
         out.push_back( fmt::format( "{}: {} damaged events are left out",
                                     log->path(), log->damaged() ) );
      if ( log->missed() != 0 )
         out.push_back(
            fmt::format( "{}: {} events were replaced before they were read",
                         log->path(), log->missed() ) );
   }
   return out;
}

std::string utcOf( double time ) {
   const double wall =
      time + clockOf( CLOCK_REALTIME ) - clockOf( CLOCK_MONOTONIC );
   const double whole = std::floor( wall );
   const auto seconds = static_cast<std::time_t>( whole );
   const auto thousandths = static_cast<unsigned>( ( wall - whole ) * 1000 );
   return fmt::format( "{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime( seconds ),
                       thousandths );
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
