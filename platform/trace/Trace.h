// Tracing by facility and level.
//
// A source file defines its facility and traces with it:
//
//    MOX_TRACE_FACILITY( trace, "Pimsm::RouteBraneWriter" )
//    ...
//    MOX_TRACE( trace, 3, vrf << "doReview(), Starting review" );
//
// The levels are constants from 0, the most important, to 9. A disabled trace
// evaluates none of its arguments; it costs a bit test in a static word. What an
// argument throws passes through the trace, and nothing is traced.
//
// Facilities may be static objects in any order: one not yet constructed, or
// already destroyed, traces nothing, and settings made before its construction
// count. Event-loop thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <span>
#include <sstream>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Mox {

class PIMSM_API TraceFacility {
 public:
   static constexpr unsigned maxLevel = 9;

   // `name` must outlive the facility; a literal.
   explicit TraceFacility( const char* name );
   ~TraceFacility();
   TraceFacility( const TraceFacility& ) = delete;
   TraceFacility& operator=( const TraceFacility& ) = delete;

   StringView name() const { return name_; }

   // REQUIRES: level <= maxLevel.
   bool enabled( unsigned level ) const { return ( levels_ >> level & 1 ) != 0; }

 private:
   friend class TraceRegistry;

   uint32_t levels_;  // one bit a level
   const char* name_;
};

// A trace's named value, for sinks that keep fields apart from the text.
struct TraceField {
   StringView name;  // capital letters, digits and underscores: "VRF"
   String value;
};

// What a sink gets; valid during the call. The sink adds the time.
struct TraceRecord {
   StringView facility;
   unsigned level;
   StringView text;
   std::span<const TraceField> fields = {};
};

// Must not throw. Sinks.h declares some sinks. Traces made by the sink itself are
// dropped.
using TraceSink = std::function<void( const TraceRecord& )>;

// Replaces the sink of the whole process and returns the former one; an empty one
// restores the default, which writes the line
// "<seconds, CLOCK_MONOTONIC> <facility> <level> <text>" to standard error.
PIMSM_API TraceSink traceSinkIs( TraceSink sink );

// Replaces the settings of all facilities, also of those constructed later. At
// start they come from the environment variable MOX_TRACE. They are a
// comma-separated list of entries; the first that matches a facility's name
// decides:
//
//    <name>/<n>      levels 0 to n
//    <name>/<a>-<b>  levels a to b
//
// The name may be a pattern as of fnmatch(3): "Pimsm*/8". A facility that no entry
// matches traces nothing. A bad entry gets a warning line on standard error and is
// left out.
PIMSM_API void traceSettingsIs( StringView settings );

// The facility "Pimsm", for library code without a facility of its own.
PIMSM_API extern TraceFacility defaultTraceFacility;

// One trace being put together; used by MOX_TRACE. Small and out of line, since
// every function that traces has one in its frame.
class PIMSM_API TraceLine {
 public:
   TraceLine( const TraceFacility& facility, unsigned level );
   ~TraceLine();
   TraceLine( const TraceLine& ) = delete;
   TraceLine& operator=( const TraceLine& ) = delete;

   std::ostream& stream();
   // Adds the field to the trace that owns this stream; ignored for any other
   // stream.
   static void addField( std::ostream& stream, const char* name, String value );
   void emit();

 private:
   struct Content;
   std::unique_ptr<Content> content_;
};

template <class T>
struct TraceFieldOf {
   const char* name;
   const T& value;
};

// Gives a trace a field, and its text nothing. `name` is a literal, the value as it is
// streamed:
//
//    MOX_TRACE( trace, 0, "no room for " << key << traceField( "VRF", vrf ) );
template <class T>
TraceFieldOf<T> traceField( const char* name, const T& value ) {
   return { name, value };
}

template <class T>
std::ostream& operator<<( std::ostream& stream, const TraceFieldOf<T>& field ) {
   std::ostringstream text;
   text << field.value;
   TraceLine::addField( stream, field.name, text.str() );
   return stream;
}

}

#define MOX_TRACE_FACILITY( variable, name ) \
   static ::Mox::TraceFacility variable( name );

// The last argument is streamed: it may be several, joined by <<.
#define MOX_TRACE( facility, level, ... )                           \
   do {                                                             \
      static_assert( ( level ) <= ::Mox::TraceFacility::maxLevel ); \
      if ( __builtin_expect( ( facility ).enabled( level ), 0 ) ) { \
         ::Mox::TraceLine moxTraceLine( facility, level );          \
         moxTraceLine.stream() << __VA_ARGS__;                      \
         moxTraceLine.emit();                                       \
      }                                                             \
   } while ( false )
