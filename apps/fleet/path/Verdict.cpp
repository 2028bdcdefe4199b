#include "apps/fleet/path/Verdict.h"

namespace Fleet {

namespace {

struct Row {
   const char* text;
   const char* remedy;
};

// In the order of the enumeration.
constexpr Row kRows[] = {
   { "fine", "" },
   { "unknown-hop", "The tree goes on there: run pimsm-record on that router." },
   { "ambiguous", "Record the routers' addresses, or let them say distinct ones." },
   { "stale", "Start pimsm-record there; what is shown is its last state." },
   { "interface-down", "Set it up, or mend its cable." },
   { "agent-gone", "Start it; what the kernel had forwards on meanwhile." },
   { "neighbor-unknown",
     "Look for a filter, a wrong route or a link of one direction, and at "
     "pimsm-show neighbors." },
   { "rp-differs", "Give all routers the same RP for the group." },
   { "no-route", "Look at pimsm-show explain and the log of that router." },
   { "not-joined", "Look at pimsm-show explain on both routers." },
   { "wrong-rpf", "It may have missed the assert: look at what it hears there." },
   { "not-forwarding", "pimsm-show explain --terms tells why." },
   { "ends-disagree", "Messages between them get lost, or one of them is wrong." },
   { "loop", "Mend the unicast routes to the source or RP." },
   { "forwarder-gone", "Start it, so that the kernel forwards." },
   { "counters-still", "Packets get lost on the link, or the kernel drops them." },
   { "no-such-router", "pimsm-fleet routers lists them." },
   { "no-such-network", "Name an address of a network of theirs." },
   { "no-member", "Look at the receiver: members are reported by IGMP or MLD." },
   { "not-on-path", "" },
   { "unresolved-rpf", "Look at its unicast routes." },
   { "no-rp", "Configure one, or let members name sources." },
   { "rp-unknown", "Start it, or run pimsm-record there." },
   { "not-registered",
     "The source may be silent, or the router is not DR on its link." },
   { "no-source",
     "Look at the source's address, and whether its router is recorded." },
   { "source-silent", "Look at the source; its packets may have TTL 1." },
   { "hellos-differ", "Give both the same options: the link does without it now." },
   { "ranges-differ", "Give both the same source-specific ranges." },
   { "unreadable", "" } };
static_assert( std::size( kRows ) == static_cast<size_t>( Verdict::last ) + 1 );

const Row& row( Verdict verdict ) {
   return kRows[static_cast<size_t>( verdict )];
}

}

const char* verdictText( Verdict verdict ) {
   return row( verdict ).text;
}

const char* remedyText( Verdict verdict ) {
   return row( verdict ).remedy;
}

std::string sentenceOf( const Judgement& judgement ) {
   const std::string remedy = remedyText( judgement.verdict );
   return judgement.reason + ( remedy.empty() ? "." : ". " + remedy );
}

}
