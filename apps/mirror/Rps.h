// The RPs of a mirror's groups. A copy of the moment; event-loop thread only.
#pragma once

#include "apps/mirror/Mirrors.h"
#include "published/GroupRanges.h"

namespace Show {

class Rps {
 public:
   explicit Rps( const Mirror& mirror );

   // Does the agent publish any?
   bool published() const { return published_; }
   // The group's; nothing where none is configured, or it is not known.
   std::optional<Vantu::IpGenAddr> rp( const Vantu::IpGenAddr& group ) const {
      return ranges_.rp( group );
   }
   // Is it this router?
   bool ownRp( const Vantu::IpGenAddr& group ) const {
      return ranges_.ownRp( group );
   }
   // Does the traffic come from the RP, which is this router? Then it comes in nowhere.
   bool startsHere( const Routing::Pim::SparseMode::Route& route ) const;

 private:
   Published::GroupRanges ranges_;
   bool published_;
};

}
