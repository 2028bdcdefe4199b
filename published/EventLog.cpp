#include "published/EventLog.h"

#include <algorithm>
#include <utility>

#include "platform/base/Assert.h"
#include "platform/shm/Error.h"
#include "platform/trace/Trace.h"

namespace Published {

MOX_TRACE_FACILITY( eventTrace, "Pimsm::Event" )

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

namespace {

// Is the same again counted?
bool isRepeated( EventKind kind ) {
   return kind == refused || kind == wrongInterface;
}

}

EventLog::Same::Same( const Event& event )
   : kind( event.kind ),
     refusal( event.refusal ),
     message( event.message ),
     value( event.value ),
     ipVersion( event.ipVersion ),
     vrf( event.vrf.text() ),
     intf( event.intf ),
     group( event.group ),
     source( event.source ),
     address( event.address ) {}

size_t EventLog::HashOfSame::operator()( const Same& same ) const {
   size_t hash = ( same.kind * 64 + same.refusal ) * 16 + same.message + same.value;
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
     ring_( manager.fileAt( path ), layoutOfEvent(), entries ) {
   const Mox::String owner = path_.substr( path_.rfind( '/' ) + 1 ) + "/events";
   for ( const Mox::StringView kind : enumNames( EventKind() ).values.subspan( 1 ) )
      counts_.emplace_back( owner, kind );
}

void EventLog::add( const Event& event ) {
   MOX_ASSERT( event.kind != noEvent );
   changed_ = true;
   counts_[event.kind - 1].inc();
   if ( isRepeated( event.kind ) ) return addRepeated( event );
   write( event );
}

uint64_t EventLog::write( const Event& event ) {
   Form::Bytes bytes{};
   Form::write( event, bytes );
   if ( event.at == 0.0 ) bytes.at = clock_.now();
   MOX_TRACE( eventTrace, 5,
              event.kind << ' ' << event.vrf.text() << ' ' << event.intf << " ("
                         << event.source << ", " << event.group << ") "
                         << event.address << ' ' << event.cause
                         << Mox::traceField( "VRF", event.vrf.text() )
                         << Mox::traceField( "EVENT", event.kind )
                         << Mox::traceField( "GROUP", event.group ) );
   return ring_.add( &bytes, bytes.at );
}

// The same again is counted. False: it is new.
bool EventLog::count( const Event& event ) {
   const auto found = told_.find( Same( event ) );
   if ( found == told_.end() ) return false;
   Told& told = found->second;
   const bool same = event.at - told.last < sameRefusal;
   told.last = event.at;
   return same && ring_.repeat( told.sequence, event.at );
}

// A flood of different refusals, of forged senders for instance, must not wash all
// else out of the log.
void EventLog::addRepeated( Event event ) {
   if ( event.at == 0.0 ) event.at = clock_.now();
   if ( count( event ) ) return;
   room_ = std::min( refusalBurst, room_ + std::max( 0.0, event.at - counted_ ) );
   counted_ = event.at;
   if ( room_ < 1.0 ) {
      event.group = event.source = event.address = Vantu::IpGenAddr();
      if ( count( event ) ) return;
   } else {
      room_ -= 1.0;
   }
   if ( told_.size() >= maxTold ) told_.clear();
   told_.insert_or_assign( Same( event ), Told{ write( event ), event.at } );
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
      MOX_TRACE( eventTrace, 0, e.what() );
   }
}

EventReader::EventReader( const Mox::String& root, Mox::StringView path )
   : path_( root + '/' + Mox::String( path ) ),
     ring_( path_, layoutOfEvent() ),
     instance_( ring_.instanceId() ) {}

bool EventReader::poll() {
   if ( !ring_.poll() ) return false;
   if ( ring_.instanceId() == instance_ || ring_.instanceId() == 0 ) return false;
   instance_ = ring_.instanceId();
   next_ = 1;
   counts_.clear();
   return true;
}

Brane::Lookup EventReader::read( uint64_t sequence, Entry& out ) const {
   Form::Bytes bytes;
   Brane::RingReader::Entry found;
   const Brane::Lookup result = ring_.read( sequence, &bytes, found );
   if ( result != Brane::lookupFound ) return result;
   if ( !Form::read( bytes, out.event ) ) return Brane::lookupDamaged;
   out.sequence = sequence;
   out.count = found.count;
   out.last = found.last;
   return result;
}

// A number that damage made too high heals with the file.
std::optional<EventReader::Entry> EventReader::next() {
   const uint64_t newest = ring_.newest();
   if ( newest == 0 ) return std::nullopt;
   if ( next_ == 1 || next_ > newest + 1 ) next_ = ring_.oldest();
   while ( next_ <= ring_.newest() ) {
      if ( next_ < ring_.oldest() ) {
         missed_ += ring_.oldest() - next_;
         next_ = ring_.oldest();
      }
      Entry entry;
      const Brane::Lookup result = read( next_++, entry );
      missed_ += result == Brane::lookupAbsent;
      damaged_ += result == Brane::lookupDamaged;
      if ( result != Brane::lookupFound ) continue;
      if ( isRepeated( entry.event.kind ) ) counts_[entry.sequence] = entry.count;
      if ( counts_.size() > EventLog::maxTold ) counts_.erase( counts_.begin() );
      return entry;
   }
   return std::nullopt;
}

std::vector<EventReader::Entry> EventReader::repeated() {
   std::vector<Entry> out;
   counts_.erase( counts_.begin(), counts_.lower_bound( ring_.oldest() ) );
   for ( auto& [sequence, count] : counts_ ) {
      Entry entry;
      if ( read( sequence, entry ) != Brane::lookupFound || entry.count == count )
         continue;
      count = entry.count;
      out.push_back( std::move( entry ) );
   }
   return out;
}

}
