// What is wrong at a place of a path, or between two routers.
#pragma once

#include <cstdint>
#include <string>

namespace Fleet {

enum class Verdict : uint8_t {
   fine,
   // An edge between two routers, in the order in which it is asked.
   unknownHop,       // nobody who is recorded has the RPF neighbour's address
   ambiguous,        // several have it
   stale,            // what is recorded of one of them is old, or not whole
   interfaceDown,    // the interface of one of them
   agentGone,        // and one of the following holds
   neighborUnknown,  // one does not hear the other
   rpDiffers,        // for the group
   noRoute,          // none that could be followed; or nobody has one
   notJoined,
   wrongRpf,  // the lower one follows who lost the assert, or is on another link
   notForwarding,  // and why, by the entry
   endsDisagree,   // about a join, an assert's winner, the DR
   loop,
   forwarderGone,  // and nothing shows that packets flow on
   countersStill,  // the upper one's grow, the lower one's do not
   // A path's end.
   noSuchRouter,
   noSuchNetwork,
   noMember,
   notOnPath,      // the router that was asked for
   unresolvedRpf,  // no way to the source or RP
   noRp,           // the group has none
   rpUnknown,      // nobody who is recorded is the RP
   notRegistered,  // with the RP
   noSource,       // nobody has a network of it
   sourceSilent,
   // Two neighbours.
   hellosDiffer,
   rangesDiffer,  // source-specific ones
   unreadable,
   last = unreadable
};

// "not-joined".
const char* verdictText( Verdict verdict );
// What to do about it: a sentence; empty: nothing.
const char* remedyText( Verdict verdict );

struct Judgement {
   Verdict verdict = Verdict::fine;
   std::string reason = {};  // a clause that begins with a name
   explicit operator bool() const { return verdict != Verdict::fine; }
};

// The reason as a sentence, and the remedy.
std::string sentenceOf( const Judgement& judgement );

}
