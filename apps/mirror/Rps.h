// The RPs of a mirror's groups. A copy of the moment; event-loop thread only.
#pragma once

#include "apps/mirror/Mirrors.h"
#include "published/GroupRanges.h"

namespace Show {

class Rps {
 public:
   explicit Rps( const Mirror& mirror );

   // Does the agent publish RPs?
   bool published() const { return published_; }
   // The group's RP; nothing if none is configured, or it is unknown.
   std::optional<Vantu::IpGenAddr> rp( const Vantu::IpGenAddr& group ) const {
      return ranges_.rp( group );
   }
   // Is this router the group's RP?
   bool ownRp( const Vantu::IpGenAddr& group ) const {
      return ranges_.ownRp( group );
   }
   // What gives the group its RP.
   Published::GroupRanges::Mapping mapping( const Vantu::IpGenAddr& group ) const {
      return ranges_.mapping( group );
   }
   // Is this router the RP that the traffic comes from? Then there is no incoming
   // interface.
   bool startsHere( const Routing::Pim::SparseMode::Route& route ) const;

 private:
   Published::GroupRanges ranges_;
   bool published_;
};

}
