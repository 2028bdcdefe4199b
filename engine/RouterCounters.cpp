#include "engine/RouterCounters.h"

#include <algorithm>

namespace Router {
namespace {

constexpr size_t kTypes = static_cast<size_t>( PimType::dfElection ) + 1;

size_t indexOf( PimType type ) {
   return std::min( static_cast<size_t>( type ), kTypes );
}

size_t indexOf( const Message& message ) {
   if ( const auto* pim = std::get_if<PimMessage>( &message ) )
      return indexOf( pim->type );
   const bool query = std::holds_alternative<MembershipQuery>(
      std::get<MembershipMessage>( message ) );
   return kTypes + ( query ? 2 : 1 );
}

template <class Counters>
void append( std::string& out, const char* title, const Counters& counters ) {
   std::string part;
   for ( const auto& counter : counters ) {
      if ( counter->value() == 0 ) continue;
      part += part.empty() ? " " : ", ";
      part += counter->name() + " " + Mox::valueToStrep( counter->value() );
   }
   if ( part.empty() ) return;
   if ( !out.empty() ) out += "; ";
   out += title + part;
}

}

RouterCounters::RouterCounters() {
   auto add = []( Counters& counters, const char* owner, Mox::StringView name ) {
      counters.push_back( std::make_unique<Mox::EventCounter>( owner, name ) );
   };
   auto addKinds = [&]( Counters& counters, const char* owner ) {
      for ( size_t type = 0; type < kTypes; ++type )
         add( counters, owner, pimTypeName( static_cast<PimType>( type ) ) );
      for ( const char* other :
            { "unknown", "membership-report", "membership-query" } )
         add( counters, owner, other );
   };
   addKinds( received_, "agent/packets" );
   addKinds( sent_, "agent/sent" );
   addKinds( unsent_, "agent/unsent" );
   for ( JoinEvent event :
         { triggered, periodic, suppressed, overriding, prunesLeftOut } )
      add( joins_, "agent/joins", stringValue( event ) );
   for ( Election outcome : { assertsWon, assertsLost, querierChanges } )
      add( elections_, "agent/elections", stringValue( outcome ) );
   for ( uint32_t reason = notDropped + 1; reason < dropReasonCount; ++reason ) {
      add( dropped_, "agent/dropped",
           dropName( static_cast<DropReason>( reason ) ) );
   }
   for ( uint32_t reason = 0; reason < refusalCount; ++reason ) {
      add( refused_, "agent/refused",
           stringValue( static_cast<Refusal>( reason ) ) );
   }
}

void RouterCounters::received( const Message& message ) {
   received_[indexOf( message )]->inc();
}
void RouterCounters::sent( const Message& message ) {
   sent_[indexOf( message )]->inc();
}
void RouterCounters::unsent( const Message& message ) {
   unsent_[indexOf( message )]->inc();
}

uint64_t RouterCounters::receivedCount( PimType type ) const {
   return received_[indexOf( type )]->value();
}

std::string RouterCounters::text() const {
   std::string out;
   append( out, "packets:", received_ );
   append( out, "sent:", sent_ );
   append( out, "unsent:", unsent_ );
   append( out, "joins:", joins_ );
   append( out, "elections:", elections_ );
   append( out, "dropped:", dropped_ );
   append( out, "refused:", refused_ );
   return out.empty() ? "no packets" : out;
}

}
