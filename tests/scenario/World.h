// One router under injected time: a scenario's actions on it, and its observed
// state.
#pragma once

#include <memory>

#include "apps/config/AgentConfig.h"
#include "apps/mirror/Host.h"
#include "apps/mirror/Rates.h"
#include "platform/loop/TestClock.h"
#include "published/EventLog.h"
#include "published/MfibStatus.h"
#include "router/VrfRouter.h"
#include "tests/scenario/Messages.h"
#include "tests/scenario/Script.h"
#include "tests/support/TempRoot.h"

namespace Scenario {

class World {
 public:
   explicit World( const Script& script );

   // Runs one statement and all its immediate consequences. Throws ScriptError.
   void act( const std::string& statement );
   // The time until which a statement waits; nothing if it is an action.
   std::optional<double> pause( const std::string& statement ) const;

   // Seconds since the story began.
   void beginStory() { start_ = clock_.now(); }
   double now() const { return clock_.now() - start_; }
   // Moves from one due time to the next; `look` is called after each.
   void runUntil( double time, const std::function<void()>& look );

   // Plays a capture into an interface, each packet at its time; `look` is called
   // whenever something may have changed. Returns false if this machine lacks the
   // capture.
   bool replay( const std::string& statement, const std::function<void()>& look );

   // Is nothing due any more, though nothing was to be held for ever?
   bool over() const {
      return !forever_ && clock_.nextWakeup() == Mox::Clock::never;
   }

   // The first route whose records in the tables are not the model's, a moment after a change;
   // empty without one.
   std::string unpublished();
   // Asks why a receiver gets a group or not: "why A eth1", "why G 192.0.2.7".
   // Returns the cause that the show tool names: "why not-dr"; "why nothing". With
   // "verdict" for "why" the sentence that it prints, with "chain" all steps and what they
   // say, with commas for semicolons, behind the cause; "again" says that a second look
   // tells more.
   std::string why( const std::string& statement );
   // What `pimsm-show check` finds, each as "check two-drs eth1 A".
   std::vector<std::string> check();
   // The events since the last call, with their times.
   std::vector<std::pair<double, std::string>> takeEvents() {
      return std::exchange( events_, {} );
   }

   // The messages sent since the last call, with their times.
   std::vector<std::pair<double, std::string>> takeSent() {
      return std::exchange( sent_, {} );
   }

   bool runs() const { return router_ != nullptr; }
   // REQUIRES: the router runs.
   const Router::VrfRouter& router() const { return *router_; }
   const Router::RouterCounters& counters() const { return counters_; }
   const Names& names() const { return names_; }

 private:
   void receive( Vantu::IntfId intf, const Router::IpPacket& packet );
   void message( Words& words, const std::string& intf );
   void kernel( Words& words );
   void kernelEvent( Words& words );
   void lose( Words& words );
   void host( Words& words );
   void hostEntry( Words& words );
   void elsewhere( Words& words );
   void link( Words& words );
   void look();
   uint32_t indexOf( const std::string& intf ) const;
   void tell( const Published::Event& event );
   Vantu::AddressFamily family() const {
      return script_.ipv6 ? Vantu::AddressFamily::ipv6 : Vantu::AddressFamily::ipv4;
   }
   void adopt();
   void start( const std::string& variants );
   Agent::VrfConfig config( const std::string& variants ) const;
   void turn();
   Router::Speech speech();

   bool forever_ = false;  // some message had that hold time
   const Script& script_;
   Names names_;
   Habits habits_;
   Mox::Test::TempRoot root_;
   Mox::TestClock clock_{
      100.0 };  // a keepalive period has not passed since the boot
   double start_ = 100.0;
   Corvex::EntityManager manager_{ clock_, nullptr, root_.path() };
   Corvex::EntityManager kernelSide_{ clock_, nullptr, root_.path() };
   Mox::Ptr<Published::MfibStatus> mfib_;
   // What hosts' kernels say of themselves.
   Show::Host host_;
   // The first of two looks: the mirrors of that time, and how to read them again.
   std::optional<Show::Mirrors> looked_;
   std::vector<Show::Rates> rates_;
   double lookedAt_ = 0.0;
   std::optional<Published::EventLog> log_;
   std::vector<std::pair<double, std::string>> events_;
   Router::RouterCounters counters_;
   Agent::VrfConfig config_;
   double random_ = 0.5;
   std::vector<std::pair<double, std::string>> sent_;
   bool mute_ = false;
   std::unique_ptr<Router::VrfRouter> router_;
};

}
