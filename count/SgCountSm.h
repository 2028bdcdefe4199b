// Keeps the histograms of one VRF's sources and groups current.
//
//   watches  the model Status, its Sources; the GroupSourceMap, its Groups
//   writes   SourceCount and GroupCount, at once with each change
//   wakes    with each notification; it has no timer
//   ignores  deliberately, what the histograms hold when it is created: the first
//            count only adds. A source or group that goes stays where its last
//            change filed it, and one that comes is filed with its first change.
//
// A change moves an address from the entry of its former count to the entry of the
// present one. The former count is taken to be one off, never counted again. The
// new entry is written first, so observers briefly see the address in both.
//
// Holds references to its arguments; goes before their owner, and clears nothing
// when it goes. Event-loop thread only.
#pragma once

#include <memory>
#include <unordered_map>

#include "count/GroupCount.h"
#include "count/SourceCount.h"
#include "model/Status.h"
#include "platform/pim/GroupSourceMap.h"

namespace Routing::Pim::SparseMode {

using StatusConstPtr = Mox::Ptr<const Status>;
using SourceCountPtr = Mox::Ptr<SourceCount>;
using GroupSourceMapConstPtr = Mox::Ptr<const GroupSourceMap>;
using GroupCountPtr = Mox::Ptr<GroupCount>;

// clang-format off
#define PIMSM_SG_COUNT_ATTRIBUTES( A ) \
   A( Fixed,    status,         Status,         StatusConstPtr,         ,      "whose sources are counted" ) \
   A( Fixed,    sourceCount,    SourceCount,    SourceCountPtr,         ,      "histogram of the sources" ) \
   A( Fixed,    groupSourceMap, GroupSourceMap, GroupSourceMapConstPtr, ,      "whose groups are counted" ) \
   A( Fixed,    groupCount,     GroupCount,     GroupCountPtr,          ,      "histogram of the groups" ) \
   A( Value,    initialized,    Initialized,    bool,                   false, "the first count is done" ) \
   A( Computed, srcHandler,     SrcHandler,     SrcHandlerMap,          ,      "observers of the sources" ) \
   A( Computed, grpHandler,     GrpHandler,     GrpHandlerMap,          ,      "observers of the groups" )
// clang-format on

class PIMSM_API SgCountSm : public Mox::Entity {
 public:
   class MoxSrcHandler;
   class MoxGrpHandler;
   using SrcHandlerMap =
      std::unordered_map<Vantu::IpGenAddr, std::unique_ptr<MoxSrcHandler>>;
   using GrpHandlerMap =
      std::unordered_map<Vantu::IpGenAddr, std::unique_ptr<MoxGrpHandler>>;

   MOX_ENTITY( SgCountSm, PIMSM_SG_COUNT_ATTRIBUTES )

   // Starts to watch, then makes the first count. REQUIRES: nothing null.
   SgCountSm( StatusConstPtr status, SourceCountPtr sourceCount,
              GroupSourceMapConstPtr groupSourceMap, GroupCountPtr groupCount );

   // The first count: files every existing source and group. Always true.
   bool handleInitialized();
   // The source's entry for the group was added, changed or removed. Deliberately,
   // an entry with the flag false counts as a removal.
   // REQUIRES: the source exists.
   void handleSourceGroupChanged( Vantu::IpGenAddr source, Vantu::IpGenAddr group );
   // The group's entry for the source was added or removed. Unlike on the sources'
   // side, the entry's flag is deliberately ignored. REQUIRES: the group exists.
   void handleGroupSourceChanged( Vantu::IpGenAddr group, Vantu::IpGenAddr source );

   // The handlers are written by hand because their members are observers. An Is
   // files the handler under its address in place of a former one; null is fatal.
   // It counts nothing.
   const SrcHandlerMap& srcHandler() const { return srcHandler_; }
   const MoxSrcHandler* srcHandler( const Vantu::IpGenAddr& srcAddr ) const;
   void srcHandlerIs( std::unique_ptr<MoxSrcHandler> handler );
   void srcHandlerDel( Vantu::IpGenAddr srcAddr ) { srcHandler_.erase( srcAddr ); }
   void srcHandlerDelAll() { srcHandler_.clear(); }

   const GrpHandlerMap& grpHandler() const { return grpHandler_; }
   const MoxGrpHandler* grpHandler( const Vantu::IpGenAddr& grpAddr ) const;
   void grpHandlerIs( std::unique_ptr<MoxGrpHandler> handler );
   void grpHandlerDel( Vantu::IpGenAddr grpAddr ) { grpHandler_.erase( grpAddr ); }
   void grpHandlerDelAll() { grpHandler_.clear(); }

 protected:
   ~SgCountSm() override;

 private:
   class MoxStatus;
   class MoxGroupSourceMap;

   void handleSource( const Vantu::IpGenAddr& srcAddr );
   void handleGroup( const Vantu::IpGenAddr& grpAddr );

   std::unique_ptr<MoxStatus> moxStatus_;
   std::unique_ptr<MoxGroupSourceMap> moxGroupSourceMap_;
   SrcHandlerMap srcHandler_;
   GrpHandlerMap grpHandler_;
};

// Observes one source.
class PIMSM_API SgCountSm::MoxSrcHandler : public Source::NotifieeConst {
 public:
   MoxSrcHandler( SgCountSm& sm, const Source& source );
   const Vantu::IpGenAddr& srcAddr() const { return srcAddr_; }
   void onSourceGroup( const Vantu::IpGenAddr& group ) override;

 private:
   SgCountSm& sm_;
   Vantu::IpGenAddr srcAddr_;
};

// Observes one group.
class PIMSM_API SgCountSm::MoxGrpHandler : public Group::NotifieeConst {
 public:
   MoxGrpHandler( SgCountSm& sm, const Group& group );
   const Vantu::IpGenAddr& grpAddr() const { return grpAddr_; }
   void onGroupSource( const Vantu::IpGenAddr& source ) override;

 private:
   SgCountSm& sm_;
   Vantu::IpGenAddr grpAddr_;
};

PIMSM_API Mox::Ptr<SgCountSm> sgCountSmFactory(
   StatusConstPtr status, SourceCountPtr sourceCount,
   GroupSourceMapConstPtr groupSourceMap, GroupCountPtr groupCount );
PIMSM_API Mox::Ptr<SgCountSm> SgCountSmIs( StatusConstPtr status,
                                           SourceCountPtr sourceCount,
                                           GroupSourceMapConstPtr groupSourceMap,
                                           GroupCountPtr groupCount );

}
