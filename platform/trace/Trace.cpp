#include "platform/trace/Trace.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/trace/Sinks.h"
#include "platform/trace/detail/TraceSettings.h"

namespace Mox {
namespace {

// The stream's pword index that holds the trace's content.
int contentPlace() {
   static const int place = std::ios_base::xalloc();
   return place;
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
      if ( !sink ) sink = textSink();
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
   TraceSink sink_ = textSink();
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
   std::vector<TraceField> fields;
};

TraceLine::TraceLine( const TraceFacility& facility, unsigned level )
   : content_( new Content{ facility, level, {}, {} } ) {
   content_->stream.imbue( std::locale::classic() );
   content_->stream.pword( contentPlace() ) = content_.get();
}

TraceLine::~TraceLine() = default;

std::ostream& TraceLine::stream() {
   return content_->stream;
}

void TraceLine::addField( std::ostream& stream, const char* name, String value ) {
   auto* content = static_cast<Content*>( stream.pword( contentPlace() ) );
   if ( content != nullptr )
      content->fields.push_back( { name, std::move( value ) } );
}

void TraceLine::emit() {
   String text = content_->stream.str();
   TraceRegistry::instance().emit(
      { content_->facility.name(), content_->level, text, content_->fields } );
}

TraceFacility defaultTraceFacility( "Pimsm" );

}
