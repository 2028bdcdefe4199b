// While one lives, it turns on the facilities that `settings` names (as
// traceSettingsIs takes them) and collects their lines: "<facility> <level>
// <text>". Afterwards every facility is off and the sink is the former one.
#pragma once

#include <utility>
#include <vector>

#include "platform/trace/Trace.h"

namespace Mox::Test {

class TraceCapture {
 public:
   using Lines = std::vector<String>;

   explicit TraceCapture( StringView settings ) {
      former_ = traceSinkIs( [this]( const TraceRecord& record ) {
         lines_.push_back( String( record.facility ) + ' ' +
                           std::to_string( record.level ) + ' ' +
                           String( record.text ) );
      } );
      traceSettingsIs( settings );
   }
   ~TraceCapture() {
      traceSettingsIs( "" );
      traceSinkIs( std::move( former_ ) );
   }
   TraceCapture( const TraceCapture& ) = delete;
   TraceCapture& operator=( const TraceCapture& ) = delete;

   const Lines& lines() const { return lines_; }

   // The lines since the last call.
   Lines take() { return std::exchange( lines_, {} ); }

 private:
   TraceSink former_;
   Lines lines_;
};

}
