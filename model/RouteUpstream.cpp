// The parts of a route that its upstream records and its (*,G) route determine.

#include "model/Route.h"
#include "model/Status.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode {

using Mox::defaultTraceFacility;

Routing::Pim::Rpf Route::rpfFrr() const {
   return umhFrr() != nullptr ? umhFrr()->rpf() : Routing::Pim::Rpf();
}

Routing::Pim::Rpf Route::prevRpfFrr() const {
   return umhFrr() != nullptr ? umhFrr()->prevRpf() : Routing::Pim::Rpf();
}

bool Route::rpfFrrAttached() const {
   return umhFrr() != nullptr && umhFrr()->rpfAttached();
}

Vantu::IntfId Route::iif() const {
   return umh() != nullptr ? umh()->iif() : Vantu::IntfId();
}

Vantu::IntfId Route::iifFrr() const {
   return umhFrr() != nullptr ? umhFrr()->iif() : Vantu::IntfId();
}

bool Route::directlyConnected() const {
   return umh() != nullptr && umh()->directlyConnected();
}

bool Route::discoveredSg() const {
   return msdpDiscovered() || anycastDiscovered() || drDiscovered() ||
          hwRecovered();
}

bool Route::hasSgState() const {
   if ( !routeIntf().empty() ) return true;
   return umh() != nullptr && umh()->upRptState() == upRptPruned;
}

Route* Route::wc() {
   if ( pimsmStatus() == nullptr ) return nullptr;
   return pimsmStatus()->route(
      { Vantu::IpGenAddr::unspecified( key().source.family() ), key().group } );
}

const Route* Route::wc() const {
   return const_cast<Route*>( this )->wc();
}

Routing::Pim::Rpf Route::rpfWc() const {
   if ( wildCard() ) return rpf();
   const Route* shared = wc();
   return shared != nullptr ? shared->rpf() : Routing::Pim::Rpf();
}

bool Route::isDuplicateRpf( const Routing::Pim::Rpf& candidate ) const {
   if ( candidate == Routing::Pim::Rpf() ) return false;
   if ( candidate.intfId == iif() ) return true;
   return candidate == rpf();
}

void Route::doUpdateRpfFrr( const Routing::Pim::Rpf& wanted, bool attached ) {
   // A copy: an observer may change the referenced RPF.
   const Routing::Pim::Rpf candidate = wanted;
   MOX_TRACE( defaultTraceFacility, 4,
              this << "doUpdateRpfFrr"
                   << " " << key() );
   Mox::Ptr<UpstreamInfo> backup = umhFrr();
   if ( backup == nullptr ) return;
   if ( isDuplicateRpf( candidate ) ) {
      MOX_TRACE( defaultTraceFacility, 4,
                 this << "doUpdateRpfFrr"
                      << " " << key() << "(), duplicate, set rpfFrr to Null" );
      backup->rpfAttachedIs( false );
      backup->doUpdateRpf( Routing::Pim::Rpf() );
      return;
   }
   MOX_TRACE( defaultTraceFacility, 4,
              this << "doUpdateRpfFrr"
                   << " " << key() << "(), Update rpfFrr " << candidate );
   backup->rpfAttachedIs( attached );
   backup->doUpdateRpf( candidate );
}

}
