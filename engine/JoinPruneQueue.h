// The joins and prunes for one upstream neighbour, packed into few messages (RFC 7761,
// 4.9.5).
//
// Of several entries of the same state the last counts. A (*,G) join ends the
// (S,G,rpt) prunes of its group that do not follow it in the same message, so these
// stay together: of too many for one message the greatest sources are left out.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "packet/Pim.h"
#include "platform/pim/RouteKey.h"

namespace Router {

class PIMSM_API JoinPruneQueue {
 public:
   enum class Tree { shared, source, sharedLessSource };  // (*,G), (S,G), (S,G,rpt)

   // `rp` is the group's RP, for Tree::shared. REQUIRES: the key's source is
   // unspecified for that tree alone.
   void add( Tree tree, const Routing::Pim::RouteKey& key, bool join,
             const Vantu::IpGenAddr& rp = {} );

   // The groups with a (*,G) join.
   std::vector<Vantu::IpGenAddr> joinedGroups() const;

   // Gives all that waits as messages whose PIM payload has at most `room` bytes.
   // Returns the number of prunes that were left out.
   size_t encode( const Vantu::IpGenAddr& neighbor, uint16_t holdtime, size_t room,
                  const std::function<void( PimJoinPrune )>& send ) const;

 private:
   // True: join.
   struct Group {
      std::optional<bool> shared;
      Vantu::IpGenAddr rp;
      std::map<Vantu::IpGenAddr, bool> source;
      std::map<Vantu::IpGenAddr, bool> lessSource;
   };
   static JoinPruneGroup encoded( const Vantu::IpGenAddr& address,
                                  const Group& group );

   std::map<Vantu::IpGenAddr, Group> groups_;
};

}
