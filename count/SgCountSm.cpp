#include "count/SgCountSm.h"

#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode {

MOX_TRACE_FACILITY( trace, "Pimsm::SgCountSm" )

MOX_ENTITY_TYPE( SgCountSm, PIMSM_SG_COUNT_ATTRIBUTES )

class SgCountSm::MoxStatus : public Status::NotifieeConst {
 public:
   explicit MoxStatus( SgCountSm& sm ) : sm_( sm ) {
      notifierIs( sm.status().get() );
   }
   void onSource( const Vantu::IpGenAddr& srcAddr ) override {
      sm_.handleSource( srcAddr );
   }

 private:
   SgCountSm& sm_;
};

class SgCountSm::MoxGroupSourceMap : public GroupSourceMap::NotifieeConst {
 public:
   explicit MoxGroupSourceMap( SgCountSm& sm ) : sm_( sm ) {
      notifierIs( sm.groupSourceMap().get() );
   }
   void onGroup( const Vantu::IpGenAddr& grpAddr ) override {
      sm_.handleGroup( grpAddr );
   }

 private:
   SgCountSm& sm_;
};

SgCountSm::MoxSrcHandler::MoxSrcHandler( SgCountSm& sm, const Source& source )
   : sm_( sm ), srcAddr_( source.sourceAddr() ) {
   notifierIs( &source );
}

void SgCountSm::MoxSrcHandler::onSourceGroup( const Vantu::IpGenAddr& group ) {
   sm_.handleSourceGroupChanged( srcAddr_, group );
}

SgCountSm::MoxGrpHandler::MoxGrpHandler( SgCountSm& sm, const Group& group )
   : sm_( sm ), grpAddr_( group.groupAddr() ) {
   notifierIs( &group );
}

void SgCountSm::MoxGrpHandler::onGroupSource( const Vantu::IpGenAddr& source ) {
   sm_.handleGroupSourceChanged( grpAddr_, source );
}

SgCountSm::SgCountSm( StatusConstPtr status, SourceCountPtr sourceCount,
                      GroupSourceMapConstPtr groupSourceMap,
                      GroupCountPtr groupCount )
   : status_( std::move( status ) ),
     sourceCount_( std::move( sourceCount ) ),
     groupSourceMap_( std::move( groupSourceMap ) ),
     groupCount_( std::move( groupCount ) ),
     moxStatus_( std::make_unique<MoxStatus>( *this ) ),
     moxGroupSourceMap_( std::make_unique<MoxGroupSourceMap>( *this ) ) {
   for ( const Group& group : groupSourceMap_->group() ) {
      handleGroup( group.groupAddr() );
   }
   for ( const Source& source : status_->source() ) {
      handleSource( source.sourceAddr() );
   }
   initializedIs( handleInitialized() );
}

SgCountSm::~SgCountSm() = default;

// Walks keys: an observer of the histograms may add and remove sources and groups.
bool SgCountSm::handleInitialized() {
   MOX_TRACE( trace, 8, "<Vrf:" << status_->vrfName() << ">handleInitialized" );
   for ( const auto& srcAddr : Mox::keysOf( status_->source() ) ) {
      const Source* source = status_->source( srcAddr );
      if ( source == nullptr ) continue;
      sourceCount_->sourceIs( uint32_t( source->sourceGroup().size() ), srcAddr );
   }
   for ( const auto& grpAddr : Mox::keysOf( groupSourceMap_->group() ) ) {
      const Group* group = groupSourceMap_->group( grpAddr );
      if ( group == nullptr ) continue;
      groupCount_->groupIs( uint32_t( group->groupSource().size() ), grpAddr );
   }
   return true;
}

namespace {

uint32_t countBefore( bool added, uint32_t count ) {
   if ( !added ) return count + 1;
   return count == 0 ? 0 : count - 1;
}

// An empty entry is removed, but only after its observers have seen it empty.
bool leftEmpty( const IpAddrCollection* entry ) {
   return entry != nullptr && !*entry;
}

}

// Observers of the histogram may destroy the handler, the source and the reactor,
// even one under construction, which cannot be pinned. So only local variables are
// used after they have run.
void SgCountSm::handleSourceGroupChanged( Vantu::IpGenAddr srcAddr,
                                          Vantu::IpGenAddr grpAddr ) {
   MOX_TRACE( trace, 8,
              "<Vrf:" << status_->vrfName() << ">handleSourceGroupChanged G: "
                      << grpAddr << " S: " << srcAddr );
   Mox::Ptr<const Source> source = status_->source( srcAddr );
   MOX_ASSERT( source != nullptr );
   SourceCountPtr histogram = sourceCount_;
   const auto count = uint32_t( source->sourceGroup().size() );
   histogram->sourceIs( count, srcAddr );
   const bool* flag = source->sourceGroup( grpAddr );
   const uint32_t before = countBefore( flag != nullptr && *flag, count );
   histogram->sourceDel( before, srcAddr );
   if ( leftEmpty( histogram->sourcesByGroupCount( before ) ) ) {
      histogram->sourcesByGroupCountDel( before );
   }
}

