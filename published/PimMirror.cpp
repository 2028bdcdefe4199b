#include "published/PimMirror.h"

namespace Published {

PimMirror::PimMirror( Mox::Ptr<Routing::Pim::SparseMode::Status> model,
                      Mox::Ptr<const FamilyStatus> tables )
   : model_( std::move( model ) ),
     tables_( std::move( tables ) ),
     pim_( Mox::newEntity<Routing::Pim::Status>() ) {
   notifierIs( tables_.get() );
   onInterface();
}

void PimMirror::onInterface( const Vantu::IntfId& intfId ) {
   Interface record;
   switch ( tables_->interface().find( intfId, record ) ) {
      case Brane::lookupFound:
         return take( record );
      case Brane::lookupAbsent:
         pim_->intfDel( intfId );
         return;
      default:  // busy: another notification follows
         return;
   }
}

void PimMirror::onInterface() {
   if ( tables_->interfaceControl()->mountStatus() != MoxBrane::mountReady ) {
      model_->pimStatusIs( nullptr );
      return;
   }
   model_->pimStatusIs( pim_ );
   tables_->interface().visit( [this]( const Interface& record ) {
      take( record );
      return true;
   } );
}

// An interface that is down is none, as in the agent.
void PimMirror::take( const Interface& record ) {
   if ( record.link == linkDown ) {
      pim_->intfDel( record.key );
      return;
   }
   Mox::Ptr<Routing::Pim::Intf> intf = pim_->intfIs( record.key );
   intf->addrIs( { record.address, record.prefixLength } );
   intf->iAmDrIs( record.iAmDr );
}

}
