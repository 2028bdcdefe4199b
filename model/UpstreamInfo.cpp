#include "model/UpstreamInfo.h"

#include "model/detail/RouteRules.h"
#include "platform/entity/Factory.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode {

using Mox::defaultTraceFacility;

MOX_ENTITY_TYPE( UpstreamInfo, PIMSM_UPSTREAM_ATTRIBUTES )

MOX_FACTORY( UpstreamInfo, []( Mox::StringView ) { return upstreamInfoFactory(); } )

Mox::Ptr<UpstreamInfo> upstreamInfoFactory() {
   return Mox::newEntity<UpstreamInfo>();
}

namespace {

Vantu::IntfId orNull0( Vantu::IntfId intfId ) {
   static const Vantu::IntfId null0( "Null0" );
   return intfId == Vantu::IntfId() ? null0 : intfId;
}

}

UpstreamInfo::~UpstreamInfo() {
   if ( boundTo_ != nullptr ) boundTo_->upstreams_.remove( this );
}

void UpstreamInfo::handleRoute() {
   if ( boundTo_ != nullptr ) boundTo_->upstreams_.remove( this );
   boundTo_ = route();
   if ( boundTo_ != nullptr ) boundTo_->upstreams_.add( this );
}

void UpstreamInfo::forgetRoute() {
   route_ = nullptr;
   boundTo_ = nullptr;
}

void UpstreamInfo::announceRoute() {
   MOX_NOTIFY( Route );
}

// The rule is in detail/RouteRules.h.
Vantu::IntfId UpstreamInfo::iif() const {
   if ( route() == nullptr ) return orNull0( {} );
   return orNull0(
      Detail::RouteRules<Detail::Plain>( {}, *route() ).iifOf( *this ) );
}

bool UpstreamInfo::directlyConnected() const {
   if ( route() != nullptr && route()->mbr() ) return true;
   return rpfAttached();
}

void UpstreamInfo::doUpdateRpf( const Routing::Pim::Rpf& next ) {
   if ( next == rpf() ) {
      MOX_TRACE( defaultTraceFacility, 4,
                 "doUpdateRpf"
                    << " current RPF is the same as new RPF " << next
                    << " (MoFrr: " << int( frr() ) << ")" );
      return;
   }
   MOX_TRACE( defaultTraceFacility, 4,
              "doUpdateRpf"
                 << " current RPF: " << rpf() << " new RPF: " << next
                 << " (MoFrr: " << int( frr() ) << ")" );
   // Pinned, and with copies: an observer of prevRpf may change the referenced
   // values.
   Mox::Pin pin( this );
   const Routing::Pim::Rpf wanted = next;
   prevRpfIs( Routing::Pim::Rpf( rpf() ) );
   rpfIs( wanted );
}

void UpstreamInfo::doUpdateRptState( SparseMode::UpRptState state ) {
   MOX_TRACE( defaultTraceFacility, 8,
              "doUpdateRptState"
                 << ( route() != nullptr ? route()->key() : RouteKey() ) << " prev "
                 << prevRptState() << " curr " << upRptState() << " new "
                 << state );
   Mox::Pin pin( this );
   prevRptStateIs( upRptState() );
   upRptStateIs( state );
}

}
