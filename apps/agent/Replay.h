// Plays captures into the agent: all packets keep their intervals on the clock,
// without waiting, and end at the present instant.
//
// The captures are read whole first, since the start is known only with the end.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "apps/agent/AgentClock.h"
#include "apps/agent/capture/CaptureReader.h"

namespace Agent {

class Replay {
 public:
   // One capture and the name by which the configuration binds it; empty: to the
   // only interface.
   struct Input {
      std::string path;
      std::string capture;
   };
   // A frame, as it was captured.
   struct Frame {
      double elapsed = 0.0;  // s since the first of all captures
      size_t input = 0;
      LinkType link = LinkType::unknown;
      bool truncated = false;  // the capture holds only a part of it
      std::vector<uint8_t> bytes;
   };

   // Reads the inputs. Throws CaptureError when one cannot be opened. When one
   // breaks off, its packets before count, and problem() says so.
   explicit Replay( std::vector<Input> inputs );

   const std::vector<Input>& inputs() const { return inputs_; }
   size_t size() const { return frames_.size(); }
   size_t played() const { return next_; }
   bool atEnd() const { return next_ == frames_.size(); }
   const std::string& problem() const { return problem_; }  // empty: none

   // Sets the clock back by the captures' length. Call it before the first play().
   void start( AgentClock& clock, double now );
   // Plays until `over` returns true or the end is reached, one frame at least;
   // moves the clock before each frame. At the end the clock goes live.
   void play( AgentClock& clock, const std::function<bool()>& over,
              const std::function<void( const Frame& )>& receive );

 private:
   std::vector<Input> inputs_;
   std::vector<Frame> frames_;
   std::string problem_;
   size_t next_ = 0;
   double start_ = 0.0;
};

}
