// A querier's questions for one group whose members may have left: each is repeated
// (RFC 3376, 6.6.3; RFC 3810, 7.6.3). Event-loop thread; querier and group outlive it.
#pragma once

#include <map>

#include "engine/Querier.h"

namespace Router {

class PIMSM_API SpecificQueries {
 public:
   SpecificQueries( Mox::Clock& clock, Querier& querier,
                    const GroupMembership& group, const Vantu::IpGenAddr& address );

   // Asks for the sources, or with none for the group, now and some more times.
   void ask( const std::vector<Vantu::IpGenAddr>& sources );

 private:
   void repeat();
   void send( const std::vector<Vantu::IpGenAddr>& sources );

   Querier& querier_;
   const GroupMembership& group_;
   Vantu::IpGenAddr address_;
   // How often each is still to be asked for.
   uint32_t groupLeft_ = 0;
   std::map<Vantu::IpGenAddr, uint32_t> sourcesLeft_;
   Timer next_;
};

}
