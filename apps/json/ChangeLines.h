// The changes of all mirrored VRFs and families, a line each.
//
//   watches  the tables of every mirror (see ChangeFeed); looks for VRFs that come
//   writes   the lines of a moment together, so that a burst is one write
//
// Goes before the mirrors. Event-loop thread only.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/json/ChangeFeed.h"

namespace Show {

class ChangeLines : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 0.05;   // s, between two writes
   static constexpr double rescanning = 0.2;  // s, between two looks for VRFs

   // Makes a change's line without its newline. `time`: "2024-05-01T10:00:02.114Z".
   using Line = std::function<std::string(
      const Mirror& mirror, const Change& change, const std::string& time )>;
   using Write = std::function<void( std::string_view lines )>;

   // REQUIRES: loaded mirrors. Their present records are not reported. All records
   // of a VRF that comes later are. A VRF that has gone is dropped from the
   // mirrors.
   ChangeLines( Mirrors& mirrors, const RouteFilter& filter, Line line,
                Write write );

 private:
   void follow( const Mirror& mirror, bool isNew );
   void touch();
   void onTime() override;
   void followNew();
   void forgetGone();

   Mirrors& mirrors_;
   RouteFilter filter_;
   Line line_;
   Write write_;
   double rescanTime_ = 0.0;
   std::vector<std::unique_ptr<ChangeFeed>> feeds_;
};

}
