#include "published/EventLog.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/shm/Error.h"
#include "platform/trace/Trace.h"

namespace Published {

MOX_TRACE_FACILITY( trace, "Pimsm::Event" )

namespace {

using Form = Brane::FlatForm<Event>;

Brane::Layout layoutOfEvent() {
   Brane::Layout layout;
   layout.keySize = sizeof( double );
   layout.recordSize = sizeof( Form::Bytes );
   layout.fields = Form::fields();
   return layout;
}

}

EventLog::Same::Same( const Event& event )
   : kind( event.kind ),
     refusal( event.refusal ),
     ipVersion( event.ipVersion ),
     vrf( event.vrf.text() ),
     intf( event.intf ),
     group( event.group ),
     source( event.source ),
     address( event.address ) {}

size_t EventLog::HashOfSame::operator()( const Same& same ) const {
   size_t hash = same.kind * 64 + same.refusal;
   const auto mix = [&hash]( size_t more ) {
      hash = ( hash ^ more ) * size_t( UINT64_C( 0x9e3779b97f4a7c15 ) );
   };
   mix( std::hash<Mox::String>()( same.vrf ) );
   mix( same.intf.hash() );
   mix( std::hash<Vantu::IpGenAddr>()( same.group ) );
   mix( std::hash<Vantu::IpGenAddr>()( same.source ) );
   mix( std::hash<Vantu::IpGenAddr>()( same.address ) );
   return hash;
}

EventLog::EventLog( const Corvex::EntityManager& manager, Mox::StringView path,
                    Mox::Clock& clock, uint32_t entries )
   : manager_( manager ),
     path_( path ),
     clock_( clock ),
     ring_( manager.fileAt( path ), layoutOfEvent(), entries ) {}

void EventLog::add( const Event& event ) {
   changed_ = true;
   if ( event.kind == refused || event.kind == wrongInterface )
      return addRepeated( event );
   write( event );
}

uint64_t EventLog::write( const Event& event ) {
   Form::Bytes bytes{};
   Form::write( event, bytes );
   if ( event.at == 0.0 ) bytes.at = clock_.now();
   MOX_TRACE( trace, 5,
              event.kind << ' ' << event.vrf.text() << ' ' << event.intf << " ("
                         << event.source << ", " << event.group << ") "
                         << event.address << ' ' << event.cause
                         << Mox::traceField( "VRF", event.vrf.text() )
                         << Mox::traceField( "EVENT", event.kind )
                         << Mox::traceField( "GROUP", event.group ) );
   return ring_.add( &bytes, bytes.at );
}

// A flood of different refusals, of forged senders for instance, must not wash all
// else out of the log.
void EventLog::addRepeated( Event event ) {
   const double now = event.at != 0.0 ? event.at : clock_.now();
   event.at = now;
   if ( std::floor( now ) != second_ ) {
      second_ = std::floor( now );
      refusals_ = 0;
   }
   if ( refusals_ >= refusalsPerSecond )
      event.group = event.source = event.address = Vantu::IpGenAddr();
   if ( told_.size() >= maxTold ) told_.clear();
   auto [found, isNew] = told_.try_emplace( Same( event ) );
   Told& told = found->second;
   const bool same = !isNew && now - told.last < sameRefusal;
   told.last = now;
   if ( same && ring_.repeat( told.sequence, now ) ) return;
   ++refusals_;
   told.sequence = write( event );
}

void EventLog::flush() {
   if ( !std::exchange( changed_, false ) ) return;
   ring_.ring();
   const double now = clock_.now();
   if ( now < checked_ + checkInterval ) return;
   checked_ = now;
   if ( ring_.filesStand() ) return;
   try {
      manager_.fileAt( path_ );
      ring_.restoreFiles();
   } catch ( const Brane::CreateError& e ) {
      MOX_TRACE( trace, 0, e.what() );
   }
}

EventReader::EventReader( const Mox::String& root, Mox::StringView path )
   : path_( root + '/' + Mox::String( path ) ), ring_( path_, layoutOfEvent() ) {}

bool EventReader::poll() {
   if ( !ring_.poll() ) return false;
   begun_ = false;
   return true;
}

std::optional<EventReader::Entry> EventReader::next() {
   if ( !begun_ && ring_.newest() != 0 ) {
      begun_ = true;
      next_ = std::max( ring_.oldest(), std::min( next_, ring_.newest() + 1 ) );
   }
   while ( next_ <= ring_.newest() ) {
      if ( next_ < ring_.oldest() ) {
         missed_ += ring_.oldest() - next_;
         next_ = ring_.oldest();
      }
      Form::Bytes bytes;
      Brane::RingReader::Entry found;
      Entry entry;
      entry.sequence = next_++;
      const Brane::Lookup result = ring_.read( entry.sequence, &bytes, found );
      if ( result == Brane::lookupAbsent ) {
         ++missed_;
      } else if ( result == Brane::lookupDamaged ||
                  !Form::read( bytes, entry.event ) ) {
         ++damaged_;
      } else {
         entry.count = found.count;
         entry.last = found.last;
         return entry;
      }
   }
   return std::nullopt;
}

}
