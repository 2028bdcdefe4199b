// This router's hellos on one link: when they are sent, and what they say (RFC 7761,
// 4.3.1 and 4.9.2). Sends nothing for a passive interface or a router that listens.
//
// A hello goes out after a random time up to triggeredDelay when the link comes up and
// when a neighbour comes or restarts, then once a hello interval, and at once when its
// content changes. Any other message waits for the first hello, and for one that a new
// neighbour has heard. Event-loop thread; clock and sender outlive the machine.
#pragma once

#include <set>

#include "engine/Config.h"
#include "engine/Sender.h"
#include "engine/Timer.h"

namespace Router {

class PIMSM_API HelloMachine {
 public:
   static constexpr double triggeredDelay = 5.0;  // s

   HelloMachine( Mox::Clock& clock, Sender& sender, Vantu::IntfId intfId );

   // What a former process left, so that neighbours see no restart. Call it before
   // configIs().
   struct Kept {
      uint32_t generationId = 0;
      double nextHello = 0.0;  // time; 0: not known
   };
   void adopt( const Kept& kept );
   // For the next process; nothing while it sends none.
   std::optional<Kept> kept() const;

   // `own` are the interface's addresses of the family, the one that PIM uses first;
   // not empty. The first call begins the hellos.
   void configIs( const InterfaceConfig& config,
                  const std::vector<Vantu::IpGenAddr>& own );

   // A neighbour came or restarted, and has heard no hello.
   void handleNew( const Vantu::IpGenAddr& neighbor );
   void handleGone( const Vantu::IpGenAddr& neighbor ) { deaf_.erase( neighbor ); }
   // Another message is to be sent to that neighbour; unspecified: to all.
   void handleSending( const Vantu::IpGenAddr& to );

   // Sends a hello with hold time 0: this router leaves the link.
   void sayGoodbye();

   const Vantu::IpGenAddr& own() const { return own_.front(); }

 private:
   bool speaks() const { return sender_.speaks() && !config_.passive; }
   PimHello content() const;
   bool send( uint16_t holdtime );
   void sendNow();
   void startWithin( double most );

   Sender& sender_;
   Vantu::IntfId intfId_;
   InterfaceConfig config_;
   std::vector<Vantu::IpGenAddr> own_;
   std::optional<Kept> adopted_;
   uint32_t generationId_ = 0;
   bool begun_ = false;
   bool introduced_ = false;  // a hello has been sent
   // Neighbours that have heard no hello since they came.
   std::set<Vantu::IpGenAddr> deaf_;
   Timer next_;
};

}
