// A router's way out: the sockets of all its interfaces, opened as the interfaces
// come; and what it hears of unicast messages. Event-loop thread only.
#pragma once

#include <map>
#include <random>

#include "apps/agent/wire/HostLinks.h"
#include "apps/agent/wire/LinkCounters.h"
#include "apps/agent/wire/LinkSockets.h"
#include "apps/agent/wire/UnicastHearing.h"
#include "platform/loop/Clock.h"

namespace Agent {

class Wire {
 public:
   static constexpr double noteInterval = 60.0;  // s

   // `note` gets a message for people when something cannot be sent, at most one an
   // interface, family and noteInterval. `linksChanged` is called when an interface of
   // this host has changed. Loop and clock outlive it. Throws std::system_error.
   Wire( Mox::Loop& loop, Mox::Clock& clock,
         std::function<void( const std::string& )> note,
         Mox::Loop::Function linksChanged );

   // Hears the family's registers and register-stops from now on; further calls change
   // nothing. Where it cannot, `note` gets the reason.
   void hear( Vantu::AddressFamily family, const UnicastHearing::Heard& heard );

   const HostLinkTable& links() const { return links_.table(); }

   // Sends on that interface of this host; an empty name: wherever the host's routes
   // lead. Counts it as the VRF's. Returns false if the message could not leave. An
   // interface that is missing or down is no reason for a note.
   bool send( const L3::VrfName& vrf, const std::string& device,
              const Router::Outgoing& message );

   LinkCounters& counters() { return counters_; }

   // A random number from 0 to below 1.
   double uniform() { return distribution_( random_ ); }

 private:
   struct Way {
      std::string device;
      Vantu::AddressFamily family;
      auto operator<=>( const Way& ) const = default;
   };

   LinkSockets& sockets( const Way& way, uint32_t index );
   void closeGone();
   void note( const Way& way, const std::string& why );

   Mox::Loop& loop_;
   Mox::Clock& clock_;
   std::function<void( const std::string& )> note_;
   std::map<Way, LinkSockets> sockets_;
   std::map<Way, double> noted_;  // when
   LinkCounters counters_;
   std::mt19937 random_{ std::random_device()() };
   std::uniform_real_distribution<double> distribution_;
   std::map<Vantu::AddressFamily, UnicastHearing> hearing_;
   HostLinks links_;
};

}