void SgCountSm::handleGroupSourceChanged( Vantu::IpGenAddr grpAddr,
                                          Vantu::IpGenAddr srcAddr ) {
   MOX_TRACE( trace, 8,
              "<Vrf:" << status_->vrfName() << ">handleGroupSourceChanged G: "
                      << grpAddr << " S: " << srcAddr );
   Mox::Ptr<const Group> group = groupSourceMap_->group( grpAddr );
   MOX_ASSERT( group != nullptr );
   GroupCountPtr histogram = groupCount_;
   const auto count = uint32_t( group->groupSource().size() );
   histogram->groupIs( count, grpAddr );
   const bool present = group->groupSource( srcAddr ) != nullptr;
   const uint32_t before = countBefore( present, count );
   histogram->groupDel( before, grpAddr );
   if ( leftEmpty( histogram->groupsBySourceCount( before ) ) ) {
      histogram->groupsBySourceCountDel( before );
   }
}

// Another object may stand under a known address: its handler is made anew.
void SgCountSm::handleSource( const Vantu::IpGenAddr& srcAddr ) {
   const Source* source = status_->source( srcAddr );
   if ( source == nullptr ) return srcHandlerDel( srcAddr );
   const MoxSrcHandler* known = srcHandler( srcAddr );
   if ( known != nullptr && known->notifier() == source ) return;
   srcHandlerIs( std::make_unique<MoxSrcHandler>( *this, *source ) );
}

void SgCountSm::handleGroup( const Vantu::IpGenAddr& grpAddr ) {
   const Group* group = groupSourceMap_->group( grpAddr );
   if ( group == nullptr ) return grpHandlerDel( grpAddr );
   const MoxGrpHandler* known = grpHandler( grpAddr );
   if ( known != nullptr && known->notifier() == group ) return;
   grpHandlerIs( std::make_unique<MoxGrpHandler>( *this, *group ) );
}

const SgCountSm::MoxSrcHandler* SgCountSm::srcHandler(
   const Vantu::IpGenAddr& srcAddr ) const {
   auto found = srcHandler_.find( srcAddr );
   return found == srcHandler_.end() ? nullptr : found->second.get();
}

const SgCountSm::MoxGrpHandler* SgCountSm::grpHandler(
   const Vantu::IpGenAddr& grpAddr ) const {
   auto found = grpHandler_.find( grpAddr );
   return found == grpHandler_.end() ? nullptr : found->second.get();
}

void SgCountSm::srcHandlerIs( std::unique_ptr<MoxSrcHandler> handler ) {
   MOX_ASSERT_TEXT( handler != nullptr,
                    "null _srcHandler parameter to mutator for "
                    "Routing::Pim::SparseMode::SgCountSm::srcHandler not allowed" );
   const Vantu::IpGenAddr srcAddr = handler->srcAddr();
   srcHandler_[srcAddr] = std::move( handler );
}

void SgCountSm::grpHandlerIs( std::unique_ptr<MoxGrpHandler> handler ) {
   MOX_ASSERT_TEXT( handler != nullptr,
                    "null _grpHandler parameter to mutator for "
                    "Routing::Pim::SparseMode::SgCountSm::grpHandler not allowed" );
   const Vantu::IpGenAddr grpAddr = handler->grpAddr();
   grpHandler_[grpAddr] = std::move( handler );
}

Mox::Ptr<SgCountSm> sgCountSmFactory( StatusConstPtr status,
                                      SourceCountPtr sourceCount,
                                      GroupSourceMapConstPtr groupSourceMap,
                                      GroupCountPtr groupCount ) {
   return Mox::newEntity<SgCountSm>( std::move( status ), std::move( sourceCount ),
                                     std::move( groupSourceMap ),
                                     std::move( groupCount ) );
}

Mox::Ptr<SgCountSm> SgCountSmIs( StatusConstPtr status, SourceCountPtr sourceCount,
                                 GroupSourceMapConstPtr groupSourceMap,
                                 GroupCountPtr groupCount ) {
   return sgCountSmFactory( std::move( status ), std::move( sourceCount ),
                            std::move( groupSourceMap ), std::move( groupCount ) );
}

}
