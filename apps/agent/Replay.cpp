#include "apps/agent/Replay.h"

namespace Agent {

Replay::Replay( std::vector<Input> inputs ) : inputs_( std::move( inputs ) ) {
   CaptureSequence sequence;
   for ( const Input& input : inputs_ ) sequence.add( input.path );
   try {
      CaptureSequence::Packet packet;
      while ( sequence.next( packet ) ) {
         frames_.push_back( { packet.elapsed,
                              packet.file,
                              packet.link,
                              packet.bytes.size() < packet.wireLength,
                              { packet.bytes.begin(), packet.bytes.end() } } );
      }
   } catch ( const CaptureError& e ) {
      problem_ = e.what();
   }
}

void Replay::start( AgentClock& clock, double now ) {
   start_ = frames_.empty() ? now : now - frames_.back().elapsed;
   clock.replayFrom( start_ );
}

void Replay::play( AgentClock& clock, const std::function<bool()>& over,
                   const std::function<void( const Frame& )>& receive ) {
   while ( next_ < frames_.size() ) {
      const Frame& frame = frames_[next_++];
      clock.advance( start_ + frame.elapsed );
      receive( frame );
      if ( over() ) break;
   }
   if ( atEnd() ) clock.goLive();
}

}
