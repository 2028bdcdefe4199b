// The events that the agent and the forwarding process have logged under a root, in
// order of their times. Sequences count in each log for itself.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/net/IpGenPrefix.h"
#include "published/EventLog.h"

namespace Show {

struct Logged : Published::EventReader::Entry {
   Logged() = default;
   Logged( Entry entry, const char* of = "" )
      : Entry( std::move( entry ) ), log( of ) {}

   const char* log = "";  // whose: "agent", "mfib"; empty: not known
};

// Everything passes a default filter; all criteria given must match. An event of a
// (*,G) route concerns every source of its group.
struct EventFilter {
   std::string vrf = "all";
   uint32_t ipVersion = 0;  // 0: both
   std::optional<Vantu::IpGenPrefix> group;
   std::optional<Vantu::IpGenPrefix> source;
   std::string iface;
   std::optional<Vantu::IpGenAddr> neighbor;  // or host, or RP
   std::vector<Published::EventKind> kinds;   // empty: all
   double since = 0.0;                        // s, CLOCK_MONOTONIC

   bool matches( const Logged& logged ) const;
};

class Events {
 public:
   // Throws Brane::CreateError where a log may not be read.
   explicit Events( const std::string& root );

   // The events since the last call, of both logs.
   std::vector<Logged> take();
   // Those taken before that were counted again since the last call, as they are now.
   std::vector<Logged> repeated();
   // Is any log there?
   bool there() const;
   // The base of the name of a log's bell, of both.
   std::vector<std::string> paths() const;
   // Why a log cannot be read, and what of them is missing; a line each.
   std::vector<std::string> problems() const;

 private:
   struct Log {
      const char* name;
      Published::EventReader reader;
   };
   std::array<Log, 2> logs_;
};

// Can it be why a state changed? That an interface forwards, or what was sent to others,
// follows from another event.
bool isReason( Published::EventKind kind );

// CLOCK_MONOTONIC now, s.
double monotonicNow();

// "2024-05-01T10:00:02.114Z" of a time on CLOCK_MONOTONIC, by today's clocks.
std::string utcOf( double time );
// The same in ms since 1970, and their text.
int64_t utcMilliseconds( double time );
std::string utcText( int64_t milliseconds );

// The kinds whose names contain the word: "join" is joinCame, joinGone and more.
// Empty: none.
std::vector<Published::EventKind> eventKinds( const std::string& word );

}
