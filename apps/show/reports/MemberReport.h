// The groups that hosts ask for on each interface, as far as the route tables tell.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Events.h"
#include "apps/mirror/Selected.h"

namespace Show {

// An interface and a group with members.
struct MemberRow {
   std::string interface;
   Vantu::IpGenAddr group;
   bool any = false;      // some host wants every source but the excluded ones
   uint32_t version = 0;  // of the oldest hosts, as of IGMP; 0: not told
   double until = 0.0;    // members asked whether they left; 0: none is asked
   // By source: excluded, or else included; and until when it is asked for.
   struct Source {
      bool excluded = false;
      double until = 0.0;
   };
   std::map<Vantu::IpGenAddr, Source> sources;
   // The host that asked first since nobody did, by the log; unspecified: not known, or
   // the configuration asks. Who repeats it leaves no trace.
   Vantu::IpGenAddr reporter;
   std::optional<Published::Interface> published;  // the agent's record
};
using Members = Selected<MemberRow>;

// In order of interface and group. `log`: events by time.
Members selectMembers( const Mirror& mirror, const RouteFilter& filter,
                       const std::vector<Logged>& log = {} );

std::string membersText( const Mirror& mirror, const Members& selected,
                         double now );
nlohmann::ordered_json membersJson( const Members& selected, double now );

}
