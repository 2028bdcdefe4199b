#include "platform/trace/Trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/trace/detail/TraceSettings.h"

namespace Mox {
namespace {

void writeLine( const TraceRecord& record ) {
   // The steady clock is CLOCK_MONOTONIC.
   std::chrono::duration<double> now =
      std::chrono::steady_clock::now().time_since_epoch();
   String line = fmt::format( "{:.6f} {} {} {}", now.count(), record.facility,
                              record.level, record.text );
   std::replace( line.begin(), line.end(), '\n', ' ' );
   line += '\n';
   std::fwrite( line.data(), 1, line.size(), stderr );
}

}

// All living facilities, the settings and the sink. Made by the first facility's
// constructor, so it outlives every facility.
class TraceRegistry {
 public:
   static TraceRegistry& instance() {
      static TraceRegistry registry;
      return registry;
   }

   void add( TraceFacility& facility ) {
      facilities_.push_back( &facility );
      apply( facility );
   }

   void remove( TraceFacility& facility ) {
      std::erase( facilities_, &facility );
      facility.levels_ = 0;
   }

   void settingsIs( StringView text ) {
      settings_ = TraceSettings( text );
      for ( TraceFacility* facility : facilities_ ) apply( *facility );
   }

   TraceSink sinkIs( TraceSink sink ) {
      if ( !sink ) sink = writeLine;
      return std::exchange( sink_, std::move( sink ) );
   }

   void emit( const TraceRecord& record ) {
      if ( emitting_ ) return;
      emitting_ = true;
      // A copy: the sink may replace itself.
      TraceSink sink = sink_;
      try {
         sink( record );
      } catch ( ... ) {
         emitting_ = false;
         throw;
      }
      emitting_ = false;
   }

 private:
   TraceRegistry() {
      const char* text = std::getenv( "MOX_TRACE" );
      if ( text != nullptr ) settings_ = TraceSettings( text );
   }

   void apply( TraceFacility& facility ) const {
      facility.levels_ = settings_.levels( facility.name_ );
   }

   std::vector<TraceFacility*> facilities_;
   TraceSettings settings_;
   TraceSink sink_ = writeLine;
   bool emitting_ = false;
};

TraceFacility::TraceFacility( const char* name ) : levels_( 0 ), name_( name ) {
   TraceRegistry::instance().add( *this );
}

TraceFacility::~TraceFacility() {
   TraceRegistry::instance().remove( *this );
}

TraceSink traceSinkIs( TraceSink sink ) {
   return TraceRegistry::instance().sinkIs( std::move( sink ) );
}

void traceSettingsIs( StringView settings ) {
   TraceRegistry::instance().settingsIs( settings );
}

struct TraceLine::Content {
   const TraceFacility& facility;
   unsigned level;
   std::ostringstream stream;
};

TraceLine::TraceLine( const TraceFacility& facility, unsigned level )
   : content_( new Content{ facility, level, {} } ) {}

TraceLine::~TraceLine() = default;

std::ostream& TraceLine::stream() {
   return content_->stream;
}

void TraceLine::emit() {
   String text = content_->stream.str();
   TraceRegistry::instance().emit(
      { content_->facility.name(), content_->level, text } );
}

TraceFacility defaultTraceFacility( "Pimsm" );

}
