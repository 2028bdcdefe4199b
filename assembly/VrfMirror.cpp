#include "assembly/VrfMirror.h"

#include <utility>

namespace Routing::Pim::SparseMode {

// First the reader on an empty model, then the reconciler that loads the tables:
// only in this order do the counters stay right.
VrfMirror::VrfMirror( Corvex::EntityManager& manager, Mox::Clock& clock,
                      Vantu::AddressFamily family, const L3::VrfName& vrf,
                      Observer observer, bool interfaces )
   : observer_( std::move( observer ) ),
     model_( statusFactory( vrf ) ),
     tables_( Brane::Status::mountInDependencyOrder(
        manager, Brane::Status::mountPath( family, vrf ), ::Brane::tableReader,
        nullptr ) ),
     reader_( Brane::routeBraneReaderSmFactory( model_, tables_ ) ),
     restart_( Brane::routeBraneRestartSmFactory( model_, tables_,
                                                  ::Brane::tableReader, &clock ) ) {
   if ( observer_.route || observer_.routeIntf ) notifierIs( tables_.get() );
   if ( !interfaces ) return;
   published_ = Published::FamilyStatus::mount(
      manager, Published::FamilyStatus::mountPath( family, vrf ),
      ::Brane::tableReader );
   pim_ = std::make_unique<Published::PimMirror>( model_, published_ );
}

VrfMirror::~VrfMirror() = default;

bool VrfMirror::loaded() const {
   auto whole = []( const MoxBrane::TableBase& table ) {
      return table.control()->mountStatus() == MoxBrane::mountReady &&
             table.control()->quiesced();
   };
   return initialized() && whole( tables_->route() ) &&
          whole( tables_->routeIntf() );
}

// The first call reports the records from before it. A record that cannot be read
// changes nothing, and is read again with its next change.
template <class Record, class Table, class Tell>
void VrfMirror::tell( Known<Record>& known, const Table& table, const Tell& tell ) {
   if ( !tell ) return;
   if ( !std::exchange( known.loaded, true ) ) {
      for ( const auto& key : table.keys() ) known.changed.insert( key );
   }
   // One by one: when a call throws, the others are reported at the next turn's end.
   while ( !known.changed.empty() ) {
      const auto key = known.changed.extract( known.changed.begin() ).value();
      Record now;
      const ::Brane::Lookup found = table.find( key, now );
      if ( found != ::Brane::lookupFound && found != ::Brane::lookupAbsent )
         continue;
      const bool stands = found == ::Brane::lookupFound;
      auto former = known.records.extract( key );
      if ( stands && !former.empty() && former.mapped() == now ) {
         known.records.insert( std::move( former ) );
         continue;
      }
      if ( !stands && former.empty() ) continue;
      if ( stands ) known.records.emplace( key, now );
      tell( key, former.empty() ? nullptr : &former.mapped(),
            stands ? &now : nullptr );
   }
}

void VrfMirror::tellWriter() {
   if ( writerAlive() == writerAlive_ ) return;
   writerAlive_ = !writerAlive_;
   if ( observer_.writer ) observer_.writer( writerAlive_ );
}

void VrfMirror::handleTurnEnd() {
   tellWriter();
   if ( !initialized() ) return;
   tell( routes_, tables_->route(), observer_.route );
   tell( intfs_, tables_->routeIntf(), observer_.routeIntf );
}

}
