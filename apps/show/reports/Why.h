// Why a receiver gets a group's packets, or does not: one verdict, and the chain of
// facts that it rests on, from the receiver towards the source.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/mirror/Events.h"
#include "apps/mirror/Host.h"
#include "apps/mirror/Rates.h"

namespace Show {

// The rates of all mirrors' streams.
using AllRates = std::map<const Mirror*, Rates>;

// Who should get what.
struct Receiver {
   Vantu::IpGenAddr group;
   Vantu::IpGenAddr source;  // unspecified: any
   Vantu::IntfId intfId;     // empty: `host` says where
   Vantu::IpGenAddr host;    // unspecified: anybody on the interface
};

// Who asked before has asked again within this time, which is longer than the interval of
// joins and of queries.
constexpr double kAgain = 300.0;  // s

// What the answer is made from, beside the tables.
struct Evidence {
   std::vector<Logged> log;  // by time
   Host host;
   double now = 0.0;  // s, CLOCK_MONOTONIC
   const AllRates* rates =
      nullptr;             // between two readings; null: there was one only
   double interval = 0.0;  // s, between them
};

struct Why {
   enum Mark { fine, bad, unknown };
   struct Step {
      Mark mark;
      std::string what;      // "member"
      std::string evidence;  // "10.0.2.7 asks for the group"
   };

   // What keeps the packets from the receiver, for programs: "not-dr"; empty: nothing
   // that is known here.
   std::string cause;
   std::string verdict;  // a sentence, and the remedy
   std::vector<Step> chain;
   // A second look, an interval later, tells more: of the packets, or of a kernel's entry
   // that differs and may be on its way.
   bool again = false;
};

// The mirror is the one that has the receiver's interface or, where none has, the first
// of the group's family; null: there is none.
struct Answer {
   const Mirror* mirror = nullptr;
   Vantu::IntfId intfId;
   Why why;
};
// An answer to each receiver. REQUIRES: loaded mirrors.
std::vector<Answer> whyOf( const Mirrors& mirrors,
                           const std::vector<Receiver>& receivers,
                           const Evidence& evidence );

std::string whyText( const Answer& answer, const Receiver& receiver );
nlohmann::ordered_json whyJson( const Answer& answer, const Receiver& receiver );

}
